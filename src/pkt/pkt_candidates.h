// Who can have a say about a frame: an index over the registry, so that a frame visits only the
// handful of redirects that could want it.
//
// Every redirect that is enabled and does not skip the frame's class counts as asked, as if each
// were called in turn. Those whose `concerns` (pkt_redirect.h) name no fact of the frame would
// answer no, so they are not called; and what was asked is not counted one by one: a frame counts
// once, where its walk ended, and `inspects` is summed up from that whenever somebody looks or the
// set of those asked changes. The hooks in front of the classification (process_packet_modify_rx)
// are visited and counted in the same way.
//
// The index has no lock on the side of frames: one that is under way while a redirect is enabled
// or disabled may be counted for the old or the new set.
#pragma once

#include "pkt/pkt_redirect.h"

inline constexpr u32 REDIRECT_PLACES = 47; // of process_packet_rxs, without its end

// Frame classes, in the order of the bits of SKIP_*; a frame of any other type is of class 0.
enum frame_class : u32 {
    FRAME_CLASS_OTHER,
    FRAME_CLASS_ARP,
    FRAME_CLASS_IPV4,
    FRAME_CLASS_IPV6,
    FRAME_CLASSES,
};

void pkt_candidates_init();

// What the driver said and the first two addresses of the frame, twelve bytes, say about it:
// frame_fact (pkt_redirect.h).
u32 pkt_frame_facts(const tarn_pkt_info *info, const u8 *addresses);

inline frame_class pkt_frame_class(u32 facts) {
    static_assert(FRAME_ARP == 4 && FRAME_IPV4 == 8 && FRAME_IPV6 == 16);
    u32 type = facts >> 2 & 7; // one of 0, 1, 2 and 4
    return static_cast<frame_class>(type - (type >> 2));
}

// Those that could want a frame with those facts: a bit for each place of process_packet_rxs.
u64 pkt_candidates(u32 facts);

// The walk of a frame ended at that place: it or one before it stopped the frame, or, with the last
// place, nobody did.
void pkt_candidates_count(frame_class of, u32 place);

// Those that could want to change a frame that came like this: a bit for each place of
// process_packet_modify_rx.
u32 pkt_modifiers(const tarn_rx_meta *meta);
// They were asked about a frame, and so was everybody else who is enabled.
void pkt_modifiers_count();

// Around every registration and every change of who is asked. Frames that ended before are summed
// up for the old set.
void pkt_candidates_change_begin();
void pkt_candidates_change_end();
// Brings `inspects` and `modify_rx_inspects` of every redirect up to date.
void pkt_candidates_sum_up();
