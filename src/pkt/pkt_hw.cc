#include "pkt/pkt_hw.h"

#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/once.h"

namespace {

constinit rxtx_hw_callbacks _driver{};
constinit u8 _no_driver_told = 0;

} // namespace

// Field by field: a callback is a word, and a frame on another CPU sees the old one or the new one.
void rxtx_hw_register(rxtx_hw_callbacks callbacks) {
    write_once(_driver.sdma_counters, callbacks.sdma_counters);
    write_once(_driver.auth_set, callbacks.auth_set);
    write_once(_driver.start_xmit, callbacks.start_xmit);
    write_once(_driver.flood_except, callbacks.flood_except);
    write_once(_driver.unknown_multicast_flood_set, callbacks.unknown_multicast_flood_set);
    write_once(_driver.cache_index, callbacks.cache_index);
}

u32 tarn_pkt_sdma_counters_get(unsigned long a, unsigned long b, unsigned long c) {
    return rxtx_hw_sdma_counters(a, b, c);
}

// On a switch without a driver frames vanish quietly, and callers see a success.
u32 rxtx_hw_start_xmit(u32 ifindex, u32 vid, u32 tagged, u32 tx_option, sk_buff *skb, u32 cos,
                       u8 queue, u8 tx_enable) {
    if (auto *start_xmit = read_once(_driver.start_xmit)) [[likely]]
        return start_xmit(ifindex, vid, tagged, tx_option, skb, cos, queue, tx_enable);
    if (!__atomic_exchange_n(&_no_driver_told, 1, __ATOMIC_RELAXED))
        pr_err("No platform start xmit function\n");
    kfree_skb(skb);
    return 0;
}

i32 rxtx_hw_flood_except(u32 ifindex, u32 vid, u32 except0, u32 except1, sk_buff *skb, u32 cos,
                         u8 queue, u32 mask, u32 reserved, u8 tagged) {
    auto *flood_except = read_once(_driver.flood_except);
    return flood_except ? flood_except(ifindex, vid, except0, except1, skb, cos, queue, mask,
                                       reserved, tagged)
                        : -EOPNOTSUPP;
}

u32 rxtx_hw_auth_set(net_device *device, u32 on) {
    auto *auth_set = read_once(_driver.auth_set);
    return device && auth_set ? auth_set(device, on) : 0;
}

u32 rxtx_hw_unknown_multicast_flood_set(u32 enable) {
    auto *flood_set = read_once(_driver.unknown_multicast_flood_set);
    return flood_set ? flood_set(enable) : 0;
}

u32 rxtx_hw_sdma_counters(unsigned long a, unsigned long b, unsigned long c) {
    auto *counters = read_once(_driver.sdma_counters);
    return counters ? counters(a, b, c) : 0;
}

i32 rxtx_hw_cache_index(unsigned long a, unsigned long b, unsigned long c) {
    auto *cache_index = read_once(_driver.cache_index);
    return cache_index ? cache_index(a, b, c) : -1;
}
