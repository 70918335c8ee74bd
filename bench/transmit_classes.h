// The ways out whose cost is watched: what one frame costs in transmit and floods. The driver takes
// every frame and drops it.
#pragma once

#include "frame_classes.h"

#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_tx.h"
#include "tarn/rxtx_hw.h"

#include <cerrno>
#include <functional>

namespace transmit_classes {

struct Class {
    std::string name;
    const char *function; // where its cost is counted, as callgrind's patterns name it
    std::function<void()> send;
};

namespace detail {

inline u32 take(u32, u32, u32, u32, sk_buff *skb, u32, u8, u8) {
    consume_skb(skb);
    return 0;
}

inline i32 flood(u32, u32, u32, u32, sk_buff *skb, u32, u8, u32, u32, u8) {
    consume_skb(skb);
    return 0;
}

inline void driver(bool floods) {
    rxtx_hw_register({.sdma_counters = nullptr,
                      .auth_set = nullptr,
                      .start_xmit = take,
                      .flood_except = floods ? flood : nullptr,
                      .unknown_multicast_flood_set = nullptr,
                      .cache_index = nullptr});
}

inline tarn_if *interface(u32 ifindex) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
    tarn_ifmgr_if_ref_put(ifp);
    return ifp;
}

inline sk_buff *frame() {
    return userlevel::frame_make(Frame().ipv4({}).padded().build());
}

} // namespace detail

// On the switch of frame_classes::load(): VLAN 1 has 64 ports, VLAN 2 two.
inline void load() {
    frame_classes::load();
    for (u32 k : {1u, 2u})
        plain_switch::add_member(detail::interface(5000 + k), 2);
    detail::driver(false);
}

inline std::vector<Class> all() {
    using namespace detail;
    auto to_port = [] {
        tarn_start_xmit(interface(5001), interface(301), frame(), 6, 6, 1, false);
    };
    auto mirrored = [=] {
        tarn_ifmgr_set_portmirror(5002, 5001, 2, 0);
        to_port();
    };
    auto of_stack = [] {
        net_device *device = interface(301)->netdev;
        userlevel::netdev_transmit(device, Frame().ipv4({}).padded().build());
    };
    auto by_chip = [] {
        driver(true);
        tarn_flood_except_port(nullptr, 1, nullptr, frame(), 0, 4, 1);
    };
    auto in_software = [](u32 vid) {
        return [vid] { tarn_flood_except_port(nullptr, vid, nullptr, frame(), 0, 4, 1); };
    };
    return {
        {"xmit-port", "tarn_start_xmit(*", to_port},
        {"xmit-mirrored", "tarn_start_xmit(*", mirrored},
        {"xmit-of-stack", "tarn_eth_dev_xmit(*", of_stack},
        {"flood-by-chip", "tarn_flood_except_port(*", by_chip},
        {"flood-2-ports", "tarn_flood_except_port(*", in_software(2)},
        {"flood-64-ports", "tarn_flood_except_port(*", in_software(1)},
    };
}

} // namespace transmit_classes
