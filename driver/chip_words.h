// The words of the chip, as its commands (chip_command.cc) and the tools that pass them on know
// them.
#pragma once

struct chip_word {
    const char *name;
    const char *arguments; // as they are written, "[...]" for what may be left out
    const char *help;
    unsigned least, most; // words with the name
};

inline constexpr chip_word CHIP_WORDS[] = {
    {"port", "PORT DEVICE", "opens an Ethernet device as a port that the switch knows", 3, 3},
    {"noport", "PORT", "closes it", 2, 2},
    {"learn", "PORT on|off", "whether source addresses are learned there", 3, 3},
    {"trusted", "PORT on|off", "whether floods to trusted ports leave there", 3, 3},
    {"mac", "MAC VIDS", "one more address of the switch itself", 3, 3},
    {"nomac", "MAC VIDS", "ends that", 3, 3},
    {"static", "MAC VIDS PORT", "an address that is on the port and does not age", 4, 4},
    {"nostatic", "MAC VIDS", "ends that", 3, 3},
    {"group", "MAC VIDS PORT", "a group that goes to the port, and not to the CPU", 4, 4},
    {"nogroup", "MAC VIDS [PORT]", "ends that, of the port or of all", 3, 4},
    {"fdb", "flush", "forgets the addresses that were learned", 2, 2},
    {"age", "SECONDS", "how long an address is kept; 0: for ever", 2, 2},
    {"flood", "hardware|software", "who floods what the CPU sends to all", 2, 2},
    {"trap", "NAME on|off|only|copy", "whether such frames go to the CPU, and to it alone", 3, 3},
    {"filter", "TYPE...", "the Ethernet types, in hexadecimal, of the trap 'filter'", 2, 5},
    {"sflow", "RATE", "samples one frame in so many; 0: none", 2, 2},
    {"show", "[settings|ports|vlans|traps|fdb]", "shows the state, with counters", 1, 2},
    {"link", "PORT up|down", "of a port that the switch does not know", 3, 3},
    {"vlan", "PORT VIDS tagged|untagged", "of a port that the switch does not know", 4, 4},
    {"novlan", "PORT VIDS", "of a port that the switch does not know", 3, 3},
    {"pvid", "PORT VID", "of a port that the switch does not know; 0: none", 3, 3},
    {"help", "", "lists the words", 1, 1},
};
