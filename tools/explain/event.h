// What a redirect decided about a frame, as a program reads it: from the switch in this process, or
// from the kernel's event tarn:redirect.
#pragma once

#include "kernel/trace.h"

#include <array>
#include <optional>
#include <string>

namespace explain {

struct Event {
    std::uint64_t frame = 0; // the same for all events of one frame, and of later ones
    std::string port;        // "": none
    u32 ifindex = 0, vid = 0, ethertype = 0, length = 0;
    std::array<u8, 6> source{}, destination{};
    std::string redirect; // "": what the pipeline itself says
    u32 slot = 0, flags = 0, reason = 0;
    std::string rule;   // "": none
    std::string number; // "": nothing was measured
    u32 measured = 0, limit = 0;
};

Event copy_of(const redirect_event &event);

// A line of the kernel's trace (trace_pipe); none where it is of another event.
std::optional<Event> parse_trace_line(const std::string &line);

// The frame ends here, and nobody has it.
bool is_drop(const Event &event);

// "stop; reason 5: no layer 3 interface; ..." without the frame.
std::string verdict_text(const Event &event);
// "the rule, number 3, limit 2"; "" where nothing is said.
std::string why_text(const std::string &rule, const std::string &number, u32 measured, u32 limit);
// One line, without its newline.
std::string line_of(const Event &event);
std::string json_of(const Event &event);

// Which events are wanted.
struct Filter {
    std::string port, redirect; // "": any
    bool drops = false;         // those alone
    bool wants(const Event &event) const;
};

} // namespace explain
