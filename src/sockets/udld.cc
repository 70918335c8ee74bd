// "udld", family 61: unidirectional link detection. Each port says what becomes of its frames;
// others to the same address are sent on, some a second.
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/errno.h"
#include "sockets/resend_limit.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 20;
constexpr u8 udld_addr[ETH_ALEN] = {0x01, 0x00, 0x0C, 0xCC, 0xCC, 0xCC};
constexpr u8 _snap[] = {0xAA, 0xAA, 0x03, 0x00, 0x00, 0x0C, 0x01, 0x11};
constexpr u32 RESENT_IN_WINDOW = 100;

enum _reason : u32 {
    NO_PORT = 1,
    NOT_ALLOWED = 2,
    HANDLED = 3,
};

constinit u8 _enabled = 0;
constinit resend_limit _limit{};

constexpr socket_family _udld{
    .number = TARN_AF_UDLD,
    .name = "UDLD",
    .lock_name = "udld_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_VLAN, .port = SOCKET_RX_PORT},
    .send = {.function = "_udld_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = "%s vlan_skaddr is null",
             .short_message = SKADDR_IS_SHORT,
             .up = SOCKET_UP,
             .straight = true},
};

bool _may_go_on(const tarn_pkt_info *info) {
    return info->vlan_if && info->l2_port &&
           tarn_ifmgr_stp_state(info->l2_port, info->vlan_if) == TARN_STP_FORWARDING &&
           resend_passes(&_limit, RESENT_IN_WINDOW);
}

void _decide(const tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!read_once(_enabled))
        return redirect_decide(instruct, REDIRECT_STOP, HANDLED);
    if (frame_bytes(info->skb).equals(ETH_HLEN, _snap, sizeof(_snap)))
        return redirect_decide(instruct, REDIRECT_STOP | read_once(info->rx_port->udld_hw_filter),
                               HANDLED);
    if (info->vlan_port_disabled || redirect_filtered(info))
        return redirect_decide(instruct, REDIRECT_STOP, NOT_ALLOWED);
    u32 resend = _may_go_on(info) ? u32{REDIRECT_RESEND_L2} : 0;
    redirect_decide(instruct, REDIRECT_STOP | resend, HANDLED);
}

// A frame without a port goes on along the chain, and its reason counts nothing.
i32 tarn_udld_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!frame_is_to(info, udld_addr))
        return 0;
    if (info->rx_port)
        _decide(info, instruct);
    else
        instruct->reason = NO_PORT;
    return 0;
}

} // namespace

void tarn_udld_enable(u8 on) {
    write_once(_enabled, on);
}

i32 tarn_udld_set_hw_filter(u32 ifindex, u8 value) {
    tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
    if (!port)
        return -EINVAL;
    write_once(port->udld_hw_filter, value);
    tarn_ifmgr_if_ref_put(port);
    return 0;
}

i32 tarn_af_udld_sock_init() {
    packet_redirect record{.name = "udld",
                           .match = tarn_udld_redirect_instruct_get,
                           .post = family_sockets<_udld>::post,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_PROTOCOL};
    return family_sockets<_udld>::start(&record, SLOT);
}
