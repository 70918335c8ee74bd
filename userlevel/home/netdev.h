#pragma once

struct net_device {
    char name[16];
    u32 priv_flags;
};

inline u32 netdev_priv_flags(const net_device *device) {
    return device->priv_flags;
}
