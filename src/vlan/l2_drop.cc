// "l2drop": refuses frames whose source address cannot be real.
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "vlan/vlan.h"

namespace {

constexpr u32 SLOT = 7;

enum _reason : u32 {
    SOURCE_ALL_ONES = 1,
    SOURCE_IS_GROUP = 2,
    SOURCE_ZERO = 3,
};

u32 _reason_to_drop(const u8 *source) {
    u8 all = 0xFF, any = 0;
    for (u32 i = 0; i < ETH_ALEN; i++) {
        all &= source[i];
        any |= source[i];
    }
    if (all == 0xFF)
        return SOURCE_ALL_ONES;
    if (source[0] & 1)
        return SOURCE_IS_GROUP;
    return any == 0 ? u32{SOURCE_ZERO} : 0;
}

i32 tarn_l2_drop_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    u8 source[ETH_ALEN];
    frame_bytes(info->skb).copy(ETH_SRC_OFFSET, source, sizeof(source));
    u32 reason = _reason_to_drop(source);
    if (reason == 0)
        return 0;
    instruct->flags |= REDIRECT_STOP;
    instruct->reason = reason;
    return 0;
}

} // namespace

i32 tarn_l2_drop_init() {
    packet_redirect record{.name = "l2drop",
                           .match = tarn_l2_drop_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .concerns = FRAME_UNREAL_SOURCE};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
