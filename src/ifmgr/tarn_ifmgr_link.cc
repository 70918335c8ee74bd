#include "ifmgr/tarn_ifmgr_link.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "kernel/neigh.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

namespace {

bool _has_link(u32 flags) {
    return (flags & TARN_IF_LINK) == TARN_IF_LINK;
}

bool _is_leaf(const tarn_if *ifp) {
    return !tarn_ifmgr_children(ifp);
}

void _link_up(tarn_if *ifp) {
    _tarn_ifmgr_if_hold(ifp);
    if (_is_leaf(ifp))
        _tarn_ifmgr_op_count_post(ifp, TARN_OP_RAISE, 1);
    if (read_once(ifp->if_flags) & TARN_IF_F_AGG_DYNAMIC)
        set_bits(ifp->flags, IFF_RUNNING);
    tarn_follow(ifp);
    if (ifp->netdev)
        netif_carrier_on(ifp->netdev);
    _tarn_ifmgr_if_put(ifp);
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

void _flags_set(tarn_if *ifp, u32 mask) {
    u32 old = read_once(ifp->flags);
    set_bits(ifp->flags, mask);
    if (read_once(ifp->if_flags) & TARN_IF_F_AGG)
        return;
    if (ifp->type == TARN_IF_TYPE_SWITCHPORT)
        tarn_ifmgr_L2_link_state_check(ifp, _has_link(old));
    else if (ifp->type == TARN_IF_TYPE_VLAN)
        tarn_os_l3_if_flags_set(ifp, mask);
}

} // namespace

i32 tarn_ifmgr_L2_link_up(tarn_if *ifp) {
    tarn_ifmgr_change_begin();
    _link_up(ifp);
    tarn_ifmgr_change_end();
    return 0;
}

void tarn_ifmgr_L2_link_state_check(tarn_if *ifp, u32 was_up) {
    tarn_ifmgr_change_begin();
    tarn_follow(ifp);
    bool now = _has_link(read_once(ifp->flags));
    if (now && was_up == 0)
        _link_up(ifp);
    else if (!now && was_up != 0)
        _link_down(ifp);
    tarn_ifmgr_change_end();
}

i32 _tarn_ifmgr_flags_set(tarn_if *ifp, u32 mask) {
    tarn_ifmgr_change_begin();
    _flags_set(ifp, mask);
    tarn_ifmgr_change_end();
    return 0;
}
