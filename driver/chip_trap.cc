#include "chip_trap.h"

#include <iterator>

namespace {

constexpr u8 IGMP = 2, ICMP = 1, UDP = 17, ICMPV6 = 58;
constexpr u16 TYPE_IPV4 = 0x0800, TYPE_ARP = 0x0806, TYPE_IPV6 = 0x86DD;

bool _is_own(const chip_frame &frame) {
    return frame.destination.kind == FDB_OWN;
}

bool _is_ipv4(const chip_frame &frame, u8 protocol) {
    return frame.ethertype == TYPE_IPV4 && frame.ip_protocol == protocol;
}

bool _is_ipv6(const chip_frame &frame, u8 protocol) {
    return frame.ethertype == TYPE_IPV6 && frame.ip_protocol == protocol;
}

bool _has_port(const chip_frame &frame, u16 a, u16 b) {
    if (frame.l4 == 0)
        return false;
    u16 source = frame_word(frame, frame.l4), destination = frame_word(frame, frame.l4 + 2);
    return source == a || source == b || destination == a || destination == b;
}

// A group that the chip was not told of.
bool _is_unknown_group(const chip_frame &frame) {
    return frame_is_group(frame) && !frame_is_broadcast(frame) &&
           frame.destination.kind != FDB_GROUP;
}

bool _is_to(const chip_frame &frame, u64 prefix, u8 first, u8 last) {
    u8 at = frame_byte(frame, 5);
    return frame_prefix(frame) == prefix && at >= first && at <= last;
}

bool _bridge_group(const chip_frame &frame, u8 first, u8 last) {
    return _is_to(frame, BRIDGE_GROUP, first, last);
}

// Type 0x88CC, or its SNAP form.
bool _is_lldp(const chip_frame &frame) {
    if (!frame_is_reserved(frame))
        return false;
    return frame.ethertype == 0x88CC ||
           (frame.ethertype <= 1500 && frame_word(frame, frame.l3) == 0xAAAA &&
            frame_word(frame, frame.l3 + 6) == 0x88CC);
}

bool _is_isis(const chip_frame &frame) {
    return _bridge_group(frame, 0x14, 0x15) ||
           _is_to(frame, mac_prefix(0x09, 0x00, 0x2B, 0x00, 0x00), 4, 5);
}

bool _is_cfm(const chip_frame &frame) {
    return frame.ethertype == 0x8902 && (_is_own(frame) || _bridge_group(frame, 0x30, 0x3F));
}

bool _is_mld(const chip_frame &frame) {
    if (!_is_ipv6(frame, ICMPV6) || !frame.hop_by_hop)
        return false;
    u8 type = frame_byte(frame, frame.l4);
    return (type >= 130 && type <= 132) || type == 143;
}

bool _is_solicitation(const chip_frame &frame) {
    return frame_prefix(frame) >> 16 == 0x3333FF && _is_ipv6(frame, ICMPV6) &&
           frame_byte(frame, frame.l4) >= 133 && frame_byte(frame, frame.l4) <= 137;
}

bool _to(const chip_frame &frame, u64 prefix, u8 last) {
    return _is_to(frame, prefix, last, last);
}

bool _is_filtered(const chip_frame &frame) {
    return frame.filtered && (_is_own(frame) || frame_is_group(frame));
}

bool _is_bpdu(const chip_frame &frame) {
    return _bridge_group(frame, 0x00, 0x00) && !_is_lldp(frame);
}

bool _is_lacp(const chip_frame &frame) {
    return _bridge_group(frame, 0x02, 0x02) && frame.ethertype == 0x8809;
}

bool _is_eapol(const chip_frame &frame) {
    return frame.ethertype == 0x888E && (_bridge_group(frame, 0x03, 0x03) || _is_own(frame));
}

bool _is_garp(const chip_frame &frame) {
    return _bridge_group(frame, 0x20, 0x2F);
}

bool _is_udld(const chip_frame &frame) {
    return _to(frame, mac_prefix(0x01, 0x00, 0x0C, 0xCC, 0xCC), 0xCC);
}

bool _is_ldf(const chip_frame &frame) {
    return _to(frame, mac_prefix(0x00, 0x00, 0xF4, 0x27, 0x71), 0x01);
}

bool _is_ryke(const chip_frame &frame) {
    return _to(frame, mac_prefix(0x00, 0xE0, 0x2B, 0x00, 0x00), 0x04);
}

bool _is_befd(const chip_frame &frame) {
    return _to(frame, mac_prefix(0x00, 0x0C, 0x25, 0x0A, 0x8C), 0x01);
}

bool _is_mrp(const chip_frame &frame) {
    return frame_prefix(frame) == mac_prefix(0x01, 0x15, 0x4E, 0x00, 0x00);
}

bool _is_raps(const chip_frame &frame) {
    return frame_prefix(frame) == mac_prefix(0x01, 0x19, 0xA7, 0x00, 0x00);
}

bool _is_profinet(const chip_frame &frame) {
    return frame.ethertype == 0x8892 && frame_is_group(frame);
}

bool _is_unadmitted(const chip_frame &frame) {
    return frame.authenticating;
}

bool _is_igmp(const chip_frame &frame) {
    return _is_ipv4(frame, IGMP);
}

bool _is_dhcp(const chip_frame &frame) {
    return _is_ipv4(frame, UDP) && _has_port(frame, 67, 68);
}

bool _is_dhcpv6(const chip_frame &frame) {
    return _is_ipv6(frame, UDP) && _has_port(frame, 546, 547);
}

bool _is_own_arp(const chip_frame &frame) {
    return _is_own(frame) && frame.ethertype == TYPE_ARP;
}

bool _is_arp(const chip_frame &frame) {
    return frame_is_broadcast(frame) && frame.ethertype == TYPE_ARP;
}

bool _is_own_icmp(const chip_frame &frame) {
    return _is_own(frame) && _is_ipv4(frame, ICMP);
}

bool _is_own_ipv4(const chip_frame &frame) {
    return _is_own(frame) && frame.ethertype == TYPE_IPV4;
}

bool _is_own_ipv6(const chip_frame &frame) {
    return _is_own(frame) && frame.ethertype == TYPE_IPV6;
}

bool _is_unknown_ipv4(const chip_frame &frame) {
    return _is_unknown_group(frame) && frame.ethertype == TYPE_IPV4;
}

bool _is_unknown_ipv6(const chip_frame &frame) {
    return _is_unknown_group(frame) && frame.ethertype == TYPE_IPV6;
}

constexpr chip_trap_mode ONLY = CHIP_TRAP_ONLY, COPY = CHIP_TRAP_COPY;
constexpr bool ON = true, OFF = false;
constexpr bool LINK = true, VLAN = false;

// The first row that is on and matches decides. Rows of the operator come first, then protocols of
// the link, protocols of a VLAN, what is for the switch itself, and last the rest of what many
// receive. `code` is 1 unless a redirect waits for another, or refuses it, as that of ring
// protection does; 5 and 6 are data of groups that nobody joined. docs/driver.md says row by row
// what each is for.
//
// clang-format off
constexpr chip_trap _rows[] = {
    // name            cpu code flags queue does  start scope match
    {"filter",           1, 10, 0x08, 3, COPY, OFF, VLAN, _is_filtered},
    {"bpdu",             2,  1, 0,    7, ONLY, ON,  LINK, _is_bpdu},
    {"lacp",             3,  1, 0,    7, ONLY, ON,  LINK, _is_lacp},
    {"eapol",            4,  1, 0,    7, ONLY, ON,  LINK, _is_eapol},
    {"lldp",             5,  1, 0,    7, ONLY, ON,  LINK, _is_lldp},
    {"link-local",       6,  1, 0,    7, ONLY, ON,  LINK, frame_is_reserved},
    {"garp",             7,  1, 0,    7, ONLY, ON,  LINK, _is_garp},
    {"udld",             8,  1, 0,    7, ONLY, ON,  LINK, _is_udld},
    {"ldf",              9,  1, 0,    7, ONLY, ON,  VLAN, _is_ldf},
    {"ryke",            10,  3, 0,    7, ONLY, ON,  VLAN, _is_ryke},
    {"befd",            11,  1, 0,    7, ONLY, ON,  VLAN, _is_befd},
    {"mrp",             12,  1, 0,    7, ONLY, ON,  VLAN, _is_mrp},
    {"raps",            13,  1, 0x08, 7, ONLY, ON,  VLAN, _is_raps},
    {"isis",            14,  1, 0,    7, ONLY, ON,  VLAN, _is_isis},
    {"cfm",             15,  1, 0x08, 7, COPY, ON,  VLAN, _is_cfm},
    {"profinet",        16,  1, 0,    7, COPY, ON,  VLAN, _is_profinet},
    {"auth",            17,  1, 0,    5, ONLY, ON,  VLAN, _is_unadmitted},
    {"igmp",            18,  1, 0,    7, ONLY, ON,  VLAN, _is_igmp},
    {"mld",             19,  1, 0,    7, ONLY, ON,  VLAN, _is_mld},
    {"dhcp",            20,  1, 0,    6, COPY, ON,  VLAN, _is_dhcp},
    {"dhcpv6",          21,  1, 0,    6, COPY, ON,  VLAN, _is_dhcpv6},
    {"own-arp",         22,  1, 0,    5, ONLY, ON,  VLAN, _is_own_arp},
    {"arp",             23,  1, 0,    5, COPY, ON,  VLAN, _is_arp},
    {"nd",              24,  1, 0,    5, COPY, ON,  VLAN, _is_solicitation},
    {"own-icmp",        25,  2, 0,    4, ONLY, OFF, VLAN, _is_own_icmp},
    {"own-ipv4",        26,  1, 0,    4, ONLY, ON,  VLAN, _is_own_ipv4},
    {"own-ipv6",        27,  1, 0,    4, ONLY, ON,  VLAN, _is_own_ipv6},
    {"own-other",       28,  1, 0,    4, ONLY, ON,  VLAN, _is_own},
    {"multicast-ipv4",  29,  5, 0,    2, COPY, ON,  VLAN, _is_unknown_ipv4},
    {"multicast-ipv6",  30,  6, 0,    2, COPY, ON,  VLAN, _is_unknown_ipv6},
    {"multicast",       31,  1, 0,    2, COPY, ON,  VLAN, _is_unknown_group},
    {"broadcast",       32,  1, 0,    1, COPY, ON,  VLAN, frame_is_broadcast},
    // Reports of the chip itself, in the order of chip_report.
    {"sample",          33,  8, 0,    0, COPY, OFF, VLAN, nullptr},
    {"new-address",     34,  1, 0x01, 3, COPY, OFF, VLAN, nullptr},
    {"moved-address",   35,  1, 0x02, 3, COPY, OFF, VLAN, nullptr},
};
// clang-format on

constexpr u32 ROWS = std::size(_rows);
constexpr u32 REPORTS = 3;
static_assert(ROWS <= CHIP_TRAPS);

} // namespace

u32 trap_count() {
    return ROWS;
}

const chip_trap &trap_row(u32 index) {
    return _rows[index];
}

u32 trap_of_report(chip_report report) {
    return ROWS - REPORTS + report;
}

void trap_reset() {
    for (u32 row = 0; row < ROWS; row++) {
        chip.traps[row] = _rows[row].starts_on ? _rows[row].mode : CHIP_TRAP_OFF;
        write_once(chip.trap_hits[row], 0u);
    }
}

u32 trap_find(const chip_frame &frame) {
    for (u32 row = 0; row < ROWS - REPORTS; row++)
        if (chip.traps[row] != CHIP_TRAP_OFF && _rows[row].match(frame))
            return row;
    return ROWS;
}
