#pragma once

#include <pthread.h>

#include "kernel/bug.h"
#include "kernel/once.h"

// A device of the process. userlevel/netdev.cc keeps them; where the machine allows it, each has a
// TAP device at its back (userlevel/netdev_tap.cc).
struct net_device {
    char name[NETDEV_NAME_SIZE];
    u32 ifindex;
    u32 flags; // IFF_*, RUNNING and LOWER_UP not among them
    u32 priv_flags;
    u64 features;
    u32 mtu, min_mtu, max_mtu;
    u16 hard_header_len;
    u16 type;
    u8 addr_len;
    u8 operstate;
    u8 dev_addr[32];
    u8 perm_addr[32];
    bool registered, opened, carrier, stopped;
    i32 references;
    pthread_mutex_t address_lock;
    net_device_stats stats;
    const netdev_ops *ops; // null: made outside this module
    const netdev_ethtool_ops *ethtool_ops;
    void *back; // what stands at its back, null for nothing
    alignas(16) u8 private_area[];
};

// A request as a test makes it.
struct ifreq {
    char name[NETDEV_NAME_SIZE];
    void *data;
};

inline const void *ifreq_data(const ifreq *request) {
    return request->data;
}
inline const char *netdev_name(const net_device *device) {
    return device->name;
}
inline u32 netdev_ifindex(const net_device *device) {
    return device->ifindex;
}
inline void netdev_set_ifindex(net_device *device, u32 ifindex) {
    device->ifindex = ifindex;
}
inline u32 netdev_flags(const net_device *device) {
    return read_once(device->flags);
}
inline u32 netdev_priv_flags(const net_device *device) {
    return read_once(device->priv_flags);
}
inline void netdev_set_priv_flags(net_device *device, u32 flags) {
    write_once(device->priv_flags, flags); // a frame may ask for them meanwhile
}
inline u32 netdev_mtu(const net_device *device) {
    return device->mtu;
}
inline void netdev_set_mtu(net_device *device, u32 mtu) {
    device->mtu = mtu;
}
inline void netdev_set_mtu_bounds(net_device *device, u32 least, u32 most) {
    device->min_mtu = least;
    device->max_mtu = most;
}
inline void netdev_set_hard_header_len(net_device *device, u16 length) {
    device->hard_header_len = length;
}
inline u16 netdev_type(const net_device *device) {
    return device->type;
}
inline u8 netdev_addr_len(const net_device *device) {
    return device->addr_len;
}
inline const u8 *netdev_addr(const net_device *device) {
    return device->dev_addr;
}
inline u8 *netdev_perm_addr(net_device *device) {
    return device->perm_addr;
}
inline void *netdev_priv(const net_device *device) {
    return const_cast<u8 *>(device->private_area);
}
inline net_device_stats *netdev_stats(net_device *device) {
    return &device->stats;
}
inline const netdev_ops *netdev_get_ops(const net_device *device) {
    return device->ops;
}
inline void netdev_set_ops(net_device *device, const netdev_ops *ops,
                           const netdev_ethtool_ops *ethtool_ops) {
    device->ops = ops;
    device->ethtool_ops = ethtool_ops;
}
inline bool netdev_has_set_mac_address(const net_device *device) {
    return !device->ops || device->ops->set_mac_address;
}
// Bit 59.
inline void netdev_set_vlan_feature(net_device *device) {
    __atomic_fetch_or(&device->features, u64{1} << 59, __ATOMIC_RELAXED);
}
inline bool netif_carrier_ok(const net_device *device) {
    return __atomic_load_n(&device->carrier, __ATOMIC_RELAXED);
}
inline void netif_start_queue(net_device *device) {
    __atomic_store_n(&device->stopped, false, __ATOMIC_RELAXED);
}
inline void netif_stop_queue(net_device *device) {
    __atomic_store_n(&device->stopped, true, __ATOMIC_RELAXED);
}
inline void netif_wake_queue(net_device *device) {
    netif_start_queue(device);
}
// No process has a macvlan above its devices.
inline int macvlan_parent_xmit(sk_buff *, net_device *) {
    return 0;
}
// A process has one namespace.
inline bool netdev_in_init_net(const net_device *) {
    return true;
}

// Who gets received frames too; userlevel/netdev.cc keeps the list.
struct packet_type {
    u16 ethertype; // network order
    packet_handler handler;
    packet_type *next;
};
inline void packet_type_init(packet_type *type, u16 ethertype, packet_handler handler) {
    *type = {.ethertype = ethertype, .handler = handler, .next = nullptr};
}
inline u16 packet_type_type(const packet_type *type) {
    return type->ethertype;
}
