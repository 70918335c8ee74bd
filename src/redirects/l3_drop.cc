// "l3drop": no IP frame passes the CPU, either way, while this redirect is enabled.
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 30;

enum _reason : u32 {
    IPV4 = 1,
    IPV6 = 2,
};

i32 tarn_l3_drop_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype != ETH_P_IP && info->ethertype != ETH_P_IPV6)
        return 0;
    instruct->flags |= REDIRECT_STOP;
    instruct->reason = info->ethertype == ETH_P_IP ? IPV4 : IPV6;
    return 0;
}

sk_buff *tarn_l3_drop_tx(tarn_if *, sk_buff *skb) {
    u16 type = frame_bytes(skb).inner_type();
    if (type != ETH_P_IP && type != ETH_P_IPV6)
        return skb;
    kfree_skb(skb);
    return nullptr;
}

} // namespace

i32 tarn_l3_drop_init() {
    packet_redirect record{.name = "l3drop",
                           .match = tarn_l3_drop_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .modify_tx = tarn_l3_drop_tx,
                           .concerns = FRAME_IPV4 | FRAME_IPV6};
    i32 result = tarn_pkt_register_packet_redirection(&record, SLOT);
    if (result == 0)
        enable_redirect(SLOT, 0);
    return result;
}
