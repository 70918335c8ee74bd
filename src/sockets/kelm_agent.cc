// "kelm_agent", family 65: the agents of the management framework.
#include "kernel/log.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 10;
constexpr u8 kelm_agent_addr[ETH_ALEN] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x2F};

enum _reason : u32 {
    NOT_ALLOWED = 1,
    NO_PORT = 2,
    POSTED = 3,
};

constexpr socket_family _kelm_agent{
    .number = TARN_AF_KELM_AGENT,
    .name = "KELM_AGENT",
    .lock_name = "kelm_agent_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_HEADER, .port = SOCKET_L2_IFINDEX},
    .send = {.function = "_kelm_agent_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = VLAN_SKADDR_IS_NULL,
             .short_message = SKADDR_IS_SHORT,
             .header = 0xFBAF,
             .headroom = 80,
             .room = 80},
};

i32 tarn_kelm_agent_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!frame_is_to(info, kelm_agent_addr))
        return 0;
    if (info->src_mac_is_own || info->low_mem)
        redirect_decide(instruct, REDIRECT_STOP, NOT_ALLOWED);
    else if (info->rx_port)
        redirect_decide(instruct, REDIRECT_TO_DAEMON, POSTED);
    else
        redirect_decide(instruct, REDIRECT_STOP, NO_PORT);
    return 0;
}

} // namespace

i32 tarn_af_kelm_agent_sock_init() {
    packet_redirect record{.name = "kelm_agent",
                           .match = tarn_kelm_agent_redirect_instruct_get,
                           .post = family_sockets<_kelm_agent>::post,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6,
                           .concerns = FRAME_TO_BRIDGES};
    i32 result = family_sockets<_kelm_agent>::start(&record, SLOT);
    if (result != 0)
        _printk(KERN_CRIT "Failed to init");
    return result;
}
