#pragma once

#include "kernel/bug.h"

inline constexpr u16 SKB_NO_MAC_HEADER = 0xFFFF;

// Linear socket buffers. head..end is one block, which clones share; data..tail is the frame.
struct sk_buff {
    u8 *head;
    u8 *data;
    u8 *tail;
    u8 *end;
    u32 len;
    u32 data_len; // bytes of len that lie elsewhere: none in this home, unless a test says so
    u32 truesize; // what the buffer counts for in socket memory, as Linux 6.1 counts on x86_64
    u32 mark;
    u32 priority;
    u16 protocol;   // network order
    u16 mac_header; // where the link header begins, from head; SKB_NO_MAC_HEADER where unknown
    u8 was_cloned;  // may share its block; the block knows
    u8 icmp_trapped;
    i32 users;
    net_device *dev;
    void *sk;
    void (*destructor)(sk_buff *skb);
    sk_buff *next; // in a socket's queue
    alignas(8) u8 cb[SKB_CB_SIZE];
};

namespace userlevel {
bool is_shared(const void *memory); // by several buffers
void skb_drop(sk_buff *skb);
void skb_consume(sk_buff *skb);
void skb_watch(sk_buff *skb); // the bounds of the frame have moved
// An empty buffer of that size, room before and after included; null when an allocation fails.
sk_buff *skb_make(u64 size, gfp_t flags, const void *site);
} // namespace userlevel

inline u8 *skb_data(const sk_buff *skb) {
    return skb->data;
}
inline u32 skb_len(const sk_buff *skb) {
    return skb->len;
}
inline u32 skb_headroom(const sk_buff *skb) {
    return static_cast<u32>(skb->data - skb->head);
}
inline u32 skb_tailroom(const sk_buff *skb) {
    return static_cast<u32>(skb->end - skb->tail);
}
inline u32 skb_truesize(const sk_buff *skb) {
    return skb->truesize;
}
inline bool skb_shared(const sk_buff *skb) {
    return __atomic_load_n(&skb->users, __ATOMIC_RELAXED) != 1;
}
inline bool skb_is_linear(const sk_buff *skb) {
    return skb->data_len == 0;
}
inline u8 *skb_cb(sk_buff *skb) {
    return skb->cb;
}
inline u32 skb_mark(const sk_buff *skb) {
    return skb->mark;
}
inline void skb_set_mark(sk_buff *skb, u32 mark) {
    skb->mark = mark;
}
inline void skb_set_icmp_trapped(sk_buff *skb) {
    skb->icmp_trapped = 1;
}
inline u32 skb_priority(const sk_buff *skb) {
    return skb->priority;
}
inline void skb_set_protocol(sk_buff *skb, u16 protocol) {
    skb->protocol = protocol;
}
inline void skb_mac_header_back(sk_buff *skb, u32 length) {
    if (skb->mac_header != SKB_NO_MAC_HEADER && skb->mac_header >= length)
        skb->mac_header = static_cast<u16>(skb->mac_header - length);
}
inline net_device *skb_dev(const sk_buff *skb) {
    return skb->dev;
}
inline void skb_set_dev(sk_buff *skb, net_device *device) {
    skb->dev = device;
}

inline bool skb_cloned(const sk_buff *skb) {
    return skb->was_cloned && userlevel::is_shared(skb->head);
}

inline void skb_reserve(sk_buff *skb, u32 length) {
    if (length > skb_tailroom(skb))
        BUG();
    skb->data += length;
    skb->tail += length;
    userlevel::skb_watch(skb);
}

inline void kfree_skb(sk_buff *skb) {
    userlevel::skb_drop(skb);
}
