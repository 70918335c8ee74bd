#include "chip_test.h"

#include <cstring>

using Words = ChipTest;

namespace {

constexpr int INVALID = -22, NO_DEVICE = -19, EXISTS = -17, NO_ENTRY = -2, NO_MEMORY = -12;

const std::string NO_PORT = "add it with 'port IFINDEX DEVICE'; 'show ports' lists them\n";

} // namespace

TEST_F(Words, an_empty_line_does_nothing) {
    EXPECT_EQ(tell(""), "");
    EXPECT_EQ(tell(" \t\n"), "");
}

TEST_F(Words, blanks_and_a_line_end_do_not_matter) {
    tell("  pvid\t101   7 \n");
    EXPECT_NE(tell("show ports").find("pvid 7"), std::string::npos);
}

TEST_F(Words, an_unknown_word_is_named) {
    EXPECT_EQ(refuse("prot 5 eth0", INVALID), "unknown word 'prot': 'help' lists the words\n");
}

TEST_F(Words, a_wrong_number_of_words_shows_how_it_is_used) {
    EXPECT_EQ(refuse("port 5", INVALID),
              "wrong number of words after 'port': port IFINDEX DEVICE\n");
    EXPECT_EQ(refuse("vlan 101 1 tagged now", INVALID),
              "wrong number of words after 'vlan': vlan IFINDEX VID tagged|untagged\n");
    EXPECT_EQ(refuse("vlan 1 2 3 4 5 6 7 8 9", INVALID),
              "wrong number of words after 'vlan': vlan IFINDEX VID tagged|untagged\n");
    EXPECT_EQ(refuse("port 5 a-device-name-of-more-than-thirty-two-bytes", INVALID),
              "wrong number of words after 'port': port IFINDEX DEVICE\n");
}

TEST_F(Words, help_lists_every_word) {
    std::string help = tell("help");
    for (const char *word : {"port IFINDEX DEVICE\n",
                             "noport IFINDEX\n",
                             "link IFINDEX up|down\n",
                             "learn IFINDEX on|off\n",
                             "trusted IFINDEX on|off\n",
                             "vlan IFINDEX VID tagged|untagged\n",
                             "novlan IFINDEX VID\n",
                             "pvid IFINDEX VID\n",
                             "mac MAC VID\n",
                             "nomac MAC VID\n",
                             "static MAC VID IFINDEX\n",
                             "nostatic MAC VID\n",
                             "group MAC VID IFINDEX\n",
                             "nogroup MAC VID [IFINDEX]\n",
                             "fdb flush\n",
                             "age SECONDS\n",
                             "flood hardware|software\n",
                             "trap NAME on|off|only|copy\n",
                             "filter TYPE...\n",
                             "sflow RATE\n",
                             "show [settings|ports|vlans|traps|fdb]\n",
                             "help\n"})
        EXPECT_NE(help.find(word), std::string::npos) << word;
}

TEST_F(Words, a_port_is_refused_with_a_reason) {
    EXPECT_EQ(refuse("port 0 p9", INVALID),
              "bad IFINDEX '0': give a number from 1 to 4294967294\n");
    EXPECT_EQ(refuse("port 4294967295 p9", INVALID),
              "bad IFINDEX '4294967295': give a number from 1 to 4294967294\n");
    EXPECT_EQ(refuse("port 99999999999 p9", INVALID),
              "bad IFINDEX '99999999999': give a number from 1 to 4294967294\n");
    EXPECT_EQ(refuse("port 1x p9", INVALID),
              "bad IFINDEX '1x': give a number from 1 to 4294967294\n");
    EXPECT_EQ(refuse("port 101 p9", EXISTS),
              "port in use '101': take it away first with 'noport IFINDEX'\n");
    EXPECT_EQ(refuse("port 109 p1", EXISTS),
              "device in use 'p1': it is a port already; see 'show ports'\n");
    EXPECT_EQ(refuse("port 109 abcdefghijklmnop", INVALID),
              "bad DEVICE 'abcdefghijklmnop': a device name has at most 15 characters\n");
    home.missing = {"p9"};
    EXPECT_EQ(refuse("port 109 p9", NO_DEVICE),
              "cannot open 'p9' (error 19): give an Ethernet device that exists and is free\n");
    home.missing.clear();
    tell("port 4294967294 abcdefghijklmno");
}

TEST_F(Words, the_chip_has_64_ports) {
    for (int i = 5; i <= 64; i++)
        tell("port " + std::to_string(100 + i) + " p" + std::to_string(i));
    EXPECT_EQ(refuse("port 200 p65", NO_MEMORY),
              "no room for port '200': the chip has 64; take one away first\n");
    for (int i = 5; i <= 64; i++)
        tell("vlan " + std::to_string(100 + i) + " 1 tagged");
    receive(101, Frame().padded());
    EXPECT_EQ(home.sent.size(), 63u);
    home.sent.clear();
    tell("noport 133");
    tell("port 200 p65");
}

TEST_F(Words, words_about_a_port_want_one_that_is_there) {
    for (const char *line : {"noport 99", "link 99 up", "learn 99 on", "trusted 99 on",
                             "vlan 99 1 tagged", "novlan 99 1", "pvid 99 1"})
        EXPECT_EQ(refuse(line, NO_DEVICE), "no port '99': " + NO_PORT) << line;
    EXPECT_EQ(refuse("static 02:00:00:00:00:01 1 99", NO_DEVICE), "no port '99': " + NO_PORT);
    EXPECT_EQ(refuse("group 03:00:00:00:00:01 1 99", NO_DEVICE), "no port '99': " + NO_PORT);
    EXPECT_EQ(refuse("nogroup 03:00:00:00:00:01 1 99", NO_DEVICE), "no port '99': " + NO_PORT);
    EXPECT_EQ(refuse("noport x", INVALID), "bad IFINDEX 'x': give a number from 1 to 4294967295\n");
}

TEST_F(Words, a_choice_names_what_can_be_chosen) {
    EXPECT_EQ(refuse("link 101 on", INVALID), "bad choice 'on': say 'up' or 'down'\n");
    EXPECT_EQ(refuse("learn 101 up", INVALID), "bad choice 'up': say 'on' or 'off'\n");
    EXPECT_EQ(refuse("trusted 101 up", INVALID), "bad choice 'up': say 'on' or 'off'\n");
    EXPECT_EQ(refuse("vlan 101 1 both", INVALID),
              "bad choice 'both': say 'tagged' or 'untagged'\n");
    EXPECT_EQ(refuse("flood both", INVALID), "bad choice 'both': say 'software' or 'hardware'\n");
    EXPECT_EQ(refuse("fdb show", INVALID), "bad choice 'show': say 'fdb flush'\n");
    EXPECT_EQ(refuse("trap arp maybe", INVALID),
              "bad choice 'maybe': say 'on', 'off', 'copy' or, where the CPU alone may have it, "
              "'only'\n");
    EXPECT_EQ(refuse("trap sample only", INVALID),
              "bad choice 'only': say 'on', 'off', 'copy' or, where the CPU alone may have it, "
              "'only'\n");
    EXPECT_EQ(refuse("show all", INVALID),
              "nothing called 'all': say settings, ports, vlans, traps, fdb, or 'show' alone for "
              "all\n");
}

TEST_F(Words, numbers_have_their_limits) {
    EXPECT_EQ(refuse("vlan 101 0 tagged", INVALID), "bad VID '0': give a number from 1 to 4094\n");
    EXPECT_EQ(refuse("vlan 101 4095 tagged", INVALID),
              "bad VID '4095': give a number from 1 to 4094\n");
    EXPECT_EQ(refuse("novlan 101 x", INVALID), "bad VID 'x': give a number from 1 to 4094\n");
    EXPECT_EQ(refuse("pvid 101 4095", INVALID), "bad VID '4095': give a number from 0 to 4094\n");
    tell("pvid 101 0");
    tell("vlan 101 4094 tagged");
    EXPECT_EQ(refuse("age 1000001", INVALID),
              "bad SECONDS '1000001': give a number up to 1000000, or 0 to keep addresses for "
              "ever\n");
    EXPECT_EQ(refuse("sflow -1", INVALID),
              "bad RATE '-1': give N to sample one frame in N, or 0 for none\n");
    EXPECT_EQ(refuse("filter 10000", INVALID),
              "bad TYPE '10000': give an Ethernet type such as 88b5\n");
    EXPECT_EQ(refuse("trap none on", NO_ENTRY), "no trap 'none': 'show traps' lists them\n");
}

TEST_F(Words, addresses_are_checked) {
    for (const char *bad : {"02:00:00:00:00", "02:00:00:00:00:0", "02:00:00:00:00:00:00",
                            "2:0:0:0:0:0", "02-00-00-00-00-00", "0g:00:00:00:00:00"})
        EXPECT_EQ(refuse(std::string("mac ") + bad + " 1", INVALID),
                  std::string("bad MAC '") + bad + "': write it as 02:00:00:00:00:01\n");
    EXPECT_EQ(refuse("mac 03:00:00:00:00:01 1", INVALID),
              "bad MAC '03:00:00:00:00:01': this is the address of a group\n");
    EXPECT_EQ(refuse("group 02:00:00:00:00:01 1 101", INVALID),
              "bad MAC '02:00:00:00:00:01': a group has an odd first byte\n");
    EXPECT_EQ(refuse("mac 02:00:00:00:00:01 0", INVALID),
              "bad VID '0': give a number from 1 to 4094\n");
}

TEST_F(Words, a_told_address_is_taken_away_as_what_it_was_told) {
    tell("mac 02:00:00:00:00:01 1");
    tell("mac 02:00:00:00:00:01 1"); // again is no harm
    EXPECT_EQ(refuse("static 02:00:00:00:00:01 1 101", EXISTS),
              "address in use '02:00:00:00:00:01': it was told as another kind; take that away "
              "first ('show fdb' lists it)\n");
    EXPECT_EQ(refuse("nostatic 02:00:00:00:00:01 1", NO_ENTRY),
              "not told '02:00:00:00:00:01': 'show fdb' lists what there is\n");
    tell("nomac 02:00:00:00:00:01 1");
    refuse("nomac 02:00:00:00:00:01 1", NO_ENTRY);
    tell("static 02:00:00:00:00:01 1 101");
    tell("static 02:00:00:00:00:01 1 102"); // moves it
    EXPECT_EQ(tell("show fdb"), "fdb 02:00:00:00:00:01 1 static 102\n");
    tell("nostatic 02:00:00:00:00:01 1");
    EXPECT_EQ(tell("show fdb"), "");
}

TEST_F(Words, a_group_is_taken_away_port_by_port_or_whole) {
    tell("group 01:00:5e:01:02:03 1 101");
    tell("group 01:00:5e:01:02:03 1 102");
    EXPECT_EQ(tell("show fdb"), "fdb 01:00:5e:01:02:03 1 group 101 102\n");
    refuse("nogroup 01:00:5e:01:02:03 1 103", NO_ENTRY);
    tell("nogroup 01:00:5e:01:02:03 1 101");
    tell("nogroup 01:00:5e:01:02:03 1 102");
    EXPECT_EQ(tell("show fdb"), "");
    tell("group 01:00:5e:01:02:03 1 101");
    tell("group 01:00:5e:01:02:03 1 102");
    tell("nogroup 01:00:5e:01:02:03 1");
    EXPECT_EQ(tell("show fdb"), "");
    refuse("nogroup 01:00:5e:01:02:03 1", NO_ENTRY);
}

TEST_F(Words, too_many_told_addresses_are_refused_in_the_end) {
    int result = 0, told = 0;
    char reply[200] = "";
    for (int i = 0; i < 9000 && result == 0; i++, told++) {
        char line[64];
        std::snprintf(line, sizeof(line), "mac 02:00:00:00:%02x:%02x 1", i >> 8, i & 0xFF);
        result = chip_command(line, reply, sizeof(reply));
    }
    EXPECT_EQ(result, NO_MEMORY);
    EXPECT_GT(told, 1000);
    EXPECT_NE(std::strstr(reply, "too many told addresses share its place; take one away"),
              nullptr);
}

TEST_F(Words, a_flush_forgets_what_was_learned_and_nothing_told) {
    tell("mac 02:00:00:00:00:01 1");
    receive(101, Frame().from("02:00:00:00:00:0a").padded());
    home.sent.clear();
    tell("fdb flush");
    EXPECT_EQ(tell("show fdb"), "fdb 02:00:00:00:00:01 1 own\n");
}

TEST_F(Words, leaving_a_vlan_forgets_what_was_learned_there) {
    tell("vlan 101 2 tagged");
    receive(101, Frame().from("02:00:00:00:00:0a").padded());
    receive(101, Frame().from("02:00:00:00:00:0a").tag(2).padded());
    home.sent.clear();
    tell("novlan 101 1");
    EXPECT_EQ(tell("show fdb"), "fdb 02:00:00:00:00:0a 2 learned 101\n");
}

TEST_F(Words, the_state_is_shown_whole_and_in_parts) {
    tell("vlan 102 5 tagged");
    tell("age 60");
    tell("sflow 100");
    tell("filter 88B5");
    EXPECT_EQ(tell("show settings"),
              "age 60\nflood hardware\nunknown-multicast on\nsflow 100\nfilter 88b5\n");
    EXPECT_EQ(tell("show vlans"),
              "vlan 1 101 untagged 102 untagged 103 untagged 104 untagged\nvlan 5 102 tagged\n");
    std::string ports = tell("show ports");
    EXPECT_EQ(ports.substr(0, ports.find('\n')),
              "port 101 p1 link up pvid 1 learn on trusted off auth off rx 0 tx 0 learned 0 moved "
              "0");
    std::string traps = tell("show traps");
    EXPECT_NE(traps.find("trap multicast-ipv4 copy cpu_code 29 code 5 flags 0 queue 2 hits 0\n"),
              std::string::npos);
    EXPECT_EQ(tell("show"),
              tell("show settings") + ports + tell("show vlans") + traps + tell("show fdb"));
}

TEST_F(Words, frames_that_were_lost_on_the_way_to_the_chip_are_shown) {
    EXPECT_EQ(counter(102, "drop-arrival"), 0u);
    home.lost["p2"] = 7;
    EXPECT_EQ(counter(102, "drop-arrival"), 7u);
    EXPECT_EQ(counter(101, "drop-arrival"), 0u);
    home.lost.clear();
}

TEST_F(Words, a_reply_that_does_not_fit_ends_after_a_whole_line_and_says_so) {
    std::string all = tell("show traps");
    for (std::size_t size = 0; size <= all.size() + 1; size++) {
        std::vector<char> reply(size + 1, '#');
        EXPECT_EQ(chip_command("show traps", reply.data(), size), 0);
        EXPECT_EQ(reply[size], '#'); // nothing behind the end
        if (size == 0)
            continue;
        std::string text = reply.data();
        if (text.empty() || text == all)
            continue;
        const std::string cut = "(more did not fit)\n";
        ASSERT_TRUE(text.ends_with(cut)) << text;
        ASSERT_TRUE(all.starts_with(text.substr(0, text.size() - cut.size())));
        char before = text.size() > cut.size() ? text[text.size() - cut.size() - 1] : '\n';
        ASSERT_EQ(before, '\n');
    }
    std::vector<char> reply(all.size() + 40);
    chip_command("show traps", reply.data(), reply.size());
    EXPECT_EQ(reply.data(), all);
}

TEST_F(Words, a_new_start_has_nothing_of_the_old_state) {
    tell("mac 02:00:00:00:00:01 1");
    tell("trap arp off");
    tell("flood software");
    tell("age 7");
    home.callbacks.unknown_multicast_flood_set(0);
    chip_stop();
    chip_start();
    EXPECT_EQ(tell("show ports") + tell("show vlans") + tell("show fdb"), "");
    EXPECT_EQ(tell("show settings"),
              "age 300\nflood hardware\nunknown-multicast on\nsflow 0\nfilter 0\n");
    EXPECT_NE(tell("show traps").find("trap arp copy"), std::string::npos);
    EXPECT_NE(home.callbacks.flood_except, nullptr);
}
