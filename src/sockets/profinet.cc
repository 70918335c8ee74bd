// "profinet", family 70: PROFINET real-time frames (IEC 61158). Its daemon sends on a port, or on a
// VLAN as a whole.
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/errno.h"
#include "pkt/pkt_tx.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 23;
constexpr u32 POSTED = 1;
constexpr u16 ETH_P_PROFINET = 0x8892;

i32 _route(socket_send *send) {
    u32 ifindex = send->address.ifindex;
    send->named = ifindex != 0 ? tarn_ifmgr_lookup_by_index(ifindex)
                               : tarn_ifmgr_lookup_by_vid(send->address.vid);
    if (!send->named)
        return -EINVAL;
    tarn_ifmgr_if_ref_get(send->port = send->named); // itself, whatever it is
    return read_once(send->named->flags) & SOCKET_UP ? 0 : -ENETDOWN;
}

i32 _transmit(const socket_send *send, sk_buff *skb) {
    const socket_send_rules *rules = &send->family->send;
    if (send->port->type != TARN_IF_TYPE_VLAN)
        return socket_transmit(send, skb, rules->cos);
    i32 result = _tarn_eth_drv_svi_tx(send->port, skb, rules->cos, rules->queue);
    return socket_sent(skb, static_cast<u32>(result));
}

constexpr socket_family _profinet{
    .number = TARN_AF_PROFINET,
    .name = "PROFINET",
    .lock_name = "profinet_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_VLAN, .port = SOCKET_L2_IFINDEX},
    .send = {.function = "_profinet_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = nullptr,
             .short_message = nullptr,
             .cos = 4,
             .queue = 4,
             .route = _route,
             .transmit = _transmit},
};

i32 tarn_profinet_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (frame_bytes(info->skb).inner_type() == ETH_P_PROFINET)
        redirect_decide(instruct, REDIRECT_TO_DAEMON, POSTED);
    return 0;
}

} // namespace

i32 tarn_af_profinet_sock_init() {
    packet_redirect record{.name = "profinet",
                           .match = tarn_profinet_redirect_instruct_get,
                           .post = family_sockets<_profinet>::post,
                           .stack_repl_type = STACK_REPL_PROFINET,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_OF_PROTOCOL};
    family_sockets<_profinet>::open(); // before its redirect, and without it too
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
