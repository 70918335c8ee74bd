// One frame on its way through the chip, and what was read from it.
#pragma once

#include "chip_fdb.h"
#include "kernel/skb.h"

inline constexpr u32 ETH_HEADER = 14;
inline constexpr u32 VLAN_TAG = 4;

struct chip_frame {
    const u8 *data;
    u32 length;

    u32 slot; // of the ingress port
    u32 vid;  // of the tag, else the PVID
    bool tagged;
    bool authenticating; // the port admits known hosts only, and this source is none
    bool filtered;       // of a type that the operator filters

    fdb_entry destination;
    u16 ethertype;  // behind the tag
    u32 l3;         // offset of what follows it
    u32 l4;         // of what follows the IP headers; 0 when not IP, or not the first fragment
    u8 ip_protocol; // of IPv4, or of IPv6 behind a hop-by-hop header
    bool hop_by_hop;
};

// A byte past the end reads as 0.
inline u8 frame_byte(const chip_frame &frame, u32 offset) {
    return offset < frame.length ? frame.data[offset] : u8{0};
}

inline u16 frame_word(const chip_frame &frame, u32 offset) {
    return static_cast<u16>(frame_byte(frame, offset) << 8 | frame_byte(frame, offset + 1));
}

inline bool frame_is_group(const chip_frame &frame) {
    return frame_byte(frame, 0) & 1;
}

inline bool frame_is_broadcast(const chip_frame &frame) {
    return frame_word(frame, 0) == 0xFFFF && frame_word(frame, 2) == 0xFFFF &&
           frame_word(frame, 4) == 0xFFFF;
}

// The first 5 bytes of the destination.
constexpr u64 mac_prefix(u8 a, u8 b, u8 c, u8 d, u8 e) {
    return u64{a} << 32 | u64{b} << 24 | u64{c} << 16 | u64{d} << 8 | e;
}

inline u64 frame_prefix(const chip_frame &frame) {
    return u64{frame_word(frame, 0)} << 24 | u64{frame_word(frame, 2)} << 8 | frame_byte(frame, 4);
}

inline constexpr u64 BRIDGE_GROUP = mac_prefix(0x01, 0x80, 0xC2, 0x00, 0x00);

// 01:80:C2:00:00:00 to 0F, which no bridge forwards.
inline bool frame_is_reserved(const chip_frame &frame) {
    return frame_prefix(frame) == BRIDGE_GROUP && frame_byte(frame, 5) < 0x10;
}

// Groups whose members never say that they are: all of 224.0.0.0/24, the nodes of a link (ff02::1)
// and solicited nodes. They are flooded whatever the switch for unknown multicast says.
inline bool frame_is_to_link(const chip_frame &frame) {
    u64 prefix = frame_prefix(frame);
    if (prefix == mac_prefix(0x01, 0x00, 0x5E, 0x00, 0x00))
        return true;
    if (prefix >> 16 == 0x3333FF)
        return true;
    return prefix == mac_prefix(0x33, 0x33, 0, 0, 0) && frame_byte(frame, 5) == 1;
}

// The tag, the Ethernet type and the IP headers. False: a runt.
bool frame_read_tag(chip_frame &frame, u32 pvid);
void frame_read_ip(chip_frame &frame);
