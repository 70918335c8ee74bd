// "ptp": precision time (IEEE 1588 over Ethernet) goes to the IP stack through the port itself,
// whose device carries the time stamps.
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 50;
constexpr u32 TO_PORT = 1;

i32 tarn_ptp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype != ETH_P_1588)
        return 0;
    instruct->flags |= REDIRECT_STOP | REDIRECT_POST_KERNEL_PORT;
    instruct->reason = TO_PORT;
    return 0;
}

} // namespace

i32 tarn_ptp_init() {
    packet_redirect record{.name = "ptp",
                           .match = tarn_ptp_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .concerns = FRAME_OF_PROTOCOL};
    i32 result = tarn_pkt_register_packet_redirection(&record, SLOT);
    enable_redirect(SLOT, 0); // whatever the result
    return result;
}
