// Network devices of the kernel, and the chain that tells of their events.
//
// A net_device is opaque; its fields are read through accessors.
#pragma once

#include "kernel/types.h"

struct net_device;

inline constexpr u32 IFF_UP = 0x1;
inline constexpr u32 IFF_BROADCAST = 0x2;
inline constexpr u32 IFF_RUNNING = 0x40;
inline constexpr u32 IFF_MULTICAST = 0x1000;
// One of the private flags: the device is a port of a bridge.
inline constexpr u32 IFF_BRIDGE_PORT = 0x200;

u32 netdev_priv_flags(const net_device *device);

inline constexpr int NOTIFY_DONE = 0;

// Laid out as the kernel's own. Has static storage; the chain keeps the pointer.
struct notifier_block {
    int (*notifier_call)(notifier_block *block, unsigned long event, void *info);
    notifier_block *next;
    int priority;
};

extern "C" int register_netdevice_notifier(notifier_block *block);

#include "home/netdev.h"
