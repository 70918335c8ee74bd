// "l2mac": tells the control daemon which MAC addresses the chip has met, for learning in software.
//
// The start does not call tarn_l2_mac_init, on purpose: its slot stays empty and keeps its place.
#include "events/tarnfwd_nl_event.h"
#include "kernel/once.h"
#include "kernel/time.h"
#include "pkt/frame.h"
#include "pkt/pkt_explain.h"
#include "pkt/pkt_redirect.h"
#include "tarn/tarnfwd_nl.h"
#include "vlan/vlan.h"

namespace {

constexpr u32 SLOT = 27;
constexpr u32 REPORTED = 1;

constexpr u32 PERIOD = 101; // jiffies
constexpr u32 LIMIT = 20;

constexpr u8 STATE = 1; // of every event

// Of the limit. Plain words: off by a few events when several CPUs count at once.
constinit u32 l2mac_period_start = 0;
constinit u32 l2mac_period_count = 0;

bool _limit_ok(const tarn_pkt_info *info) {
    u32 now = static_cast<u32>(get_jiffies());
    if (now - read_once(l2mac_period_start) >= PERIOD) {
        write_once(l2mac_period_start, now);
        write_once(l2mac_period_count, 1);
        return true;
    }
    u32 count = read_once(l2mac_period_count);
    if (count > LIMIT) {
        explain(info, "events of addresses are over their limit", "events in this second", count,
                LIMIT);
        return false;
    }
    write_once(l2mac_period_count, count + 1);
    return true;
}

void _post_unless_group(const tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!(frame_bytes(info->skb).byte(ETH_SRC_OFFSET) & 1))
        instruct->flags |= REDIRECT_POST_USERSPACE;
}

i32 tarn_l2_mac_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!info->l2_port || read_once(info->l2_port->auth_state) != TARN_AUTH_UNCONTROLLED ||
        (info->flags & TARN_RX_NO_LEARNING))
        return 0;
    if (info->flags & (TARN_RX_NEW_SOURCE | TARN_RX_DESTINATION)) {
        _post_unless_group(info, instruct);
        if (info->flags & TARN_RX_NEW_SOURCE) {
            instruct->flags |= REDIRECT_STOP;
            instruct->reason = REPORTED;
        }
        return 0;
    }
    if ((info->flags & TARN_RX_MOVED_SOURCE) && _limit_ok(info))
        _post_unless_group(info, instruct);
    return 0;
}

void _report(const frame_bytes &frame, u32 offset, u32 ifindex, u8 event,
             const tarn_post_info *info) {
    u8 mac[ETH_ALEN];
    frame.copy(offset, mac, sizeof(mac));
    tarnfwd_nl_send_l2_fdb_add(mac, ifindex, event, static_cast<u16>(info->rx_vid), STATE,
                               info->flood_except[0], info->flood_except[1]);
}

sk_buff *tarn_l2_mac_post(sk_buff *skb, tarn_post_info *info) {
    frame_bytes frame(skb);
    if (info->flags & TARN_RX_DESTINATION)
        _report(frame, ETH_DST_OFFSET, 0, TARNFWD_FDB_DESTINATION, info);
    if (info->flags & (TARN_RX_NEW_SOURCE | TARN_RX_MOVED_SOURCE))
        _report(frame, ETH_SRC_OFFSET, info->l2_ifindex,
                info->flags & TARN_RX_MOVED_SOURCE ? TARNFWD_FDB_MOVED_SOURCE
                                                   : TARNFWD_FDB_NEW_SOURCE,
                info);
    return skb;
}

} // namespace

i32 tarn_l2_mac_init() {
    packet_redirect record{.name = "l2mac",
                           .match = tarn_l2_mac_redirect_instruct_get,
                           .post = tarn_l2_mac_post,
                           .concerns = FRAME_TRAP_FLAGS};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
