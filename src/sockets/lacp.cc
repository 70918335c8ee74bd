// "lacp", family 46: link aggregation control (IEEE 802.1AX).
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 18;
constexpr u8 lacp_addr[ETH_ALEN] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x02};

enum _reason : u32 {
    NO_PORT = 2,
    POSTED = 3,
};

constexpr socket_family _lacp{
    .number = TARN_AF_LACP,
    .name = "LACP",
    .lock_name = "lacp_sock_list_lock",
    .address_size = sizeof(l2_skaddr),
    .receive = {.push = SOCKET_PUSH_L2, .port = SOCKET_RX_PORT},
    .send = {.function = "_lacp_sock_sendmsg",
             .min_name = sizeof(l2_skaddr),
             .null_message = L2_SKADDR_IS_NULL,
             .short_message = SKADDR_IS_SHORT,
             .header = 0x8809,
             .headroom = 80,
             .room = 80},
};

i32 tarn_lacp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!frame_is_to(info, lacp_addr))
        return 0;
    if (info->rx_port)
        redirect_decide(instruct, REDIRECT_TO_DAEMON, POSTED);
    else
        redirect_decide(instruct, REDIRECT_STOP, NO_PORT);
    return 0;
}

} // namespace

i32 tarn_af_lacp_sock_init() {
    packet_redirect record{.name = "lacp",
                           .match = tarn_lacp_redirect_instruct_get,
                           .post = family_sockets<_lacp>::post,
                           .stack_repl_type = STACK_REPL_LACP,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_LACP};
    return family_sockets<_lacp>::start(&record, SLOT);
}
