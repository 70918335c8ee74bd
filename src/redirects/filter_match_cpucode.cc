// "filterMatchCpuCode": frames that a filter of the chip sends to the CPU by code go to the IP
// stack, marked.
#include "kernel/skb.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 31;
constexpr u32 TO_KERNEL = 1;
constexpr u32 FILTER_CODE = 10;
constexpr u32 MARK = 0x20000000;

bool _matches(u32 flags, u32 code) {
    return (flags & TARN_RX_FILTER_MATCH) && code == FILTER_CODE;
}

i32 tarn_filter_match_instruction_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!_matches(info->flags, info->code))
        return 0;
    instruct->flags |= REDIRECT_STOP | REDIRECT_POST_KERNEL;
    instruct->reason = TO_KERNEL;
    return 0;
}

void tarn_filter_match_cpucode_modify_packet_rx(tarn_rx_modify *, const tarn_rx_meta *meta,
                                                tarn_if *, sk_buff *skb) {
    if (_matches(meta->flags, meta->code))
        skb_set_mark(skb, skb_mark(skb) | MARK);
}

} // namespace

i32 tarn_filter_match_cpucode_init() {
    packet_redirect record{.name = "filterMatchCpuCode",
                           .match = tarn_filter_match_instruction_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .modify_rx = tarn_filter_match_cpucode_modify_packet_rx,
                           .concerns = FRAME_TRAP_FLAGS,
                           .modify_concerns = FRAME_TRAP_FLAGS};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
