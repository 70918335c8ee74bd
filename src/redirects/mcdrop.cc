// "mcdrop": multicast that has no use at the CPU ends here, and unregistered multicast is held to
// its rate.
#include "ifmgr/tarn_if.h"
#include "pkt/frame.h"
#include "pkt/pkt_explain.h"
#include "pkt/pkt_redirect.h"
#include "redirects/flooding_group.h"
#include "redirects/redirect_calls.h"
#include "redirects/redirects.h"
#include "redirects/throttle.h"

namespace {

constexpr u32 SLOT = 35;

enum _reason : u32 {
    GO_ON = 0,
    NO_IP_FAMILY = 1,
    FLOODED_BY_CHIP = 2,
    IPV4_THROTTLED = 3,
    IPV6_THROTTLED = 4,
};

bool _is_flooded_by_chip(const tarn_pkt_info *info) {
    if (info->ethertype != ETH_P_IP || !info->vlan_if || !flooding_group_any())
        return false;
    u32 group;
    memcpy(&group, info->dst_ip, sizeof(group));
    return flooding_group_lookup(read_once(info->vlan_if->fib_id), info->rx_vid, group);
}

// With routing in software the snooping redirects ask the throttles themselves.
bool _ipv4_held_back(const tarn_pkt_info *info) {
    return !tarn_ipv4_mc_software_routing_enabled_get() &&
           tarn_igs_get_mc_type(info) == TARN_MC_DATA && tarn_throttle_ipv4_unreg_mc(info);
}

bool _ipv6_held_back(const tarn_pkt_info *info) {
    return !tarn_ipv6_mc_software_routing_enabled_get() &&
           tarn_mlds_get_mc_type(info) == TARN_MC_DATA && tarn_throttle_ipv6_unreg_mc(info, false);
}

u32 _reason_to_drop(const tarn_pkt_info *info) {
    if (!info->mac_multicast || info->vlan_port_disabled)
        return GO_ON;
    if (!info->mac_ipv4_mc && !info->mac_ipv6_mc)
        return NO_IP_FAMILY;
    if (_is_flooded_by_chip(info))
        return FLOODED_BY_CHIP;
    if (_ipv4_held_back(info))
        return IPV4_THROTTLED;
    return _ipv6_held_back(info) ? IPV6_THROTTLED : GO_ON;
}

i32 tarn_mcdrop_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    u32 reason = _reason_to_drop(info);
    if (reason == GO_ON)
        return 0;
    instruct->flags |= REDIRECT_STOP;
    instruct->reason = reason;
    return 0;
}

} // namespace

i32 tarn_mcdrop_init() {
    packet_redirect record{.name = "mcdrop",
                           .match = tarn_mcdrop_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .skip_protocols = SKIP_ARP,
                           .concerns = FRAME_TO_GROUP};
    i32 made = flooding_group_init();
    i32 result = tarn_pkt_register_packet_redirection(&record, SLOT);
    return result != 0 ? result : made;
}
