// "pim": PIM is copied to the other members of the stack; where it goes from here, IP decides.
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/gate.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 37;
constexpr u32 GATE = 1;
constexpr u8 IPPROTO_PIM = 103;

bool _is_pim(const tarn_pkt_info *info) {
    return (info->ethertype == ETH_P_IP && info->ip_proto == IPPROTO_PIM) ||
           (info->ethertype == ETH_P_IPV6 && info->ipv6_next_header == IPPROTO_PIM);
}

i32 tarn_pim_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (_is_pim(info))
        replicate_through_gate(info, instruct, GATE);
    return 0;
}

} // namespace

i32 tarn_pim_init() {
    packet_redirect record{.name = "pim",
                           .match = tarn_pim_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .skip_protocols = SKIP_ARP,
                           .concerns = FRAME_IP_ROUTING};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
