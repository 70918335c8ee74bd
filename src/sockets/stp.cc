// "stp", family 48: spanning tree BPDUs (IEEE 802.1D), without their padding.
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 17;
constexpr u32 POSTED = 2;
constexpr u8 _stp_addr[ETH_ALEN] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x00};

sk_buff *_trim(sk_buff *skb, const tarn_post_info *) {
    skb_trim(skb, u32{frame_bytes(skb).be16(ETH_TYPE_OFFSET)} + ETH_HLEN);
    return skb;
}

// BPDUs belong to no VLAN. The rest of the old header stays, on purpose.
void _clear(u8 *address, const sk_buff *, const tarn_post_info *) {
    memset(address + offsetof(vlan_skaddr, vid), 0, sizeof(vlan_skaddr::vid));
    memset(address + offsetof(vlan_skaddr, reserved3), 0, sizeof(vlan_skaddr::reserved3));
    memset(address + offsetof(vlan_skaddr, reserved5), 0, sizeof(vlan_skaddr::reserved5));
}

// The port stands where a vlan_skaddr has it, though a name of the other length is let in, on
// purpose: such a name names no port.
constexpr socket_family _stp{
    .number = TARN_AF_STP,
    .name = "STP",
    .lock_name = "stp_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_VLAN,
                .port = SOCKET_L2_IFINDEX,
                .prepare = _trim,
                .address = _clear},
    .send = {.function = "_stp_sock_sendmsg",
             .min_name = sizeof(l2_skaddr),
             .null_message = L2_SKADDR_IS_NULL,
             .short_message = SKADDR_IS_SHORT,
             .header = SOCKET_HEADER_LENGTH,
             .headroom = 142,
             .room = 158},
};

i32 tarn_stp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (frame_is_to(info, _stp_addr))
        redirect_decide(instruct, REDIRECT_TO_DAEMON, POSTED);
    return 0;
}

} // namespace

i32 tarn_af_stp_sock_init() {
    packet_redirect record{.name = "stp",
                           .match = tarn_stp_redirect_instruct_get,
                           .post = family_sockets<_stp>::post,
                           .stack_repl_type = STACK_REPL_STP,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_STP};
    return family_sockets<_stp>::start(&record, SLOT);
}
