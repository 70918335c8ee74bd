// "cfm", family 66: connectivity fault management (IEEE 802.1ag, ITU-T Y.1731).
#include "kernel/log.h"
#include "pkt/pkt_tx.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 24;
constexpr u16 ETH_P_CFM = 0x8902;
constexpr u8 OPCODE_FIRST = 1, OPCODE_LAST = 5, OPCODE_RING = 0x28;
constexpr u32 OPCODE_OFFSET = ETH_HLEN + 1;

constexpr u8 cfm_tpid_bytes[] = {0x81, 0x00};
constexpr u8 cfm_eth_type_bytes[] = {0x89, 0x02};
constexpr u16 VID_MASK = 0x0FFF;
constexpr u16 TAGGED = 0x1000; // in the vid of a received frame's address
constexpr u32 PRIORITY_SHIFT = 13;

enum _reason : u32 {
    FILTERED = 1,
    NOT_FOR_US = 2,
    UNTAGGED = 3,
    POSTED = 4,
};

u8 _opcode(const frame_bytes &frame, u32 start) {
    bool tagged = frame.be16(start + ETH_TYPE_OFFSET) == ETH_P_8021Q;
    return frame.byte(start + OPCODE_OFFSET + (tagged ? VLAN_HLEN : 0));
}

// The ring's frames are of an aggregator as a whole; others that came untagged, of their own port.
void _address(u8 *address, const sk_buff *skb, const tarn_post_info *info) {
    bool tagged = info->tag & TARN_TAG_PRESENT;
    if (!tagged && _opcode(frame_bytes(skb), SOCKET_PUSH_VLAN) != OPCODE_RING && info->rx_port)
        memcpy(address + offsetof(vlan_skaddr, ifindex), &info->rx_port->ifindex, sizeof(u32));
    u16 tag = static_cast<u16>(info->tag);
    tag = static_cast<u16>(tagged ? tag | TAGGED : tag & ~TAGGED);
    memcpy(address + offsetof(vlan_skaddr, vid), &tag, sizeof(tag));
    memset(address + offsetof(vlan_skaddr, except_ifindex), 0, 6); // and reserved3
    memset(address + offsetof(vlan_skaddr, reserved5), 0, sizeof(vlan_skaddr::reserved5));
}

// A VID in the address makes the word a whole tag.
bool _sends_tagged(const socket_send *send) {
    return send->address.vid & VID_MASK;
}

void _write_header(sk_buff *skb, const socket_send *send, u16 length) {
    if (!_sends_tagged(send)) {
        add_eth_header(skb, ETH_P_CFM, send->address.dest_mac, send->address.src_mac, length);
        return;
    }
    auto *header = static_cast<u8 *>(skb_push(skb, ETH_HLEN + VLAN_HLEN));
    u16 tag = cpu_to_be16(send->address.vid);
    memcpy(header + ETH_DST_OFFSET, send->address.dest_mac, ETH_ALEN);
    memcpy(header + ETH_SRC_OFFSET, send->address.src_mac, ETH_ALEN);
    memcpy(header + ETH_TYPE_OFFSET, cfm_tpid_bytes, sizeof(cfm_tpid_bytes));
    memcpy(header + VLAN_TCI_OFFSET, &tag, sizeof(tag));
    memcpy(header + VLAN_TYPE_OFFSET, cfm_eth_type_bytes, sizeof(cfm_eth_type_bytes));
}

i32 _transmit(const socket_send *send, sk_buff *skb);

constexpr socket_family _cfm{
    .number = TARN_AF_CFM,
    .name = "CFM",
    .lock_name = "cfm_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_VLAN, .port = SOCKET_L2_IFINDEX, .address = _address},
    .send = {.function = "tarn_sock_get_L2_xmit_port",
             .min_name = sizeof(vlan_skaddr),
             .null_message = KERN_INFO "vlan_skaddr is null",
             .short_message = KERN_INFO "%s namelen %d",
             .length_first = true,
             .up = SOCKET_UP,
             .write_header = _write_header,
             .transmit = _transmit},
};

i32 _transmit(const socket_send *send, sk_buff *skb) {
    u32 cos = _sends_tagged(send) ? u32{send->address.vid} >> PRIORITY_SHIFT : _cfm.send.cos;
    return socket_transmit(send, skb, cos);
}

bool _is_cfm(const frame_bytes &frame, u8 opcode) {
    return frame.inner_type() == ETH_P_CFM &&
           ((opcode >= OPCODE_FIRST && opcode <= OPCODE_LAST) || opcode == OPCODE_RING);
}

i32 tarn_cfm_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    frame_bytes frame(info->skb);
    u8 opcode = _opcode(frame, 0);
    if (!_is_cfm(frame, opcode))
        return 0;
    bool ring = opcode == OPCODE_RING;
    if (ring && redirect_filtered(info))
        redirect_decide(instruct, REDIRECT_STOP, FILTERED);
    else if (!info->replicated && !(info->flags & TARN_RX_FILTER_MATCH))
        redirect_decide(instruct, REDIRECT_STOP, NOT_FOR_US);
    else if (ring && !(info->tag & TARN_TAG_PRESENT))
        redirect_decide(instruct, REDIRECT_STOP, UNTAGGED);
    else
        redirect_decide(instruct, REDIRECT_TO_DAEMON, POSTED);
    return 0;
}

} // namespace

i32 tarn_af_cfm_sock_init() {
    packet_redirect record{.name = "cfm",
                           .match = tarn_cfm_redirect_instruct_get,
                           .post = family_sockets<_cfm>::post,
                           .stack_repl_type = STACK_REPL_CFM,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_OF_PROTOCOL};
    return family_sockets<_cfm>::start(&record, SLOT);
}
