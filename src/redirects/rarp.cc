// "rarp": what becomes of RARP (RFC 903).
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/gate.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 46;

enum _reason : u32 {
    GATE = 1,
    FOR_MASTER = 2,
    TO_KERNEL = 3,
    NO_L3_INTERFACE = 4,
};

i32 tarn_rarp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype != ETH_P_RARP)
        return 0;
    instruct->flags |= REDIRECT_STOP;
    if (!gate_passes(info)) {
        instruct->reason = GATE;
        return 0;
    }
    if (info->slave_only) {
        instruct->flags |= REDIRECT_STACK_REPLICATE;
        instruct->reason = FOR_MASTER;
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

} // namespace

i32 tarn_rarp_init() {
    packet_redirect record{.name = "rarp",
                           .match = tarn_rarp_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_OF_PROTOCOL};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
