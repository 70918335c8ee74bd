// What an IPv6 multicast frame is to snooping.
#include "kernel/bytes.h"
#include "pkt/frame.h"
#include "pkt/pkt_info.h"
#include "redirects/redirect_calls.h"

namespace {

constexpr u8 ICMPV6 = 58;
constexpr u8 VRRP = 112;
constexpr u16 DHCPV6_SERVER = 547;

// Queries, reports and done of MLD (RFC 2710), reports of its second version (RFC 3810).
bool _is_message(const tarn_pkt_info *info) {
    u8 type = info->icmpv6_type;
    return info->ipv6_next_header == ICMPV6 && ((type >= 130 && type <= 132) || type == 143);
}

bool _is_loopback(const u8 *address) {
    constexpr u8 loopback[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return memcmp(address, loopback, sizeof(loopback)) == 0;
}

bool _is_link_local(const u8 *address) {
    return address[0] == 0xFE && (address[1] & 0xC0) == 0x80;
}

// It must say that routers are to look at it, and come from a station of the link.
i32 _type_of_message(const tarn_pkt_info *info) {
    if (!info->rtr_alert)
        return TARN_MC_MISMATCH;
    if (_is_loopback(info->dst_ip))
        return TARN_MC_NONE;
    return _is_link_local(info->src_ip) ? TARN_MC_MESSAGE : TARN_MC_NONE;
}

// ff02::4, ::5, ::6, ::9, ::a and ::d.
bool _is_router_group(const u8 *address) {
    constexpr u8 link_scope[15] = {0xFF, 0x02};
    constexpr u32 groups = 1u << 4 | 1u << 5 | 1u << 6 | 1u << 9 | 1u << 0xA | 1u << 0xD;
    return memcmp(address, link_scope, sizeof(link_scope)) == 0 && address[15] < 32 &&
           (groups >> address[15] & 1);
}

} // namespace

i32 tarn_mlds_get_mc_type(const tarn_pkt_info *info) {
    if (info->ethertype != ETH_P_IPV6 || !info->mac_ipv6_mc)
        return TARN_MC_NONE;
    if (!info->ipv6_parsed || !info->ipv6_mc_mac_matches)
        return TARN_MC_MISMATCH;
    if (_is_message(info))
        return _type_of_message(info);
    if (_is_router_group(info->dst_ip))
        return TARN_MC_ROUTER;
    if (info->ipv6_next_header == VRRP || info->ipv6_next_header == ICMPV6)
        return TARN_MC_NONE;
    return be16_to_cpu(info->udp_dport) == DHCPV6_SERVER ? TARN_MC_NONE : TARN_MC_DATA;
}
