// "ipv4": what becomes of IPv4 that nobody before has claimed: up to the IP stack, over to the
// master of the stack, or dropped.
#include "ifmgr/tarn_if.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/gate.h"
#include "redirects/redirect_calls.h"
#include "redirects/redirects.h"
#include "redirects/throttle.h"

namespace {

constexpr u32 SLOT = 41;

enum _reason : u32 {
    GATE = 1,
    FOR_MASTER_THROTTLED = 2,
    FOR_MASTER = 3,
    TO_KERNEL = 4,
    NO_L3_INTERFACE = 5,
};

i32 tarn_ipv4_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype != ETH_P_IP)
        return 0;
    instruct->flags |= REDIRECT_STOP;
    if (!gate_passes(info)) {
        instruct->reason = GATE;
        return 0;
    }
    if (info->slave_only) {
        throttle_for_master(info, instruct, FOR_MASTER_THROTTLED, FOR_MASTER);
        return 0;
    }
    if (!info->l3_if) {
        instruct->reason = NO_L3_INTERFACE;
        return 0;
    }
    instruct->flags |= REDIRECT_POST_KERNEL;
    instruct->reason = TO_KERNEL;
    return 0;
}

constexpr u32 SOURCE_OFFSET = 12; // in the IPv4 header

// The chip classifies by subnet itself, but hands such a frame to the CPU in the wrong VLAN. The
// hooks come after the frame's tag has been taken off, so that only a second tag is a tag here: a
// frame that came with one goes where an untagged one goes.
void tarn_ipv4_modify_packet_rx(tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp,
                                sk_buff *skb) {
    if (!(meta->flags & TARN_RX_SUBNET_VLAN))
        return;
    frame_bytes frame(skb);
    if (frame.be16(ETH_TYPE_OFFSET) != ETH_P_IP)
        return;
    u32 source;
    frame.copy(ETH_HLEN + SOURCE_OFFSET, &source, sizeof(source));
    u16 vid = read_once(ifp->default_pvid);
    tarn_subnet_vlan_wa_match(source, &vid, ifp);
    modify->rx_vid = modify->vid = vid;
}

} // namespace

i32 tarn_ipv4_init() {
    packet_redirect record{.name = "ipv4",
                           .match = tarn_ipv4_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .modify_rx = tarn_ipv4_modify_packet_rx,
                           .skip_protocols = SKIP_ARP | SKIP_IPV6,
                           .concerns = FRAME_IPV4,
                           .modify_concerns = FRAME_TRAP_FLAGS};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
