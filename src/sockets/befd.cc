// "befd", family 67: Ethernet fault detection.
#include "kernel/log.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 16;
constexpr u16 ETH_P_BEFD = 0xAAAA;
constexpr u8 befd_addr[ETH_ALEN] = {0x00, 0x0C, 0x25, 0x0A, 0x8C, 0x01};

enum _reason : u32 {
    TAGGED = 1,
    POSTED = 2,
    OTHER_TYPE = 3,
};

constexpr socket_family _befd{
    .number = TARN_AF_BEFD,
    .name = "BEFD",
    .lock_name = "befd_sock_list_lock",
    .address_size = sizeof(l2_skaddr),
    .receive = {.push = SOCKET_PUSH_L2, .port = SOCKET_RX_PORT},
    .send = {.function = "tarn_sock_get_L2_xmit_port",
             .min_name = sizeof(l2_skaddr),
             .null_message = KERN_INFO "l2_skaddr is null",
             .short_message = KERN_INFO "%s namelen %d",
             .length_first = true,
             .up = SOCKET_UP,
             .header = ETH_P_BEFD},
};

i32 tarn_befd_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!frame_is_to(info, befd_addr))
        return 0;
    if (info->tag & TARN_TAG_PRESENT)
        redirect_decide(instruct, REDIRECT_STOP, TAGGED);
    else if (frame_bytes(info->skb).be16(ETH_TYPE_OFFSET) == ETH_P_BEFD)
        redirect_decide(instruct, REDIRECT_STOP | REDIRECT_POST_USERSPACE, POSTED);
    else
        redirect_decide(instruct, REDIRECT_STOP, OTHER_TYPE);
    return 0;
}

} // namespace

i32 tarn_befd_sock_init() {
    packet_redirect record{.name = "befd",
                           .match = tarn_befd_redirect_instruct_get,
                           .post = family_sockets<_befd>::post,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_PROTOCOL};
    return family_sockets<_befd>::start(&record, SLOT);
}
