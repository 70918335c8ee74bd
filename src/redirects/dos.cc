// "dos": reports frames that look like an attack. Reports only: the frame goes on.
#include "events/tarnfwd_nl_event.h"
#include "pkt/fragment.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 28;
constexpr u32 REPORTED_BYTES = 20;

i32 tarn_dos_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    bool fragment = info->ethertype == ETH_P_IP && is_ipv4_fragment(info);
    if (fragment || (info->flags & TARN_RX_DOS))
        instruct->flags |= REDIRECT_POST_USERSPACE;
    return 0;
}

sk_buff *tarn_pkt_packet_post_dos(sk_buff *skb, tarn_post_info *info) {
    // A local frame has no port to report.
    if (!info->rx_port)
        return skb;
    frame_bytes frame(skb);
    u8 header[REPORTED_BYTES];
    frame.copy(ETH_HLEN, header, sizeof(header));
    tarnfwd_nl_send_dos_match(info->rx_port->ifindex, info->extra, frame.be16(ETH_TYPE_OFFSET),
                              header);
    return skb;
}

} // namespace

i32 tarn_dos_init() {
    packet_redirect record{.name = "dos",
                           .match = tarn_dos_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dos,
                           .concerns = FRAME_FRAGMENT | FRAME_TRAP_FLAGS};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
