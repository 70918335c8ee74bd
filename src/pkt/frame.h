// The bytes of a frame, read safely.
//
// In: a buffer and an offset. Out: the value there, in host order; a byte past the end of the frame
// reads as 0, whatever the length of the frame, so a runt meets every rule like any other frame.
// Nothing is ever read outside the buffer.
#pragma once

#include "kernel/bytes.h"
#include "kernel/skb.h"

inline constexpr u32 ETH_ALEN = 6;
inline constexpr u32 ETH_HLEN = 14;
inline constexpr u32 VLAN_HLEN = 4;

inline constexpr u32 ETH_DST_OFFSET = 0;
inline constexpr u32 ETH_SRC_OFFSET = 6;
inline constexpr u32 ETH_TYPE_OFFSET = 12;
inline constexpr u32 VLAN_TCI_OFFSET = 14;
inline constexpr u32 VLAN_TYPE_OFFSET = 16;

// EtherType numbers (IEEE registry).
inline constexpr u16 ETH_P_IP = 0x0800;
inline constexpr u16 ETH_P_ARP = 0x0806;
inline constexpr u16 ETH_P_RARP = 0x8035;
inline constexpr u16 ETH_P_8021Q = 0x8100;
inline constexpr u16 ETH_P_IPV6 = 0x86DD;
inline constexpr u16 ETH_P_PPP_DISC = 0x8863;
inline constexpr u16 ETH_P_PPP_SES = 0x8864;
inline constexpr u16 ETH_P_1588 = 0x88F7;

// A look at a frame as it stands now. Valid until the frame is changed or freed.
struct frame_bytes {
    const u8 *data;
    u32 length;

    explicit frame_bytes(const sk_buff *skb) : data(skb_data(skb)), length(skb_len(skb)) {}

    u8 byte(u32 offset) const { return offset < length ? data[offset] : 0; }

    bool holds(u32 offset, u32 count) const { return offset <= length && count <= length - offset; }

    u16 be16(u32 offset) const {
        if (!holds(offset, sizeof(u16))) [[unlikely]]
            return static_cast<u16>(byte(offset) << 8);
        u16 wire;
        memcpy(&wire, data + offset, sizeof(wire));
        return be16_to_cpu(wire);
    }

    // Fills `to` whole.
    void copy(u32 offset, void *to, u32 count) const {
        if (holds(offset, count)) {
            memcpy(to, data + offset, count);
            return;
        }
        for (u32 i = 0; i < count; i++)
            static_cast<u8 *>(to)[i] = byte(offset + i);
    }

    bool equals(u32 offset, const void *what, u32 count) const {
        if (holds(offset, count))
            return memcmp(data + offset, what, count) == 0;
        for (u32 i = 0; i < count; i++)
            if (byte(offset + i) != static_cast<const u8 *>(what)[i])
                return false;
        return true;
    }

    // Where the header of the type begins: behind a tag, if there is one.
    u32 payload_offset() const {
        return be16(ETH_TYPE_OFFSET) == ETH_P_8021Q ? ETH_HLEN + VLAN_HLEN : ETH_HLEN;
    }

    // The type word, or the one behind a tag.
    u16 inner_type() const {
        u16 type = be16(ETH_TYPE_OFFSET);
        return type == ETH_P_8021Q ? be16(VLAN_TYPE_OFFSET) : type;
    }
};

// Takes an IEEE 802.1Q tag off the front of the frame, in place: the addresses move up by four
// bytes. True when there was one, with *tci its control word. A frame that ends within its tag has
// one all the same, and keeps it. False too for one whose data is shared and for which no copy
// could be had.
bool frame_strip_tag(sk_buff *skb, u16 *tci);

inline bool frame_ends_within_tag(const frame_bytes &frame) {
    return frame.length < VLAN_TYPE_OFFSET && frame.be16(ETH_TYPE_OFFSET) == ETH_P_8021Q;
}

// Puts a tag before the frame's type, where there is room for it and the bytes are its own.
void frame_insert_tag(sk_buff *skb, u16 tci);

// The frame's port word: the last word of its control block, an ifindex. It says where a resend
// goes and is not cleared on entry: what the frame arrives with counts.
inline u32 frame_port_word(sk_buff *skb) {
    u32 word;
    memcpy(&word, skb_cb(skb) + SKB_CB_SIZE - sizeof(word), sizeof(word));
    return word;
}

inline void frame_set_port_word(sk_buff *skb, u32 word) {
    memcpy(skb_cb(skb) + SKB_CB_SIZE - sizeof(word), &word, sizeof(word));
}
