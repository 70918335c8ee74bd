// "ldf", family 57: loop detection. Frames of other switches go on, a few a second; our own have
// come back, which the daemon wants to know.
#include "ifmgr/tarn_ifmgr.h"
#include "pkt/pkt_debug.h"
#include "sockets/resend_limit.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 29;
constexpr u8 ldf_addr[ETH_ALEN] = {0x00, 0x00, 0xF4, 0x27, 0x71, 0x01};
constexpr u32 RESENT_IN_WINDOW = 10;

enum _reason : u32 {
    NOT_ALLOWED = 1,
    HANDLED = 2,
};

constinit resend_limit _limit{};

sk_buff *_note(sk_buff *skb, const tarn_post_info *info) {
    if (read_once(tarn_packet_post_debug_enable)) {
        write_once(tarn_ppdi_last.vid, info->vid & 0xFFFF);
        write_once(tarn_ppdi_last.vid_valid, 1);
    }
    return skb;
}

constexpr socket_family _ldf{
    .number = TARN_AF_LDF,
    .name = "LDF",
    .lock_name = "ldf_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_VLAN, .port = SOCKET_L2_IFINDEX, .prepare = _note},
    .send = {.function = "_ldf_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = VLAN_SKADDR_IS_NULL,
             .short_message = SKADDR_IS_SHORT,
             .length_first = true,
             .vlan_by_vid = true},
};

bool _is_forwarding(const tarn_pkt_info *info) {
    return info->l2_port &&
           tarn_ifmgr_stp_state(info->l2_port, info->vlan_if) == TARN_STP_FORWARDING;
}

u32 _flags_in_vlan(const tarn_pkt_info *info) {
    const tarn_if_address own(info->vlan_if->hwaddr);
    if (frame_bytes(info->skb).equals(ETH_SRC_OFFSET, own.bytes, ETH_ALEN))
        return REDIRECT_STOP | REDIRECT_POST_USERSPACE;
    if (_is_forwarding(info) && resend_passes(&_limit, RESENT_IN_WINDOW))
        return REDIRECT_STOP | REDIRECT_RESEND_L2;
    return REDIRECT_STOP;
}

i32 tarn_ldf_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!frame_is_to(info, ldf_addr))
        return 0;
    if (info->vlan_port_disabled || redirect_filtered(info))
        redirect_decide(instruct, REDIRECT_STOP, NOT_ALLOWED);
    else
        redirect_decide(instruct, info->vlan_if ? _flags_in_vlan(info) : u32{REDIRECT_STOP},
                        HANDLED);
    return 0;
}

} // namespace

i32 tarn_af_ldf_sock_init() {
    packet_redirect record{.name = "ldf",
                           .match = tarn_ldf_redirect_instruct_get,
                           .post = family_sockets<_ldf>::post,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_PROTOCOL};
    return family_sockets<_ldf>::start(&record, SLOT);
}
