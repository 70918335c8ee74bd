// Header parsing: Ethernet, IPv4 (RFC 791), IPv6 with its extension headers (RFC 8200).
#include "kernel/ipv6.h"
#include "pkt/fragment.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_rx.h"

namespace {

constexpr u8 IPPROTO_TCP = 6;
constexpr u8 IPPROTO_UDP = 17;
constexpr u8 IPPROTO_ICMPV6 = 58;
constexpr u8 IPPROTO_PIM = 103;
constexpr u8 IPPROTO_VRRP = 112;

constexpr u32 IPV4_HLEN = 20;
constexpr u32 IPV6_HLEN = 40;

u32 _be16(const u8 *at) {
    return u32{at[0]} << 8 | at[1];
}

void _parse_addresses(tarn_pkt_info *info, const u8 *destination) {
    constexpr u8 broadcast[ETH_ALEN] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    info->mac_multicast = (destination[0] & 1) && memcmp(destination, broadcast, ETH_ALEN) != 0;
    info->mac_ipv4_mc = destination[0] == 0x01 && destination[1] == 0x00 && destination[2] == 0x5E;
    info->mac_ipv6_mc = destination[0] == 0x33 && destination[1] == 0x33;
}

// A group's MAC address carries the low 23 bits of the group (RFC 1112, section 6.4).
bool _ipv4_group_matches(const u8 *destination, const u8 *group) {
    return (group[0] & 0xF0) == 0xE0 && ((destination[3] ^ group[1]) & 0x7F) == 0 &&
           destination[4] == group[2] && destination[5] == group[3];
}

u32 _protocol_facts(u8 protocol) {
    switch (protocol) {
    case IPPROTO_TCP:
        return FRAME_TCP;
    case IPPROTO_PIM:
    case IPPROTO_VRRP:
        return FRAME_IP_ROUTING;
    default:
        return 0;
    }
}

void _parse_ipv4(tarn_pkt_info *info, const frame_bytes &frame, u32 at, const u8 *destination) {
    u8 header[IPV4_HLEN];
    frame.copy(at, header, sizeof(header));

    memcpy(&info->ip_frag_off, header + 6, sizeof(info->ip_frag_off));
    info->ttl = header[8];
    info->ip_proto = header[9];
    memcpy(info->src_ip, header + 12, 4);
    memcpy(info->dst_ip, header + 16, 4);
    info->facts |= _protocol_facts(info->ip_proto);
    if (is_ipv4_fragment(info))
        info->facts |= FRAME_FRAGMENT;
    info->ipv4_mc_mac_matches = info->mac_ipv4_mc && _ipv4_group_matches(destination, info->dst_ip);
}

// The offset of the transport header from the start of the frame, or -1 where the headers cannot be
// walked to an end that lies in the frame. Then the next header stays what the fixed header says.
i32 _skip_extensions(tarn_pkt_info *info, const frame_bytes &frame, u32 at) {
    i32 start = static_cast<i32>(at + IPV6_HLEN);
    if (!ipv6_ext_hdr(info->ipv6_next_header))
        return start;

    u8 next = info->ipv6_next_header;
    u16 fragment;
    i32 transport = ipv6_skip_exthdr(info->skb, start, &next, &fragment);
    if (transport < 0 || static_cast<u32>(transport) > frame.length)
        return -1;
    info->ipv6_next_header = next;
    return transport;
}

void _parse_ipv6(tarn_pkt_info *info, const frame_bytes &frame, u32 at, const u8 *destination) {
    u8 header[IPV6_HLEN];
    frame.copy(at, header, sizeof(header));

    info->ipv6_next_header = header[6];
    info->hop_limit = header[7];
    memcpy(info->src_ip, header + 8, 16);
    memcpy(info->dst_ip, header + 24, 16);
    info->ipv6_mc_mac_matches = info->mac_ipv6_mc && info->dst_ip[0] == 0xFF &&
                                memcmp(info->dst_ip + 12, destination + 2, 4) == 0;
    if (info->ipv6_next_header == NEXTHDR_HOP)
        info->rtr_alert = tarn_ipv6_mc_is_rtr_alert_present(frame, at + IPV6_HLEN);

    i32 transport = _skip_extensions(info, frame, at);
    info->facts |= _protocol_facts(info->ipv6_next_header);
    if (transport < 0) {
        info->ipv6_parsed = info->ipv6_next_header == NEXTHDR_NONE;
        return;
    }
    u32 offset = static_cast<u32>(transport);
    if (info->ipv6_next_header == IPPROTO_ICMPV6)
        info->icmpv6_type = frame.byte(offset);
    else if (info->ipv6_next_header == IPPROTO_UDP)
        frame.copy(offset + 2, &info->udp_dport, sizeof(info->udp_dport));
    info->ipv6_parsed = 1;
}

} // namespace

void tarn_pkt_parse(tarn_pkt_info *info) {
    frame_bytes frame(info->skb);
    u8 start[VLAN_TYPE_OFFSET + 2]; // both addresses, the type, and a second one behind a tag
    frame.copy(0, start, sizeof(start));

    u32 type = _be16(start + ETH_TYPE_OFFSET);
    u32 at = ETH_HLEN;
    // One tag was stripped; a second one is looked behind.
    if (type == ETH_P_8021Q) {
        type = _be16(start + VLAN_TYPE_OFFSET);
        at += VLAN_HLEN;
    }
    info->ethertype = type;
    _parse_addresses(info, start);
    info->facts = pkt_frame_facts(info, start);
    if (type == ETH_P_IP)
        _parse_ipv4(info, frame, at, start);
    else if (type == ETH_P_IPV6)
        _parse_ipv6(info, frame, at, start);
}
