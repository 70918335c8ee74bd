#pragma once

#include "device_glue.h"
#include "home/field.h"

static_assert(sizeof(unsigned int) == sizeof(u32));

inline const void *ifreq_data(const ifreq *request) {
    return tarn_k_ifreq_data(request);
}
inline unsigned long copy_from_user(void *to, const void *from, unsigned long count) {
    return tarn_k_copy_from_user(to, from, count);
}
inline unsigned long copy_to_user(const void *to, const void *from, unsigned long count) {
    return tarn_k_copy_to_user(to, from, count);
}

inline const char *netdev_name(const net_device *device) {
    return &home::field<char>(device, TARN_NETDEV_NAME);
}
inline void netdev_set_name(net_device *device, const char *name) {
    tarn_k_netdev_set_name(device, name);
}
inline u32 netdev_ifindex(const net_device *device) {
    return home::field<u32>(device, TARN_NETDEV_IFINDEX);
}
inline void netdev_set_ifindex(net_device *device, u32 ifindex) {
    home::field<u32>(device, TARN_NETDEV_IFINDEX) = ifindex;
}
inline u32 netdev_flags(const net_device *device) {
    return home::field<u32>(device, TARN_NETDEV_FLAGS);
}
// The low word, whatever the width of the field: both targets are little-endian.
inline u32 netdev_priv_flags(const net_device *device) {
    return home::field<u32>(device, TARN_NETDEV_PRIV_FLAGS);
}
inline void netdev_set_priv_flags(net_device *device, u32 flags) {
    home::field<u32>(device, TARN_NETDEV_PRIV_FLAGS) = flags;
}
inline u32 netdev_mtu(const net_device *device) {
    return home::field<u32>(device, TARN_NETDEV_MTU);
}
inline void netdev_set_mtu(net_device *device, u32 mtu) {
    home::field<u32>(device, TARN_NETDEV_MTU) = mtu;
}
inline void netdev_set_mtu_bounds(net_device *device, u32 least, u32 most) {
    home::field<u32>(device, TARN_NETDEV_MIN_MTU) = least;
    home::field<u32>(device, TARN_NETDEV_MAX_MTU) = most;
}
inline void netdev_set_hard_header_len(net_device *device, u16 length) {
    home::field<u16>(device, TARN_NETDEV_HARD_HEADER_LEN) = length;
}
inline void netdev_set_operstate(net_device *device, u8 state) {
    tarn_k_netdev_set_operstate(device, state);
}
inline u16 netdev_type(const net_device *device) {
    return home::field<u16>(device, TARN_NETDEV_TYPE);
}
inline u8 netdev_addr_len(const net_device *device) {
    return home::field<u8>(device, TARN_NETDEV_ADDR_LEN);
}
inline const u8 *netdev_addr(const net_device *device) {
    return home::field<const u8 *>(device, TARN_NETDEV_DEV_ADDR);
}
inline void dev_addr_set(net_device *device, const u8 *address) {
    tarn_k_dev_addr_set(device, address);
}
inline u8 *netdev_perm_addr(net_device *device) {
    return &home::field<u8>(device, TARN_NETDEV_PERM_ADDR);
}
inline void *netdev_priv(const net_device *device) {
    return const_cast<u8 *>(&home::field<u8>(device, TARN_NETDEV_PRIV));
}
inline net_device_stats *netdev_stats(net_device *device) {
    return &home::field<net_device_stats>(device, TARN_NETDEV_STATS);
}
inline const netdev_ops *netdev_get_ops(const net_device *device) {
    return tarn_k_netdev_get_ops(device);
}
inline void netdev_set_ops(net_device *device, const netdev_ops *ops,
                           const netdev_ethtool_ops *ethtool) {
    tarn_k_netdev_set_ops(device, ops, ethtool);
}
inline bool netdev_has_set_mac_address(const net_device *device) {
    return tarn_k_netdev_has_set_mac_address(device) != 0;
}
// This kernel uses the bit for something else.
inline void netdev_set_vlan_feature(net_device *) {}

inline net_device *dev_get_by_name(const char *name) {
    return tarn_k_dev_get_by_name(name);
}
inline void dev_hold(net_device *device) {
    tarn_k_dev_hold(device);
}
inline void dev_put(net_device *device) {
    tarn_k_dev_put(device);
}
inline int dev_change_flags(net_device *device, u32 flags) {
    return tarn_k_dev_change_flags(device, flags);
}
inline int netdev_set_flags_by_name(const char *name, u32 flags) {
    return tarn_k_set_flags_by_name(name, flags);
}
inline int dev_set_mac_address(net_device *device, const netdev_address *address) {
    return tarn_k_dev_set_mac_address(device, address);
}
inline bool netif_carrier_ok(const net_device *device) {
    return tarn_k_netif_carrier_ok(device) != 0;
}
inline void netif_start_queue(net_device *device) {
    tarn_k_netif_start_queue(device);
}
inline void netif_stop_queue(net_device *device) {
    tarn_k_netif_stop_queue(device);
}
inline void netif_wake_queue(net_device *device) {
    tarn_k_netif_wake_queue(device);
}
inline void netif_addr_lock_bh(net_device *device) {
    tarn_k_netif_addr_lock_bh(device);
}
inline void netif_addr_unlock_bh(net_device *device) {
    tarn_k_netif_addr_unlock_bh(device);
}
inline int dev_queue_xmit(sk_buff *skb) {
    return tarn_k_dev_queue_xmit(skb);
}

extern "C" int netif_rx(sk_buff *skb);
inline int netif_rx_ni(sk_buff *skb) {
    tarn_k_neigh_learn(skb);
    return netif_rx(skb);
}
// This kernel has no such service: a macvlan above a device is served by its own handler.
inline int macvlan_parent_xmit(sk_buff *, net_device *) {
    return 0;
}

inline bool inet_any_address(const net_device *device, bool (*test)(u32, u32, u32), u32 wanted) {
    return tarn_k_inet_any_address(device, test, wanted) != 0;
}
inline bool inet6_has_record(const net_device *device) {
    return tarn_k_inet6_has_record(device) != 0;
}
inline int ipv6_chk_prefix(const u8 *address, net_device *device) {
    return tarn_k_ipv6_chk_prefix(address, device);
}
inline bool netdev_in_init_net(const net_device *device) {
    return tarn_k_netdev_in_init_net(device) != 0;
}

struct packet_type {
    alignas(8) unsigned char type[TARN_PACKET_TYPE_SIZE];
};
inline void packet_type_init(packet_type *type, u16 ethertype, packet_handler handler) {
    home::field<u16>(type, TARN_PACKET_TYPE_TYPE) = ethertype;
    home::field<packet_handler>(type, TARN_PACKET_TYPE_FUNC) = handler;
}
inline u16 packet_type_type(const packet_type *type) {
    return home::field<u16>(type, TARN_PACKET_TYPE_TYPE);
}
