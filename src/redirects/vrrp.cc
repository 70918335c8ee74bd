// "vrrp": VRRP is copied to the other members of the stack; where it goes from here, IP decides.
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "pkt/pkt_tx.h"
#include "redirects/gate.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 38;
constexpr u32 GATE = 1;
constexpr u8 IPPROTO_VRRP = 112;

// The IPv4 protocol is 0 for every frame that is not IPv4, so its type need not be looked at.
bool _is_vrrp(const tarn_pkt_info *info) {
    return info->ip_proto == IPPROTO_VRRP ||
           (info->ethertype == ETH_P_IPV6 && info->ipv6_next_header == IPPROTO_VRRP);
}

i32 tarn_vrrp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (_is_vrrp(info) && tarn_pkt_trap_to_master_cpu_only())
        replicate_through_gate(info, instruct, GATE);
    return 0;
}

} // namespace

i32 tarn_vrrp_init() {
    packet_redirect record{.name = "vrrp",
                           .match = tarn_vrrp_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .skip_protocols = SKIP_ARP,
                           .concerns = FRAME_IP_ROUTING};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
