#include "ifmgr/tarn_ifmgr_link.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "kernel/neigh.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

namespace {

bool _has_link(u32 flags) {
    return (flags & TARN_IF_LINK) == TARN_IF_LINK;
}

bool _is_leaf(const tarn_if *ifp) {
    return !read_once(ifp->children);
}

void _link_down(tarn_if *ifp) {
    _tarn_ifmgr_if_hold(ifp);
    if (_is_leaf(ifp))
        _tarn_ifmgr_op_count_post(ifp, TARN_OP_LOWER, 1);
    arp_flush_dev_and_port(-1, nullptr, ifp->ifindex);
    ndisc_flush_dev_and_port(-1, nullptr, ifp->ifindex);
    if (ifp->netdev)
        netif_carrier_off(ifp->netdev);
    _tarn_ifmgr_if_put(ifp);
}

} // namespace

i32 tarn_ifmgr_L2_link_up(tarn_if *ifp) {
    _tarn_ifmgr_if_hold(ifp);
    if (_is_leaf(ifp))
        _tarn_ifmgr_op_count_post(ifp, TARN_OP_RAISE, 1);
    if (read_once(ifp->if_flags) & TARN_IF_F_AGG_DYNAMIC)
        write_once(ifp->flags, read_once(ifp->flags) | IFF_RUNNING);
    if (ifp->netdev)
        netif_carrier_on(ifp->netdev);
    _tarn_ifmgr_if_put(ifp);
    return 0;
}

void tarn_ifmgr_L2_link_state_check(tarn_if *ifp, u32 was_up) {
    bool now = _has_link(read_once(ifp->flags));
    if (now == (was_up != 0))
        return;
    if (now)
        tarn_ifmgr_L2_link_up(ifp);
    else
        _link_down(ifp);
}

i32 _tarn_ifmgr_flags_set(tarn_if *ifp, u32 mask) {
    u32 old = read_once(ifp->flags);
    write_once(ifp->flags, old | mask);
    if (read_once(ifp->if_flags) & TARN_IF_F_AGG)
        return 0;
    if (ifp->type == TARN_IF_TYPE_SWITCHPORT)
        tarn_ifmgr_L2_link_state_check(ifp, _has_link(old));
    else if (ifp->type == TARN_IF_TYPE_VLAN)
        tarn_os_l3_if_flags_set(ifp, mask);
    return 0;
}
