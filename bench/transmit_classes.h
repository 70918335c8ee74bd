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
    const char *function;          // where its cost is counted, as callgrind's patterns name it
    std::function<void()> prepare; // once, before any is sent
    std::function<void()> send;    // one frame, made anew
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

namespace detail {

// VLAN 1 has 64 ports already; the VLAN of each of these numbers gets as many.
inline constexpr u32 FLOODED[] = {2, 4, 8, 16, 32};

inline bool make_vlans() {
    for (u32 ports : FLOODED)
        for (u32 k = 1; k <= ports; k++)
            plain_switch::add_member(interface(5000 + k), ports);
    return true;
}

inline void mirror(bool on) {
    (on ? tarn_ifmgr_set_portmirror : tarn_ifmgr_unset_portmirror)(5002, 5001, 2, 0);
}

inline Class flood_in_software(u32 ports) {
    const u32 vid = ports == 64 ? 1 : ports;
    return {"flood-" + std::to_string(ports) + "-ports", "tarn_flood_except_port(*",
            [] { driver(false); },
            [vid] { tarn_flood_except_port(nullptr, vid, nullptr, frame(), 0, 4, 1); }};
}

} // namespace detail

inline std::vector<Class> all() {
    using namespace detail;
    auto to_port = [] {
        tarn_start_xmit(interface(5001), interface(301), frame(), 6, 6, 1, false);
    };
    auto of_stack = [] {
        net_device *device = interface(301)->netdev;
        userlevel::netdev_transmit(device, Frame().ipv4({}).padded().build());
    };
    auto flood = [] { tarn_flood_except_port(nullptr, 1, nullptr, frame(), 0, 4, 1); };
    std::vector<Class> classes{
        {"xmit-port", "tarn_start_xmit(*", [] { mirror(false); }, to_port},
        {"xmit-mirrored", "tarn_start_xmit(*", [] { mirror(true); }, to_port},
        {"xmit-of-stack", "tarn_eth_dev_xmit(*", [] { mirror(false); }, of_stack},
        {"flood-by-chip", "tarn_flood_except_port(*", [] { driver(true); }, flood},
    };
    for (u32 ports : FLOODED)
        classes.push_back(flood_in_software(ports));
    classes.push_back(flood_in_software(64));
    return classes;
}

// On the switch of frame_classes::load().
inline void load() {
    frame_classes::load();
    static const bool made = detail::make_vlans();
    (void)made;
    detail::driver(false);
}

} // namespace transmit_classes
