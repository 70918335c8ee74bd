// "ipv6_precheck" and "ipv6": what becomes of IPv6, in two slots. Multicast listener snooping
// stands between them: it sees what has passed the precheck, and has its say before the last
// decision.
#include "ifmgr/tarn_if.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/gate.h"
#include "redirects/nd_limit.h"
#include "redirects/redirects.h"
#include "redirects/throttle.h"

namespace {

constexpr u32 PRECHECK_SLOT = 42;
constexpr u32 SLOT = 44;
constexpr u8 ICMPV6 = 58;

enum _precheck_reason : u32 {
    PRECHECK_GATE = 1,
    PRECHECK_NO_L3_INTERFACE = 2,
    PRECHECK_FOR_MASTER_THROTTLED = 3,
    PRECHECK_FOR_MASTER = 4,
    PRECHECK_NOT_PARSED = 5,
};

enum _reason : u32 {
    GATE = 1,
    ND_LIMIT = 2,
    FOR_MASTER_THROTTLED = 3,
    FOR_MASTER = 4,
    NOT_PARSED = 5,
    TO_KERNEL = 6,
};

void _stop(redirect_instruct *instruct, u32 reason) {
    instruct->flags |= REDIRECT_STOP;
    instruct->reason = reason;
}

i32 tarn_ipv6_precheck_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype != ETH_P_IPV6)
        return 0;
    if (!gate_passes(info))
        _stop(instruct, PRECHECK_GATE);
    else if (!info->l3_if)
        _stop(instruct, PRECHECK_NO_L3_INTERFACE);
    else if (info->slave_only)
        throttle_for_master(info, instruct, PRECHECK_FOR_MASTER_THROTTLED, PRECHECK_FOR_MASTER);
    else if (!info->ipv6_parsed)
        _stop(instruct, PRECHECK_NOT_PARSED);
    return 0;
}

// Of neighbour discovery, RFC 4861: solicitations and advertisements of routers and neighbours.
bool _is_neighbour_discovery(const tarn_pkt_info *info) {
    return info->ipv6_next_header == ICMPV6 && info->icmpv6_type >= 133 && info->icmpv6_type <= 136;
}

// There is an interface: the precheck has stopped all others.
i32 tarn_ipv6_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype != ETH_P_IPV6)
        return 0;
    if (!gate_passes(info)) {
        _stop(instruct, GATE);
    } else if (_is_neighbour_discovery(info) && !nd_limit_ok(info)) {
        _stop(instruct, ND_LIMIT);
    } else if (info->slave_only) {
        throttle_for_master(info, instruct, FOR_MASTER_THROTTLED, FOR_MASTER);
    } else if (!info->ipv6_parsed) {
        _stop(instruct, NOT_PARSED);
    } else {
        _stop(instruct, TO_KERNEL);
        instruct->flags |= REDIRECT_POST_KERNEL;
        // All of ICMPv6 is for the other members too.
        if (info->ipv6_next_header == ICMPV6)
            instruct->flags |= REDIRECT_STACK_REPLICATE;
    }
    return 0;
}

// As for IPv4, but there is no classifier by IPv6 subnet. The kind of interface is not looked at,
// on purpose.
void tarn_ipv6_modify_packet_rx(tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp,
                                sk_buff *skb) {
    if (!(meta->flags & TARN_RX_SUBNET_VLAN))
        return;
    if (frame_bytes(skb).be16(ETH_TYPE_OFFSET) == ETH_P_IPV6)
        modify->rx_vid = modify->vid = read_once(ifp->default_pvid);
}

} // namespace

i32 tarn_ipv6_init() {
    packet_redirect precheck{.name = "ipv6_precheck",
                             .match = tarn_ipv6_precheck_redirect_instruct_get,
                             .post = tarn_pkt_packet_post_dummy,
                             .modify_rx = tarn_ipv6_modify_packet_rx,
                             .skip_protocols = SKIP_ARP | SKIP_IPV4,
                             .concerns = FRAME_IPV6,
                             .modify_concerns = FRAME_TRAP_FLAGS};
    i32 result = tarn_pkt_register_packet_redirection(&precheck, PRECHECK_SLOT);
    if (result != 0)
        return result;
    packet_redirect record{.name = "ipv6",
                           .match = tarn_ipv6_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .skip_protocols = SKIP_ARP | SKIP_IPV4,
                           .concerns = FRAME_IPV6};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
