// The network devices that stand for layer 3 interfaces in the IP stack: "vlan<vid>" for a VLAN,
// the port's name for a routed port. What the IP stack sends on one goes into transmit; what the
// receive pipeline posts comes up through it.
//
// Configure and unconfigure run in process context and take the RTNL lock, as do the flag and
// address calls. Errors are negative errnos.
#pragma once

#include "ifmgr/tarn_if.h"
#include "kernel/errno.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

// The private area of such a device.
struct tarn_eth_priv {
    tarn_if *ifp;
    u32 vid; // of a VLAN interface, else 0
};

// The device of the interface, made or adopted; its ifindex through `out_ifindex` if that is given.
// Null when it cannot be had: somebody else made it, or, where the ifindex is asked for, it stands
// for another interface than the VLAN.
net_device *tarn_os_l3_if_configure(tarn_if *ifp, const u8 *hwaddr, u32 hwaddr_len,
                                    u32 *out_ifindex);
i32 tarn_os_l3_if_unconfigure(tarn_if *ifp);
net_device *tarn_eth_drv_create_netdevice(tarn_if *ifp, const u8 *hwaddr, u32 hwaddr_len);
i32 tarn_eth_drv_destroy_netdevice(net_device *device);

// Adds to (takes from) the flags of interface and device, IFF_RUNNING by carrier and state.
i32 tarn_os_l3_if_flags_set(tarn_if *ifp, u32 flags);
i32 tarn_os_l3_if_flags_unset(tarn_if *ifp, u32 flags);
i32 tarn_os_l3_if_hwaddr_set(tarn_if *ifp, u32 length, const u8 *address);

// Calls with the device of the interface, which stays meanwhile: under RTNL. -EINVAL without one.
template <typename Call>
i32 tarn_os_l3_with_device(const tarn_if *ifp, Call call) {
    rtnl_lock();
    net_device *device = read_once(ifp->netdev);
    i32 result = device ? call(device) : -EINVAL;
    rtnl_unlock();
    return result;
}

// The counters of the device; null for none.
net_device_stats *tarn_eth_dev_get_stats(net_device *device);

// What the IP stack knows of the addresses of an interface: 0 or 1. IPv4 addresses are in network
// order, IPv6 addresses 16 bytes. An interface that is null, not layer 3 or without a device has
// none.
u32 tarn_eth_has_ipv4_address(const tarn_if *ifp);
u32 tarn_eth_has_ipv6_address(const tarn_if *ifp); // an IPv6 record, not: an address
u32 tarn_eth_subnet_match(u32 addr, const tarn_if *ifp);
u32 tarn_eth_addr_same(u32 addr, const tarn_if *ifp);
u32 tarn_eth_subnet6_match(const u8 *addr, const tarn_if *ifp);
