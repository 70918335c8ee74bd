// The memory of flows that the throttles share: a table of 1009 slots, indexed by a hash of the
// flow, each holding the flow that passed there last.
//
// A flow that finds another in its slot takes it over: the table is a memory, not a barrier. It has
// no lock: a slot that two CPUs write at once matches nobody and is taken over next time. Its words
// are read and written one by one for that.
#pragma once

#include "kernel/bytes.h"
#include "kernel/once.h"
#include "pkt/frame.h"
#include "pkt/pkt_info.h"

inline constexpr u32 FLOW_SLOTS = 1009; // a prime keeps the spread of a hash that is plain XOR
inline constexpr u32 FLOW_IPV4_BYTES = 4;
inline constexpr u32 FLOW_IPV6_BYTES = 16;

inline constexpr u32 FLOW_MACS = 2 * ETH_ALEN;

// The two addresses, in the order of a frame: what it begins with.
struct flow_macs {
    u8 bytes[FLOW_MACS];

    explicit flow_macs(const sk_buff *skb) { frame_bytes(skb).copy(0, bytes, sizeof(bytes)); }
};

// Four bytes as they lie in memory, the first the lowest.
inline u32 flow_word(const u8 *at) {
    return at[0] | at[1] << 8 | at[2] << 16 | static_cast<u32>(at[3]) << 24;
}

// With the bits of a group that its MAC address has lost: the first octet, the top bit of the next.
inline u32 flow_hash(const tarn_pkt_info *info, const flow_macs &macs) {
    constexpr u32 lost_bits = 0x80FF;
    return flow_word(info->src_ip) ^ info->code ^ (flow_word(info->dst_ip) & lost_bits) ^
           flow_word(macs.bytes + 2) ^ flow_word(macs.bytes + ETH_ALEN + 2);
}
inline u32 flow_slot_ipv4(const tarn_pkt_info *info, const flow_macs &macs) {
    return (flow_hash(info, macs) ^ info->rx_vid) % FLOW_SLOTS;
}
inline u32 flow_slot_ipv6(const tarn_pkt_info *info, const flow_macs &macs) {
    return flow_hash(info, macs) % FLOW_SLOTS;
}

// Words of the table at `table`, of ours at `own`; a multiple of four bytes.
inline bool flow_same(const void *table, const u8 *own, u32 bytes) {
    using word = u32 __attribute__((may_alias));
    for (u32 i = 0; i < bytes; i += sizeof(u32)) {
        u32 ours;
        memcpy(&ours, own + i, sizeof(ours));
        if (read_once(static_cast<const word *>(table)[i / sizeof(u32)]) != ours)
            return false;
    }
    return true;
}
inline void flow_store(void *table, const u8 *own, u32 bytes) {
    using word = u32 __attribute__((may_alias));
    for (u32 i = 0; i < bytes; i += sizeof(u32)) {
        u32 ours;
        memcpy(&ours, own + i, sizeof(ours));
        write_once(static_cast<word *>(table)[i / sizeof(u32)], ours);
    }
}

// A slot begins with the two MAC addresses and has src_ip, dst_ip, code and rx_vid. Of IPv4 only
// the first word of the addresses counts; the rest keeps what it held.
template <typename Entry>
bool flow_is(const Entry &entry, const tarn_pkt_info *info, const flow_macs &macs,
             u32 address_bytes) {
    return flow_same(&entry, macs.bytes, FLOW_MACS) && read_once(entry.code) == info->code &&
           read_once(entry.rx_vid) == info->rx_vid &&
           flow_same(entry.src_ip, info->src_ip, address_bytes) &&
           flow_same(entry.dst_ip, info->dst_ip, address_bytes);
}
template <typename Entry>
void flow_take_over(Entry &entry, const tarn_pkt_info *info, const flow_macs &macs,
                    u32 address_bytes) {
    flow_store(&entry, macs.bytes, FLOW_MACS);
    flow_store(entry.src_ip, info->src_ip, address_bytes);
    flow_store(entry.dst_ip, info->dst_ip, address_bytes);
    write_once(entry.code, info->code);
    write_once(entry.rx_vid, info->rx_vid);
}
