// One frame let through the chip and the core of this process: where it went, and why.
//
// It is a frame like any other: it is counted, takes a token of its throttle, teaches the chip its
// source. Whoever does not want that lets it through in a copy of the process (on_a_copy.h). What
// leaves by a port, its home has to hand to note_sent() and to nobody else; devices of the IP stack
// are led here, sockets are asked.
#pragma once

#include "explain/event.h"

#include <span>
#include <string>
#include <vector>

namespace explain {

using Bytes = std::vector<std::uint8_t>;

struct Sent {
    std::string port;
    std::size_t length;
    u32 vid; // of its tag; 0: none
};

struct Posted {
    std::string device;
    std::size_t length;
};

// A row of the chip's trap table that sent it to the CPU.
struct Trapped {
    std::string row;
    u32 code, queue;
};

struct Story {
    std::string port;
    Bytes frame;
    std::string drop; // the chip's word for why it ended there; "": it did not
    std::vector<Trapped> traps;
    bool learned = false, moved = false; // its source address
    std::vector<Event> events;           // of the core, in their order
    std::vector<Sent> sent;
    std::vector<Posted> posted;
    std::vector<std::string> sockets; // of daemons that got it
    std::vector<std::string> log;     // what the core said
};

// Two hexadecimal digits a byte; blanks, colons, dots and dashes between bytes. "" or what is
// wrong.
std::string parse_frame(const std::string &text, Bytes &bytes);

// The ifindex of a port that the chip has, by its name or its ifindex; "": the lowest. 0: there is
// none.
u32 find_port(const std::string &port);

// On the port of that ifindex. "" or what is wrong.
std::string let_through(u32 ifindex, const Bytes &frame, Story &story);
// Of the port in that slot of the chip.
void note_sent(u32 slot, std::span<const std::uint8_t> frame);

std::string text_of(const Story &story);
std::string json_of(const Story &story); // one line

} // namespace explain
