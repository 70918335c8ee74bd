#include "replay/trace.h"

#include "control.h"
#include "explain/event.h"
#include "pkt/pkt_candidates.h"

#include <array>
#include <cstring>
#include <utility>

namespace replay {

namespace {

using Match = i32 (*)(tarn_pkt_info *, redirect_instruct *);

std::array<Match, REDIRECT_SLOTS> asked_for{};
Trace current;

template <u32 Slot>
i32 traced(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (current.consulted.empty())
        current.info = *info;
    current.consulted.push_back(Slot);
    return asked_for[Slot](info, instruct);
}

// Events without a redirect say what the outcome shows.
void remember(const redirect_event &told) {
    explain::Event event = explain::copy_of(told);
    if (event.redirect.empty())
        return;
    std::string why = explain::why_text(event.rule, event.number, event.measured, event.limit);
    if (event.flags != 0)
        current.decisions.push_back({event.slot, event.redirect, event.flags, event.reason, why});
    else
        current.notes.push_back({event.slot, why});
}

template <u32... Slots>
void lead_through(std::integer_sequence<u32, Slots...>) {
    constexpr std::array<Match, sizeof...(Slots)> ours{traced<Slots>...};
    pkt_candidates_change_begin();
    for (u32 slot = 0; slot < REDIRECT_SLOTS; slot++) {
        if (!packet_redirects[slot])
            continue;
        asked_for[slot] = std::exchange(packet_redirects[slot]->match, ours[slot]);
        packet_redirects[slot]->concerns = FRAME_ANY; // those who would say no are shown, too
    }
    pkt_candidates_change_end();
}

} // namespace

void trace_start() {
    static userlevel::trace_watch watch(remember);
    lead_through(std::make_integer_sequence<u32, REDIRECT_SLOTS>{});
}

Trace trace_take() {
    return std::exchange(current, {});
}

} // namespace replay
