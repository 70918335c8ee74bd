// Commands that make the IP stack forget its neighbours.
#include "control/nl_command.h"
#include "kernel/neigh.h"

namespace {

constexpr u8 BOTH = 0;
constexpr u8 IPV4 = 2;
constexpr u8 IPV6 = 10;

} // namespace

// The device narrows the flush: without one, and with one that nobody knows, all are meant.
NL_HANDLER(nbr_del_by_vlan_and_port) {
    u8 family = command.byte(TARNFWD_ATTR_FAMILY);
    i32 vid = static_cast<i32>(command.word(TARNFWD_ATTR_ID));
    u32 port = command.word(TARNFWD_ATTR_PORT_IFINDEX);
    u32 ifindex = command.ifindex();
    tarn_if *ifp = ifindex == 0 ? nullptr : tarn_ifmgr_lookup_by_index(ifindex);
    net_device *device = ifp ? ifp->netdev : nullptr;
    i32 result = -1;
    if (family == BOTH || family == IPV4) {
        arp_flush_dev_and_port(vid, device, port);
        result = 0;
    }
    if (family == BOTH || family == IPV6) {
        ndisc_flush_dev_and_port(vid, device, port);
        result = 0;
    }
    tarn_ifmgr_if_ref_put(ifp);
    return result;
}

NL_HANDLER(nbr_del_by_vlan_mac) {
    return nl_with_interface(command.ifindex(), -EINVAL, [&](tarn_if *ifp) {
        neigh_moved(ifp->netdev, command.mac());
        return 0;
    });
}

// The VLAN is told in 16 bits of a word.
NL_HANDLER(arp_del_all_by_mac) {
    u16 vid = static_cast<u16>(command.word(TARNFWD_ATTR_ID));
    if (command.ifindex() == 0)
        return arp_flush_vlan_and_mac(vid, nullptr, command.mac());
    return nl_with_interface(command.ifindex(), -1, [&](tarn_if *ifp) {
        return ifp->type == TARN_IF_TYPE_VLAN
                   ? arp_flush_vlan_and_mac(vid, ifp->netdev, command.mac())
                   : -1;
    });
}
