#pragma once

#include "device_glue.h"

inline void arp_flush_dev_and_port(i32, net_device *device, u32) {
    constexpr int AF_INET = 2;
    tarn_k_neigh_flush(AF_INET, device);
}
inline void ndisc_flush_dev_and_port(i32, net_device *device, u32) {
    constexpr int AF_INET6 = 10;
    tarn_k_neigh_flush(AF_INET6, device);
}
