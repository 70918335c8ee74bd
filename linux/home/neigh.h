#pragma once

#include "device_glue.h"

inline void arp_flush_dev_and_port(i32 vid, net_device *device, u32 ifindex) {
    constexpr int AF_INET = 2;
    tarn_k_neigh_flush_port(AF_INET, vid, device, ifindex);
}
inline void ndisc_flush_dev_and_port(i32 vid, net_device *device, u32 ifindex) {
    constexpr int AF_INET6 = 10;
    tarn_k_neigh_flush_port(AF_INET6, vid, device, ifindex);
}
// A VLAN's neighbours are those of its device; its MAC address tells one from another.
inline i32 arp_flush_vlan_and_mac(i32 vid, net_device *device, const u8 *mac) {
    constexpr int AF_INET = 2;
    tarn_k_neigh_flush_mac(AF_INET, vid, device, mac);
    return 0;
}
inline void neigh_moved(net_device *device, const u8 *mac) {
    constexpr int AF_INET = 2, AF_INET6 = 10;
    if (!device)
        return;
    tarn_k_neigh_flush_mac(AF_INET, -1, device, mac);
    tarn_k_neigh_flush_mac(AF_INET6, -1, device, mac);
}
