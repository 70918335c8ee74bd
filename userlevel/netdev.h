// What stands at the back of a device of the process: nothing, or a device of the machine.
#pragma once

#include "control.h"
#include "kernel/netdev.h"

namespace userlevel {

struct netdev_back {
    // 0 or a negative errno: the device's registration fails with it.
    int (*add)(net_device *device);
    void (*remove)(net_device *device);
    void (*flags)(net_device *device, u32 flags);
    void (*carrier)(net_device *device, bool on);
    void (*address)(net_device *device);
    // Into the machine's IP stack; consumes the frame, which starts at its Ethernet header.
    void (*receive)(net_device *device, sk_buff *skb);
    // Out of a device that the module did not make: 0, or another result; consumes the frame.
    int (*transmit)(net_device *device, sk_buff *skb);
    // Registers a device of that name that the machine has; null when there is none.
    net_device *(*find)(const char *name);
    // Frames of that type (network order) that come in on devices which the module did not make
    // are for netdev_receive, too.
    void (*listen)(u16 ethertype);
    // The machine's IP stack forgets neighbours.
    void (*forget)(const neigh_flush &flush);
};

// Devices registered from now on are offered to it. Null: nothing.
void netdev_use_back(const netdev_back *back);
void netdev_forget_neighbours(const neigh_flush &flush);
// Somebody outside the process has changed the flags.
void netdev_flags_changed(net_device *device, u32 flags);
// What the machine's IP stack knows of the device; `ipv6`: it keeps an IPv6 record for it.
void netdev_set_addresses(const net_device *device, std::vector<ipv4_address> ipv4, bool ipv6,
                          std::vector<ipv6_prefix> prefixes);

} // namespace userlevel
