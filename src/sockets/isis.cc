// "isis", family 68: IS-IS (ISO/IEC 10589). Its frames go to the IP stack; the socket sends.
#include "pkt/pkt_tx.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 25;
constexpr u8 all_L1L2_is_systems[ETH_ALEN - 1] = {0x01, 0x80, 0xC2, 0x00, 0x00};
constexpr u8 all_is_es_systems[ETH_ALEN - 1] = {0x09, 0x00, 0x2B, 0x00, 0x00};
constexpr u8 llc_hdr[] = {0xFE, 0xFE, 0x03};

enum _reason : u32 {
    NO_PORT = 2,
    DELIVERED = 3,
};

// The length is that of the payload: the LLC header is left out of it, on purpose.
void _write_header(sk_buff *skb, const socket_send *send, u16 length) {
    add_eth_header(skb, SOCKET_HEADER_LENGTH, send->address.dest_mac, send->address.src_mac,
                   length);
    memcpy(skb_put(skb, sizeof(llc_hdr)), llc_hdr, sizeof(llc_hdr));
}

constexpr socket_family _isis{
    .number = TARN_AF_ISIS,
    .name = "ISIS",
    .lock_name = "isis_sock_list_lock",
    .address_size = sizeof(l2_skaddr),
    .receive = {.push = SOCKET_PUSH_L2, .port = SOCKET_RX_PORT},
    .send = {.function = "_isis_sock_sendmsg",
             .min_name = sizeof(l2_skaddr),
             .null_message = nullptr,
             .short_message = nullptr,
             .headroom = 80,
             .room = 80 + sizeof(llc_hdr),
             .write_header = _write_header},
};

bool _is_isis(const sk_buff *skb) {
    frame_bytes frame(skb);
    u8 last = frame.byte(ETH_DST_OFFSET + ETH_ALEN - 1);
    if (last == 0x14 || last == 0x15)
        return frame.equals(ETH_DST_OFFSET, all_L1L2_is_systems, sizeof(all_L1L2_is_systems));
    if (last == 0x04 || last == 0x05)
        return frame.equals(ETH_DST_OFFSET, all_is_es_systems, sizeof(all_is_es_systems));
    return false;
}

i32 tarn_isis_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!_is_isis(info->skb))
        return 0;
    if (info->rx_port)
        redirect_decide(instruct, REDIRECT_POST_KERNEL | REDIRECT_STACK_REPLICATE | REDIRECT_STOP,
                        DELIVERED);
    else
        redirect_decide(instruct, REDIRECT_STOP, NO_PORT);
    return 0;
}

// An untagged frame is handled on the default VLAN of its port.
void tarn_isis_modify_packet(tarn_rx_modify *modify, const tarn_rx_meta *, tarn_if *ifp,
                             sk_buff *skb) {
    if (modify->rx_vid != 0 || !_is_isis(skb))
        return;
    modify->rx_vid = modify->vid = read_once(ifp->default_pvid);
}

} // namespace

i32 tarn_af_isis_sock_init() {
    packet_redirect record{.name = "isis",
                           .match = tarn_isis_redirect_instruct_get,
                           .post = family_sockets<_isis>::post,
                           .modify_rx = tarn_isis_modify_packet,
                           .stack_repl_type = STACK_REPL_ISIS,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_BRIDGES | FRAME_TO_PROTOCOL};
    i32 result = family_sockets<_isis>::start(&record, SLOT);
    if (result == 0)
        enable_redirect(SLOT, 0);
    return result;
}
