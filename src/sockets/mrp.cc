// "mrp", family 69: media redundancy in rings (IEC 62439-2).
#include "kernel/log.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 22;
constexpr u32 POSTED = 1;
constexpr u8 _mrp_addr[ETH_ALEN - 1] = {0x01, 0x15, 0x4E, 0x00, 0x00};

constexpr socket_family _mrp{
    .number = TARN_AF_MRP,
    .name = "MRP",
    .lock_name = "mrp_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_VLAN, .port = SOCKET_L2_IFINDEX},
    .send = {.function = "_mrp_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = VLAN_SKADDR_IS_NULL,
             .short_message = KERN_WARNING "%s namelen %d",
             .up = SOCKET_UP,
             .by_flag = true},
};

i32 tarn_mrp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (frame_is_to(info, _mrp_addr, sizeof(_mrp_addr)))
        redirect_decide(instruct, REDIRECT_TO_DAEMON, POSTED);
    return 0;
}

} // namespace

i32 tarn_mrp_sock_init() {
    packet_redirect record{.name = "mrp",
                           .match = tarn_mrp_redirect_instruct_get,
                           .post = family_sockets<_mrp>::post,
                           .stack_repl_type = STACK_REPL_MRP,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_PROTOCOL};
    family_sockets<_mrp>::open(); // before its redirect, and without it too
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
