// "grasp": autonomic signalling (RFC 8990) goes to the IP stack.
#include "kernel/bytes.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 26;
constexpr u32 TO_KERNEL = 1;
// ff02::13, all GRASP neighbours.
constexpr u8 GROUP[16] = {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x13};

i32 tarn_grasp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype != ETH_P_IPV6 || memcmp(info->dst_ip, GROUP, sizeof(GROUP)) != 0)
        return 0;
    instruct->flags |= REDIRECT_STOP | REDIRECT_POST_KERNEL;
    instruct->reason = TO_KERNEL;
    return 0;
}

} // namespace

i32 tarn_grasp_init() {
    packet_redirect record{.name = "grasp",
                           .match = tarn_grasp_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4,
                           .concerns = FRAME_IPV6};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
