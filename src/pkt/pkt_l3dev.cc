// Devices of layer 3 interfaces: how they come and go, and what the IP stack knows of them.
#include "pkt/pkt_l3dev.h"

#include "ifmgr/tarn_if_device.h"
#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "kernel/once.h"
#include "pkt/pkt_l3dev_ops.h"

namespace {

// A type of interface that exists elsewhere and never has a device here.
constexpr u32 TYPE_WITHOUT_DEVICE = 1;

constexpr u32 LINK_ADDRESS_MAX = 14;
constexpr u16 HEADER_LENGTH = 16; // two more than Ethernet's, on purpose

void _set_address(net_device *device, const u8 *hwaddr, u32 length) {
    u8 address[LINK_ADDRESS_MAX] = {};
    if (hwaddr && length <= LINK_ADDRESS_MAX)
        memcpy(address, hwaddr, length);
    dev_addr_set(device, address);
}

bool _has_link(const tarn_if *ifp) {
    return ifp->type == TARN_IF_TYPE_SWITCHPORT &&
           (read_once(ifp->flags) & TARN_IF_LINK) == TARN_IF_LINK;
}

void _fill(net_device *device, tarn_if *ifp, bool is_new) {
    bool is_port = ifp->type == TARN_IF_TYPE_SWITCHPORT;
    bool is_vlan = ifp->type == TARN_IF_TYPE_VLAN;
    auto *own = static_cast<tarn_eth_priv *>(netdev_priv(device));
    write_once(own->ifp, ifp);
    write_once(own->vid, is_vlan ? ifp->vid : 0u);

    netdev_set_priv_flags(device, netdev_priv_flags(device) | IFF_NO_QUEUE);
    netdev_set_ops(device, is_port ? &tarn_eth_port_ops : &tarn_eth_other_ops,
                   is_port ? &tarn_eth_port_ethtool_ops : nullptr);
    netdev_set_hard_header_len(device, HEADER_LENGTH);
    if (is_port || is_vlan)
        netdev_set_mtu_bounds(device, TARN_ETH_MTU_MIN, TARN_ETH_MTU_MAX);
    // The number of a registered device is the kernel's key to it.
    if (is_new && (is_port || is_vlan))
        netdev_set_ifindex(device, is_vlan ? ifp->vid + TARN_IF_VLAN_BASE : ifp->ifindex);
}

// Only what this module made: a name is no proof of it.
bool _is_ours(const net_device *device) {
    const netdev_ops *ops = netdev_get_ops(device);
    return ops == &tarn_eth_port_ops || ops == &tarn_eth_other_ops;
}

void _carrier(net_device *device, const tarn_if *ifp) {
    if (_has_link(ifp))
        netif_carrier_on(device);
    else
        netif_carrier_off(device);
}

// A VLAN that is made anew, whose old record the database is about to replace.
bool _is_successor(const tarn_if *ifp, const tarn_if *before) {
    return ifp->type == TARN_IF_TYPE_VLAN && before->type == TARN_IF_TYPE_VLAN &&
           ifp->vid == before->vid;
}

// A device has one interface. Another one that had it would be left with a pointer to a device that
// is not its own to destroy.
void _take_over(net_device *device, const tarn_if *ifp) {
    tarn_if *before = static_cast<tarn_eth_priv *>(netdev_priv(device))->ifp;
    if (before && before != ifp && !_is_successor(ifp, before) &&
        read_once(before->netdev) == device)
        write_once(before->netdev, nullptr);
}

net_device *_adopt(net_device *device, tarn_if *ifp, const u8 *hwaddr, u32 hwaddr_len) {
    rtnl_lock();
    _take_over(device, ifp);
    _fill(device, ifp, false);
    _set_address(device, hwaddr, hwaddr_len);
    _carrier(device, ifp);
    // Transmits that have read the old interface hold no reference to it.
    synchronize_net();
    rtnl_unlock();
    return device;
}

net_device *_make(tarn_if *ifp, const u8 *hwaddr, u32 hwaddr_len) {
    net_device *device = alloc_etherdev_mqs(sizeof(tarn_eth_priv), 1, 1);
    if (!device)
        return nullptr;
    netdev_set_name(device, tarn_if_device_name(ifp).text);
    _fill(device, ifp, true);
    _set_address(device, hwaddr, hwaddr_len);
    _carrier(device, ifp);
    if (register_netdev(device) != 0) {
        free_netdev(device);
        return nullptr;
    }
    return device;
}

bool _has_another_number(const net_device *device, const tarn_if *ifp) {
    return ifp->type == TARN_IF_TYPE_VLAN && netdev_ifindex(device) != ifp->vid + TARN_IF_VLAN_BASE;
}

net_device *_adopt_or_make(tarn_if *ifp, const u8 *hwaddr, u32 hwaddr_len, bool by_number) {
    net_device *existing = tarn_if_device_get(ifp);
    if (!existing)
        return _make(ifp, hwaddr, hwaddr_len);
    bool can_be_had = _is_ours(existing) && !(by_number && _has_another_number(existing, ifp));
    net_device *device = can_be_had ? _adopt(existing, ifp, hwaddr, hwaddr_len) : nullptr;
    dev_put(existing);
    return device;
}

// What is asked of the device of a layer 3 interface.
template <typename Question>
u32 _ask(const tarn_if *ifp, Question question) {
    return ifp && tarn_if_is_l3(ifp) &&
           tarn_if_with_device(ifp, [&](net_device *device) { return device && question(device); });
}

bool _in_subnet(u32 address, u32 mask, u32 wanted) {
    return ((address ^ wanted) & mask) == 0;
}

bool _is_address(u32 address, u32, u32 wanted) {
    return address == wanted;
}

bool _any(u32, u32, u32) {
    return true;
}

} // namespace

net_device *tarn_eth_drv_create_netdevice(tarn_if *ifp, const u8 *hwaddr, u32 hwaddr_len) {
    return _adopt_or_make(ifp, hwaddr, hwaddr_len, false);
}

// Who asks for the number has the interface stand under it: a device of the name that has another's
// cannot be had.
net_device *tarn_os_l3_if_configure(tarn_if *ifp, const u8 *hwaddr, u32 hwaddr_len,
                                    u32 *out_ifindex) {
    net_device *device = _adopt_or_make(ifp, hwaddr, hwaddr_len, out_ifindex != nullptr);
    if (device && out_ifindex)
        *out_ifindex = netdev_ifindex(device);
    return device;
}

// The flags are left to the unregistration, which closes the device by them.
i32 tarn_eth_drv_destroy_netdevice(net_device *device) {
    if (!device)
        return 0;
    netif_stop_queue(device);
    netif_carrier_off(device);
    unregister_netdev(device);
    free_netdev(device);
    return 0;
}

// The interface has no device any more when it ends: nobody finds one that is about to go.
i32 tarn_os_l3_if_unconfigure(tarn_if *ifp) {
    if (ifp->type == TYPE_WITHOUT_DEVICE)
        return 0;
    net_device *none = nullptr;
    return tarn_eth_drv_destroy_netdevice(
        __atomic_exchange_n(&ifp->netdev, none, __ATOMIC_RELAXED));
}

i32 tarn_os_l3_if_hwaddr_set(tarn_if *ifp, u32 length, const u8 *address) {
    return tarn_os_l3_with_device(ifp, [=](net_device *device) {
        if (!netdev_has_set_mac_address(device))
            return -EINVAL;
        netdev_address wanted{.family = netdev_type(device), .data = {}};
        memcpy(wanted.data, address, length < sizeof(wanted.data) ? length : sizeof(wanted.data));
        return dev_set_mac_address(device, &wanted);
    });
}

u32 tarn_eth_has_ipv4_address(const tarn_if *ifp) {
    return _ask(ifp, [](net_device *device) { return inet_any_address(device, _any, 0); });
}

u32 tarn_eth_has_ipv6_address(const tarn_if *ifp) {
    return _ask(ifp, [](net_device *device) { return inet6_has_record(device); });
}

u32 tarn_eth_subnet_match(u32 addr, const tarn_if *ifp) {
    return _ask(ifp,
                [=](net_device *device) { return inet_any_address(device, _in_subnet, addr); });
}

u32 tarn_eth_addr_same(u32 addr, const tarn_if *ifp) {
    return _ask(ifp,
                [=](net_device *device) { return inet_any_address(device, _is_address, addr); });
}

u32 tarn_eth_subnet6_match(const u8 *addr, const tarn_if *ifp) {
    return _ask(ifp, [=](net_device *device) { return ipv6_chk_prefix(addr, device) != 0; });
}
