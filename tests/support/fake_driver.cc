#include "support/fake_driver.h"

#include "kernel/skb.h"

namespace fake_driver {

namespace {

Bytes bytes_of(const sk_buff *skb) {
    return Bytes(skb_data(skb), skb_data(skb) + skb_len(skb));
}

void take(sk_buff *skb) {
    if (record().hold)
        record().held.push_back(skb);
    else
        consume_skb(skb);
}

u32 start_xmit(u32 ifindex, u32 vid, u32 tagged, u32 tx_option, sk_buff *skb, u32 cos, u8 queue,
               u8 tx_enable) {
    Sent sent{ifindex, vid, tagged, tx_option, {}, cos, queue, tx_enable, skb->sk != nullptr};
    if (record().keep)
        sent.bytes = bytes_of(skb);
    u32 result = record().answer ? record().answer(sent) : record().xmit_result;
    if (record().keep)
        record().sent.push_back(std::move(sent));
    if (result == 0)
        take(skb);
    return result;
}

i32 flood_except(u32 ifindex, u32 vid, u32 except0, u32 except1, sk_buff *skb, u32 cos, u8 queue,
                 u32 mask, u32 reserved, u8 tagged) {
    if (record().keep)
        record().flooded.push_back(
            {ifindex, vid, except0, except1, bytes_of(skb), cos, queue, mask, reserved, tagged});
    if (record().flood_result == 0)
        take(skb);
    return record().flood_result;
}

u32 auth_set(net_device *device, u32 on) {
    record().auth.emplace_back(device, on);
    return record().auth_result;
}

u32 unknown_multicast_flood_set(u32 enable) {
    if (record().keep)
        record().unknown_multicast.push_back(enable);
    return record().unknown_multicast_result;
}

u32 sdma_counters(unsigned long a, unsigned long b, unsigned long c) {
    record().counters.push_back({a, b, c});
    return record().counters_result;
}

i32 cache_index(unsigned long a, unsigned long b, unsigned long c) {
    record().cache.push_back({a, b, c});
    return record().cache_result;
}

} // namespace

Record &record() {
    static Record the_record;
    return the_record;
}

rxtx_hw_callbacks callbacks() {
    return {sdma_counters, auth_set, start_xmit, flood_except, unknown_multicast_flood_set,
            cache_index};
}

void attach() {
    rxtx_hw_register(callbacks());
}

void attach_without_flood() {
    rxtx_hw_callbacks some = callbacks();
    some.flood_except = nullptr;
    rxtx_hw_register(some);
}

void detach() {
    rxtx_hw_register({});
}

void release() {
    for (sk_buff *skb : record().held)
        consume_skb(skb);
    record().held.clear();
}

} // namespace fake_driver
