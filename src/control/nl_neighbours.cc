// Commands that make the IP stack forget its neighbours.
#include "control/nl_command.h"
#include "ifmgr/tarn_if_device.h"
#include "kernel/neigh.h"
#include "kernel/netdev.h"

namespace {

constexpr u8 BOTH = 0;
constexpr u8 IPV4 = 2;
constexpr u8 IPV6 = 10;

// Calls with the device of the interface, or null, which stays meanwhile: flushes may sleep.
template <typename Call>
i32 _with_held_device(const tarn_if *ifp, Call call) {
    net_device *device = tarn_if_device_hold(ifp);
    i32 result = call(device);
    if (device)
        dev_put(device);
    return result;
}

i32 _flush_port(u8 family, i32 vid, net_device *device, u32 port) {
    if (family == BOTH || family == IPV4)
        arp_flush_dev_and_port(vid, device, port);
    if (family == BOTH || family == IPV6)
        ndisc_flush_dev_and_port(vid, device, port);
    return family == BOTH || family == IPV4 || family == IPV6 ? 0 : -1;
}

} // namespace

// The device narrows the flush: without one, and with one that nobody knows, all are meant.
NL_HANDLER(nbr_del_by_vlan_and_port) {
    u8 family = command.byte(TARNFWD_ATTR_FAMILY);
    i32 vid = static_cast<i32>(command.word(TARNFWD_ATTR_ID));
    u32 port = command.word(TARNFWD_ATTR_PORT_IFINDEX);
    tarn_if *ifp = command.ifindex() ? tarn_ifmgr_lookup_by_index(command.ifindex()) : nullptr;
    if (!ifp)
        return _flush_port(family, vid, nullptr, port);
    i32 result = _with_held_device(
        ifp, [&](net_device *device) { return _flush_port(family, vid, device, port); });
    tarn_ifmgr_if_ref_put(ifp);
    return result;
}

NL_HANDLER(nbr_del_by_vlan_mac) {
    return nl_with_interface(command.ifindex(), -EINVAL, [&](tarn_if *ifp) {
        return _with_held_device(ifp, [&](net_device *device) {
            neigh_moved(device, command.mac());
            return 0;
        });
    });
}

// The VLAN is told in 16 bits of a word.
NL_HANDLER(arp_del_all_by_mac) {
    u16 vid = static_cast<u16>(command.word(TARNFWD_ATTR_ID));
    if (command.ifindex() == 0)
        return arp_flush_vlan_and_mac(vid, nullptr, command.mac());
    return nl_with_interface(command.ifindex(), -1, [&](tarn_if *ifp) {
        if (ifp->type != TARN_IF_TYPE_VLAN)
            return -1;
        return _with_held_device(ifp, [&](net_device *device) {
            return arp_flush_vlan_and_mac(vid, device, command.mac());
        });
    });
}
