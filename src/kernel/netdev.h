// Network devices of the kernel, and the chain that tells of their events.
//
// A net_device is opaque; its fields are reached through accessors. Flags, states and numbers are
// the kernel's. What may sleep: registration, flag and address changes, which take the RTNL lock
// themselves unless said otherwise.
//
//   dev_get_by_name(name)      of the initial namespace, or null, with a reference
//   dev_hold(device)           one more reference, for who may use the device anyway; dev_put drops
//                              one. The end of a device waits for all
//   alloc_etherdev_mqs(size, 1, 1)
//                              a device with a zeroed private area of that size; null on failure.
//                              free_netdev ends one that is not registered (any more)
//   register_netdev(device)    0 or a negative errno
//   unregister_netdev(device)  returns when nobody uses it any more: neither by a reference nor
//   with
//                              bottom halves off
//   dev_get_flags(device)      IFF_*, with RUNNING as carrier and operational state say
//   dev_change_flags(device, flags)
//                              under the RTNL lock; RUNNING is not looked at: it follows the
//                              carrier
//   netdev_set_flags_by_name(name, flags)
//                              the interface flag request (SIOCSIFFLAGS), as the kernel makes it
//                              for itself: takes the lock. -ENODEV
//   dev_set_mac_address(device, address)
//                              under the RTNL lock; asks the device's set_mac_address
//   netif_carrier_on, netif_carrier_off
//   netif_start_queue, netif_stop_queue, netif_wake_queue
//                              the driver's stop bit of the first transmit queue
//   dev_queue_xmit(skb)        sends through the frame's device; consumes it whatever the result
//   eth_type_trans(skb, device)
//                              takes the Ethernet header off and sets the device; the protocol
//   netif_rx_ni(skb)           into the IP stack, from any context; consumes it
//   synchronize_net()          returns when all who had bottom halves off, transmits among them,
//                              have turned them on again; sleeps, under the RTNL lock or not
//   macvlan_parent_xmit(skb, device)
//                              1 when a macvlan above the device took the frame
#pragma once

#include "kernel/types.h"

struct net_device;
struct sk_buff;

inline constexpr u32 IFF_UP = 0x1;
inline constexpr u32 IFF_BROADCAST = 0x2;
inline constexpr u32 IFF_RUNNING = 0x40;
inline constexpr u32 IFF_MULTICAST = 0x1000;
// Private flags: the device is a port of a bridge; frames reach it without a queue.
inline constexpr u32 IFF_BRIDGE_PORT = 0x200;
inline constexpr u32 IFF_NO_QUEUE = 0x80000;

inline constexpr u8 IF_OPER_UP = 6;

inline constexpr u32 NETDEV_NAME_SIZE = 16;
inline constexpr u32 NETDEV_ADDRESS_SIZE = 6;

// The counters of a device, as the kernel's own record begins.
struct net_device_stats {
    unsigned long rx_packets, tx_packets, rx_bytes, tx_bytes;
    unsigned long rx_errors, tx_errors, rx_dropped, tx_dropped;
    unsigned long multicast;
};

// An address as requests carry it.
struct netdev_address {
    u16 family;
    u8 data[14];
};

// A request's data in user memory, as an ioctl of a device gets it.
struct ifreq;
const void *ifreq_data(const ifreq *request);
// Bytes that could not be copied: 0 is success.
unsigned long copy_from_user(void *to, const void *from, unsigned long count);
unsigned long copy_to_user(const void *to, const void *from, unsigned long count);

inline constexpr int SIOCSHWTSTAMP = 0x89B0;
inline constexpr int SIOCGHWTSTAMP = 0x89B1;

// What a device does. Constant, with static storage; each home turns it into what its kernel wants.
// validate_addr is eth_validate_addr for all.
struct netdev_ops {
    int (*open)(net_device *device);
    int (*stop)(net_device *device);
    int (*start_xmit)(sk_buff *skb, net_device *device); // consumes the frame
    void (*set_rx_mode)(net_device *device);
    int (*set_mac_address)(net_device *device, const netdev_address *address);
    int (*do_ioctl)(net_device *device, ifreq *request, int command); // null: none
    int (*change_mtu)(net_device *device, int mtu);
    net_device_stats *(*get_stats)(net_device *device);
};

struct ethtool_ts {
    u32 so_timestamping;
    i32 phc_index;
};
struct ethtool_link {
    u32 speed; // Mbit/s
    u8 duplex; // 0 half, 1 full
    u8 port, autoneg;
};
struct netdev_ethtool_ops {
    int (*get_ts_info)(net_device *device, ethtool_ts *info);
    int (*get_link_ksettings)(net_device *device, ethtool_link *settings);
};

// --- fields ------------------------------------------------------------------------------------

const char *netdev_name(const net_device *device);
void netdev_set_name(net_device *device, const char *name); // of one not registered; cut at 15
u32 netdev_ifindex(const net_device *device);
void netdev_set_ifindex(net_device *device, u32 ifindex); // of one not registered
u32 netdev_flags(const net_device *device);
u32 netdev_priv_flags(const net_device *device);
void netdev_set_priv_flags(net_device *device, u32 flags);
u32 netdev_mtu(const net_device *device);
void netdev_set_mtu(net_device *device, u32 mtu);
void netdev_set_mtu_bounds(net_device *device, u32 least, u32 most);
void netdev_set_hard_header_len(net_device *device, u16 length);
void netdev_set_operstate(net_device *device, u8 state);
u16 netdev_type(const net_device *device);
u8 netdev_addr_len(const net_device *device);
const u8 *netdev_addr(const net_device *device);
void dev_addr_set(net_device *device, const u8 *address); // addr_len bytes
u8 *netdev_perm_addr(net_device *device);
void *netdev_priv(const net_device *device);
net_device_stats *netdev_stats(net_device *device);
// The tables it was given, or null for a device that is not of this module's making.
const netdev_ops *netdev_get_ops(const net_device *device);
void netdev_set_ops(net_device *device, const netdev_ops *ops, const netdev_ethtool_ops *ethtool);
// Whether its address can be set, whoever made the device.
bool netdev_has_set_mac_address(const net_device *device);
// The feature bit that the switch's own kernel reserves for VLAN devices. A plain kernel uses its
// number for something else, and is left alone.
void netdev_set_vlan_feature(net_device *device);

// --- operations --------------------------------------------------------------------------------

net_device *dev_get_by_name(const char *name);
void dev_hold(net_device *device);
void dev_put(net_device *device);
int dev_change_flags(net_device *device, u32 flags);
int netdev_set_flags_by_name(const char *name, u32 flags);
int dev_set_mac_address(net_device *device, const netdev_address *address);
bool netif_carrier_ok(const net_device *device);
void netif_start_queue(net_device *device);
void netif_stop_queue(net_device *device);
void netif_wake_queue(net_device *device);
void netif_addr_lock_bh(net_device *device);
void netif_addr_unlock_bh(net_device *device);
int dev_queue_xmit(sk_buff *skb);
int netif_rx_ni(sk_buff *skb);
int macvlan_parent_xmit(sk_buff *skb, net_device *device);

extern "C" {
net_device *alloc_etherdev_mqs(int private_size, unsigned tx_queues, unsigned rx_queues);
void free_netdev(net_device *device);
int register_netdev(net_device *device);
void unregister_netdev(net_device *device);
unsigned dev_get_flags(const net_device *device);
void netif_carrier_on(net_device *device);
void netif_carrier_off(net_device *device);
u16 eth_type_trans(sk_buff *skb, net_device *device); // network order
void rtnl_lock(void);
void rtnl_unlock(void);
void synchronize_net(void);
}

// --- addresses of the IP stack -----------------------------------------------------------------

// Whether `test` holds for any IPv4 address of the device; `address`, `mask` and `wanted` are in
// network order.
bool inet_any_address(const net_device *device, bool (*test)(u32 address, u32 mask, u32 wanted),
                      u32 wanted);
// Whether the IP stack keeps an IPv6 record for the device.
bool inet6_has_record(const net_device *device);
// Whether one of the device's IPv6 prefixes covers the address.
int ipv6_chk_prefix(const u8 *address, net_device *device);

// --- events ------------------------------------------------------------------------------------

inline constexpr int NOTIFY_DONE = 0;

inline constexpr unsigned long NETDEV_UP = 1;
inline constexpr unsigned long NETDEV_DOWN = 2;
inline constexpr unsigned long NETDEV_CHANGE = 4;
inline constexpr unsigned long NETDEV_UNREGISTER = 6;

// Laid out as the kernel's own. Has static storage; the chain keeps the pointer.
struct notifier_block {
    int (*notifier_call)(notifier_block *block, unsigned long event, void *info);
    notifier_block *next;
    int priority;
};

// The device that an event is of: the first word of its `info`.
inline net_device *netdev_notifier_info_to_dev(const void *info) {
    return *static_cast<net_device *const *>(info);
}

// Whether the device lives in the initial namespace, where this module's do.
bool netdev_in_init_net(const net_device *device);

extern "C" int register_netdevice_notifier(notifier_block *block);

// --- frames that the IP stack takes --------------------------------------------------------------

// Who gets the received frames of an Ethernet type (network order) too, from softirq, without their
// Ethernet header. Has static storage. The handler ends the frame; others may hold it as well.
struct packet_type;
using packet_handler = i32 (*)(sk_buff *skb, net_device *device, packet_type *type,
                               net_device *original);
void packet_type_init(packet_type *type, u16 ethertype, packet_handler handler);
u16 packet_type_type(const packet_type *type);

extern "C" void dev_add_pack(packet_type *type);

#include "home/netdev.h"
