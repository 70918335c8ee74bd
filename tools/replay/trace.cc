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

// Of a protocol's frames, told by where they go or by their type.
constexpr u32 FRAME_PROTOCOLS = FRAME_OF_PROTOCOL | FRAME_TO_PROTOCOL | FRAME_TO_BRIDGES |
                                FRAME_TO_STP | FRAME_TO_LACP | FRAME_IP_ROUTING;

std::array<Match, REDIRECT_SLOTS> asked_for{};
std::array<u32, REDIRECT_SLOTS> concerns{}; // as they were
Trace current;

bool could_want(u32 slot, u32 facts) {
    const u32 classes = facts & (FRAME_ARP | FRAME_IPV4 | FRAME_IPV6);
    static_assert(FRAME_ARP == SKIP_ARP << 1 && FRAME_IPV6 == SKIP_IPV6 << 1);
    return (concerns[slot] & ~FRAME_PROTOCOLS) == 0 && (concerns[slot] & facts) != 0 &&
           !(packet_redirects[slot]->skip_protocols << 1 & classes);
}

// A redirect that is off is asked beside the chain, which does not ask it. Of a protocol nobody
// else shares what it remembers.
void ask_who_is_off(const tarn_pkt_info *info) {
    for (u32 slot = 0; slot < REDIRECT_SLOTS; slot++) {
        const packet_redirect *redirect = packet_redirects[slot];
        if (!redirect || redirect->enabled || !could_want(slot, info->facts))
            continue;
        tarn_pkt_info own = *info;
        own.why = nullptr;
        redirect_instruct instruct{};
        asked_for[slot](&own, &instruct);
        if (instruct.pre_post_arg)
            redirect->pre_post_modify(nullptr, &instruct.pre_post_arg);
        if (instruct.flags != 0)
            current.off.push_back({slot, redirect->name, instruct.flags, instruct.reason});
    }
}

template <u32 Slot>
i32 traced(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (current.consulted.empty()) {
        current.info = *info;
        ask_who_is_off(info);
    }
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
        // Those who would say no are shown, too.
        concerns[slot] = std::exchange(packet_redirects[slot]->concerns, FRAME_ANY);
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
