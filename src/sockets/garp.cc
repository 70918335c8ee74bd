// "garp", family 50: GARP VLAN registration (IEEE 802.1D, clause 12).
#include "pkt/pkt_flood.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 34;
constexpr u32 POSTED = 2;
constexpr u8 gvrp_addr[ETH_ALEN] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x21};

// A destination that begins so is an order to flood: to all ports of the VLAN but the named one.
constexpr u8 FLOOD_ORDER = 0x81;
constexpr u8 FLOOD_FIRST_BYTE = 0x01;

i32 _transmit(const socket_send *send, sk_buff *skb);

constexpr socket_family _garp{
    .number = TARN_AF_GARP,
    .name = "GARP",
    .lock_name = "garp_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_VLAN, .port = SOCKET_L2_IFINDEX},
    .send = {.function = "_garp_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = L2_SKADDR_IS_NULL,
             .short_message = SKADDR_IS_SHORT,
             .header = SOCKET_HEADER_LENGTH,
             .headroom = 80,
             .room = 80,
             .transmit = _transmit},
};

i32 _transmit(const socket_send *send, sk_buff *skb) {
    const socket_send_rules *rules = &_garp.send;
    u8 *destination = skb_data(skb) + ETH_DST_OFFSET;
    if (*destination != FLOOD_ORDER)
        return socket_transmit(send, skb, rules->cos);
    *destination = FLOOD_FIRST_BYTE;
    return socket_sent(skb, tarn_flood_except_port(send->named, send->address.vid, nullptr, skb,
                                                   rules->cos, rules->queue, 1));
}

i32 tarn_garp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (frame_is_to(info, gvrp_addr))
        redirect_decide(instruct, REDIRECT_TO_DAEMON, POSTED);
    return 0;
}

} // namespace

i32 tarn_af_garp_sock_init() {
    packet_redirect record{.name = "garp",
                           .match = tarn_garp_redirect_instruct_get,
                           .post = family_sockets<_garp>::post,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_BRIDGES};
    return family_sockets<_garp>::start(&record, SLOT);
}
