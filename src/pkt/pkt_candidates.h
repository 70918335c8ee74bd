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

void pkt_candidates_init();

// What the driver said and the first two addresses of the frame, twelve bytes, say about it:
// frame_fact (pkt_redirect.h).
u32 pkt_frame_facts(const tarn_pkt_info *info, const u8 *addresses);

// Where a frame of those facts is counted; its class is half of it.
inline u32 pkt_frame_row(u32 facts) {
    static_assert(FRAME_WITHOUT_PORT == 2 && FRAME_ARP == 4 && FRAME_IPV4 == 8 && FRAME_IPV6 == 16);
    return facts >> 1 & 0xF;
}

// Those that could want a frame with those facts: a bit for each place of process_packet_rxs.
u64 pkt_candidates(u32 facts);

// Those that could want to change a frame that came like this: a bit for each place of
// process_packet_modify_rx. They and everybody else who is enabled count as asked when its walk has
// ended.
u32 pkt_modifiers(const tarn_rx_meta *meta);
// Those who want to change what the IP stack sends: a bit for each place of
// process_packet_modify_tx.
u32 pkt_tx_modifiers();

// Around every registration and every change of who is asked. Frames that ended before are summed
// up for the old set.
void pkt_candidates_change_begin();
void pkt_candidates_change_end();
// Brings the counters of every redirect up to date.
void pkt_candidates_sum_up();
