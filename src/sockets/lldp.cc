// "lldp", family 53: link layer discovery (IEEE 802.1AB), with or without SNAP.
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 19;
constexpr u16 ETH_P_LLDP = 0x88CC;
constexpr u8 _lldp_addr[ETH_ALEN - 1] = {0x01, 0x80, 0xC2, 0x00, 0x00};
constexpr u8 NEAREST_BRIDGE = 0x0E;
constexpr u8 NEAREST_NON_TPMR = 0x03;
constexpr u8 NEAREST_CUSTOMER = 0x00;
constexpr u16 LENGTH_MAX = 1500; // above, the word is a type
constexpr u8 _snap[] = {0xAA, 0xAA, 0x03, 0x00, 0x00, 0x00, 0x88, 0xCC};

enum _reason : u32 {
    NO_PORT = 2,
    POSTED = 3,
};

constexpr socket_family _lldp{
    .number = TARN_AF_LLDP,
    .name = "LLDP",
    .lock_name = "lldp_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_HEADER, .port = SOCKET_RX_PORT},
    .send = {.function = "_lldp_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = VLAN_SKADDR_IS_NULL,
             .short_message = SKADDR_IS_SHORT,
             .types = SOCKET_TO_ETHERNET | SOCKET_TO_PORT,
             .header = ETH_P_LLDP,
             .headroom = 80,
             .room = 80},
};

// SNAP is accepted from the nearest bridge alone.
bool _is_lldp(const frame_bytes &frame) {
    u8 last = frame.byte(ETH_DST_OFFSET + ETH_ALEN - 1);
    if (!frame.equals(ETH_DST_OFFSET, _lldp_addr, sizeof(_lldp_addr)) ||
        (last != NEAREST_BRIDGE && last != NEAREST_NON_TPMR && last != NEAREST_CUSTOMER))
        return false;
    u16 type = frame.be16(ETH_TYPE_OFFSET);
    if (type == ETH_P_LLDP)
        return true;
    return last == NEAREST_BRIDGE && type <= LENGTH_MAX &&
           frame.equals(ETH_HLEN, _snap, sizeof(_snap));
}

i32 tarn_lldp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!_is_lldp(frame_bytes(info->skb)))
        return 0;
    if (info->rx_port)
        redirect_decide(instruct, REDIRECT_TO_DAEMON, POSTED);
    else
        redirect_decide(instruct, REDIRECT_STOP, NO_PORT);
    return 0;
}

} // namespace

i32 tarn_af_lldp_sock_init() {
    packet_redirect record{.name = "lldp",
                           .match = tarn_lldp_redirect_instruct_get,
                           .post = family_sockets<_lldp>::post,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_BRIDGES | FRAME_TO_STP};
    return family_sockets<_lldp>::start(&record, SLOT);
}
