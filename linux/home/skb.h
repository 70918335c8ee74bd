#pragma once

#include "glue.h"
#include "home/field.h"

static_assert(TARN_SKB_CB_SIZE == SKB_CB_SIZE);

extern "C" void kfree_skb_reason(sk_buff *skb, int reason);

inline u8 *skb_data(const sk_buff *skb) {
    return home::field<u8 *>(skb, TARN_SKB_DATA);
}
inline u32 skb_len(const sk_buff *skb) {
    return home::field<u32>(skb, TARN_SKB_LEN);
}
inline u32 skb_headroom(const sk_buff *skb) {
    return static_cast<u32>(skb_data(skb) - home::field<u8 *>(skb, TARN_SKB_HEAD));
}
inline u32 skb_tailroom(const sk_buff *skb) {
    return tarn_k_skb_tailroom(skb);
}
inline u32 skb_truesize(const sk_buff *skb) {
    return home::field<u32>(skb, TARN_SKB_TRUESIZE);
}
inline bool skb_cloned(const sk_buff *skb) {
    return tarn_k_skb_cloned(skb) != 0;
}
inline bool skb_shared(const sk_buff *skb) {
    return __atomic_load_n(&home::field<int>(skb, TARN_SKB_USERS), __ATOMIC_RELAXED) != 1;
}
inline bool skb_is_linear(const sk_buff *skb) {
    return home::field<u32>(skb, TARN_SKB_DATA_LEN) == 0;
}
inline u8 *skb_cb(sk_buff *skb) {
    return &home::field<u8>(skb, TARN_SKB_CB);
}
inline u32 skb_mark(const sk_buff *skb) {
    return home::field<u32>(skb, TARN_SKB_MARK);
}
inline void skb_set_mark(sk_buff *skb, u32 mark) {
    home::field<u32>(skb, TARN_SKB_MARK) = mark;
}
// A stock kernel keeps no bit for it and its IP stack does not ask.
inline void skb_set_icmp_trapped(sk_buff *) {}
inline u32 skb_priority(const sk_buff *skb) {
    return home::field<u32>(skb, TARN_SKB_PRIORITY);
}
inline void skb_set_protocol(sk_buff *skb, u16 protocol) {
    home::field<u16>(skb, TARN_SKB_PROTOCOL) = protocol;
}
inline void skb_mac_header_back(sk_buff *skb, u32 length) {
    constexpr u16 unknown = 0xFFFF;
    u16 &from_head = home::field<u16>(skb, TARN_SKB_MAC_HEADER);
    if (from_head != unknown && from_head >= length)
        from_head = static_cast<u16>(from_head - length);
}
inline void skb_orphan(sk_buff *skb) {
    tarn_k_skb_orphan(skb);
}
inline net_device *skb_dev(const sk_buff *skb) {
    return home::field<net_device *>(skb, TARN_SKB_DEV);
}
inline void skb_set_dev(sk_buff *skb, net_device *device) {
    home::field<net_device *>(skb, TARN_SKB_DEV) = device;
}
inline void skb_reserve(sk_buff *skb, u32 length) {
    tarn_k_skb_reserve(skb, length);
}
inline void consume_skb(sk_buff *skb) {
    tarn_k_consume_skb(skb);
}
inline void kfree_skb(sk_buff *skb) {
    kfree_skb_reason(skb, TARN_SKB_DROP_REASON);
}
