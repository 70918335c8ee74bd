#include "chip_frame.h"

namespace {

constexpr u16 TYPE_VLAN = 0x8100, TYPE_IPV4 = 0x0800, TYPE_IPV6 = 0x86DD;
constexpr u32 IPV6_HEADER = 40;

void _read_ipv4(chip_frame &frame) {
    frame.ip_protocol = frame_byte(frame, frame.l3 + 9);
    u32 fragment_offset = frame_word(frame, frame.l3 + 6) & 0x1FFF;
    if (fragment_offset == 0)
        frame.l4 = frame.l3 + (frame_byte(frame, frame.l3) & 0xF) * 4u;
}

// Multicast listener messages stand behind a hop-by-hop header; no other extension is looked
// behind.
void _read_ipv6(chip_frame &frame) {
    frame.ip_protocol = frame_byte(frame, frame.l3 + 6);
    frame.l4 = frame.l3 + IPV6_HEADER;
    frame.hop_by_hop = frame.ip_protocol == 0;
    if (!frame.hop_by_hop)
        return;
    frame.ip_protocol = frame_byte(frame, frame.l4);
    frame.l4 += (frame_byte(frame, frame.l4 + 1) + 1u) * 8;
}

} // namespace

bool frame_read_tag(chip_frame &frame, u32 pvid) {
    if (frame.length < ETH_HEADER)
        return false;
    frame.ethertype = frame_word(frame, 12);
    frame.l3 = ETH_HEADER;
    frame.vid = pvid;
    frame.tagged = frame.ethertype == TYPE_VLAN;
    if (!frame.tagged)
        return true;
    if (frame.length < ETH_HEADER + VLAN_TAG)
        return false;
    u32 vid = frame_word(frame, 14) & 0xFFF;
    if (vid != 0) // else it carries a priority only
        frame.vid = vid;
    frame.ethertype = frame_word(frame, 16);
    frame.l3 = ETH_HEADER + VLAN_TAG;
    return true;
}

void frame_read_ip(chip_frame &frame) {
    u8 version = frame_byte(frame, frame.l3) >> 4;
    if (frame.ethertype == TYPE_IPV4 && version == 4)
        _read_ipv4(frame);
    if (frame.ethertype == TYPE_IPV6 && version == 6)
        _read_ipv6(frame);
}
