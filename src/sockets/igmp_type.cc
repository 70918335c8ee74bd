// What an IPv4 multicast frame is to snooping: by its own words, and by the groups that count as
// traffic of routers.
#include "kernel/bytes.h"
#include "kernel/once.h"
#include "pkt/frame.h"
#include "pkt/pkt_info.h"
#include "redirects/redirect_calls.h"

namespace {

constexpr u8 IGMP = 2;
constexpr u8 VRRP = 112;

constexpr u32 GLOBAL_VRF = 0;

constexpr u32 ALL_HOSTS = 0xE0000001;  // 224.0.0.1
constexpr u32 CLUSTERS = 0xE25E0104;   // 226.94.1.4
constexpr u32 OF_ROUTERS = 0x0080513B; // 224.0.0.1, .2, .4, .5, .6, .9, .13, .15 and .24

// The router mode that VRFs begin with. The global VRF alone has a mode until the daemon's commands
// take effect (igmp.cc); without one no group is of routers.
bool _is_of_routers(const tarn_pkt_info *info) {
    if (!info->l3_if || read_once(info->l3_if->fib_id) != GLOBAL_VRF)
        return false;
    u32 wire;
    memcpy(&wire, info->dst_ip, sizeof(wire));
    u32 group = be32_to_cpu(wire);
    u32 distance = group - ALL_HOSTS;
    return group == CLUSTERS || (distance < 32 && (OF_ROUTERS >> distance & 1));
}

} // namespace

// A message of IGMP is one whatever its MAC address.
i32 tarn_igs_get_mc_type(const tarn_pkt_info *info) {
    if (info->ethertype != ETH_P_IP)
        return TARN_MC_NONE;
    if (info->ip_proto == IGMP)
        return TARN_MC_MESSAGE;
    if (!info->mac_ipv4_mc)
        return TARN_MC_NONE;
    if (!info->ipv4_mc_mac_matches)
        return TARN_MC_MISMATCH;
    if (info->vlan_port_disabled)
        return TARN_MC_NONE;
    if (_is_of_routers(info))
        return TARN_MC_ROUTER;
    return info->ip_proto == VRRP ? TARN_MC_NONE : TARN_MC_DATA;
}
