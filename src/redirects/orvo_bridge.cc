// "orvo-bridge": a VLAN whose device is the port of a kernel bridge belongs to that bridge.
#include "ifmgr/tarn_if_device.h"
#include "kernel/netdev.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 0;
constexpr u32 BRIDGED = 1;

bool _is_bridged(const tarn_if *ifp) {
    return ifp && tarn_if_with_device(ifp, [](const net_device *device) {
               return device && (netdev_priv_flags(device) & IFF_BRIDGE_PORT);
           });
}

i32 tarn_orvo_bridge_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!_is_bridged(info->l3_if))
        return 0;
    instruct->flags |= REDIRECT_STOP | REDIRECT_POST_KERNEL;
    instruct->reason = BRIDGED;
    return 0;
}

// A bridge may hand down a frame that still has the tag of the port it came from.
sk_buff *tarn_orvo_bridge_modify_tx_packet(tarn_if *ifp, sk_buff *skb) {
    u16 tci;
    if (_is_bridged(ifp))
        frame_strip_tag(skb, &tci);
    return skb;
}

} // namespace

i32 tarn_orvo_bridge_init() {
    packet_redirect record{.name = "orvo-bridge",
                           .match = tarn_orvo_bridge_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .modify_tx = tarn_orvo_bridge_modify_tx_packet};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
