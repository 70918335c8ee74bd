// The words of tarnctl, as one table.
//
// A row is one subcommand: its words, its arguments in the order in which the switch wants their
// attributes, and a sentence. Everything that knows the words comes from these rows: the parser,
// its errors, --help, completion, the manual page and the batch language. A new command is a new
// row.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnctl {

enum class Kind {
    fixed,          // no words: a value that the switch wants to see
    flags,          // words that stand for themselves, each a bit of the attribute
    new_name,       // of an interface that is to be
    interface,      // by name or ifindex; p1,p2: a command for each
    vid,            // 1 to 4094
    vids,           // 10,20-30: a command for each
    vid_ranges,     // 10,20-30: a command for each range; two attributes, the first is `attribute`
    vid_or_bitmap,  // one VID, or several as a bitmap by the row's other command
    vlan_interface, // a VID, sent as the ifindex of its interface
    vlan_interfaces,
    number, // within low and high, or one of the choices
    choice, // one of the choices, or a number
    bits,   // choices joined by commas, a number, or "none"
    on_off,
    mac,
    ipv4,
    subnet,    // 192.0.2.0/24; two attributes, the first is `attribute`
    instances, // 0,5-7 or "all": a command for each
    ports,     // 80,8080 or "none"
    rules,     // of what a station may reach, or "none"
    upstream,  // add:10:port1,del:20:port2
    word,      // for what is not sent as an attribute
    text,      // the rest of the line
};

struct Choice {
    std::string_view word;
    std::uint32_t value;
    std::string_view not_with = {}; // a word that contradicts it
};

struct Argument {
    Kind kind;
    std::uint16_t attribute;
    std::string_view word; // the keyword before the value; empty: the value stands in its place
    std::string_view name; // of the value, in capitals
    std::string_view help;
    std::string_view fallback = {};  // what is meant when it is left out
    bool optional = false;           // left out, no attribute is sent
    std::uint32_t low = 0, high = 0; // of a number
    std::uint32_t value = 0;         // of a fixed one
    std::vector<Choice> choices = {};
    bool needed() const { return fallback.empty() && !optional; }
};

enum class Action {
    message, // a command of the family
    show,    // a file of the proc tree
    facts,   // the switch as a whole: `file` says what of it (show.h)
    set,     // a line written to one
    redirect,
    proc_read,
    proc_write,
    monitor,
    sockets,
    trace,
    explain,
    chip,
};

struct Subcommand {
    std::string_view words; // "vlan member add"
    Action action;
    int command;     // TARNFWD_CMD_*; of `vid_or_bitmap`, the one for several
    int command_one; // the one for one VID, else -1
    std::string_view help;
    std::vector<Argument> arguments;
    std::string_view file = {};  // of the proc tree; {} in it is the first argument
    std::string_view value = {}; // what is written there, {} being the first argument
    std::string_view example = {};
};

// A first word, and what belongs under it.
struct Topic {
    std::string_view word, help;
};

const std::vector<Subcommand> &subcommands();
const std::vector<Topic> &topics();

} // namespace tarnctl
