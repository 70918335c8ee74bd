// What the chain did with one frame, slot by slot.
//
// The registry is a table of records, so each record's match can be led through a function of ours
// that remembers whom the chain asked. What they answered and why, the core tells its watchers.
#pragma once

#include "pkt/pkt_redirect.h"

#include <string>
#include <vector>

namespace replay {

struct Decision {
    u32 slot;
    std::string name;
    u32 flags;
    u32 reason;
    std::string why = {}; // in words, where there are any
};

// A word of a redirect that took no decision.
struct Note {
    u32 slot;
    std::string why;
};

struct Trace {
    std::vector<u32> consulted;      // slots, in the order in which they were asked
    std::vector<Decision> decisions; // of those that took one
    std::vector<Note> notes;
    std::vector<Decision> off; // what protocols that are off would have decided
    tarn_pkt_info info{};      // as the first one saw it; zero when none was asked
};

// Once, after the module was loaded.
void trace_start();

// What happened since the last call.
Trace trace_take();

} // namespace replay
