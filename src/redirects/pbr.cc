// "pbrMark": marks frames for policy routing before they are classified. Decides nothing itself.
#include "kernel/skb.h"
#include "pkt/pkt_redirect.h"
#include "redirects/ingress.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 11;
constexpr u32 MARK_SHIFT = 8;
constexpr u32 MARK_FIELD = 0x00FFFF00;

i32 pbr_redirect_instruct_get(tarn_pkt_info *, redirect_instruct *) {
    return 0;
}

// The chip's own mark, cut to what it shares its 16 bits with: the low byte of `extra`.
u32 _policy_mark(u32 extra) {
    return (extra << MARK_SHIFT) & 0xFFFF;
}

void pbr_modify_packet_rx(tarn_rx_modify *, const tarn_rx_meta *meta, tarn_if *ifp, sk_buff *skb) {
    if (meta->flags & TARN_RX_POLICY_ROUTE) {
        skb_set_mark(skb, (skb_mark(skb) & ~MARK_FIELD) | _policy_mark(meta->extra));
        return;
    }
    skb_set_mark(skb, skb_mark(skb) | ingress_ifindex(ifp) << MARK_SHIFT);
}

} // namespace

i32 pbr_init() {
    packet_redirect record{.name = "pbrMark",
                           .match = pbr_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .modify_rx = pbr_modify_packet_rx,
                           .concerns = 0};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
