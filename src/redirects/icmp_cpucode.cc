// "icmpCpucode": tells the IP stack which frames the chip's rule on ICMP has trapped. Decides
// nothing itself.
#include "kernel/skb.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 4;
constexpr u32 ICMP_CODE = 2;

i32 tarn_icmp_cpucode_dummy_match(tarn_pkt_info *, redirect_instruct *) {
    return 0;
}

void icmp_cpucode_modify_packet(tarn_rx_modify *, const tarn_rx_meta *meta, tarn_if *,
                                sk_buff *skb) {
    if (meta->code == ICMP_CODE)
        skb_set_icmp_trapped(skb);
}

} // namespace

i32 tarn_icmp_cpucode_init() {
    packet_redirect record{.name = "icmpCpucode",
                           .match = tarn_icmp_cpucode_dummy_match,
                           .post = tarn_pkt_packet_post_dummy,
                           .modify_rx = icmp_cpucode_modify_packet,
                           .skip_protocols = SKIP_ARP,
                           .concerns = 0,
                           .modify_concerns = FRAME_TRAP_CODE};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
