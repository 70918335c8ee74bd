#include "ifmgr/tarn_ifmgr_destroy.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

namespace {

bool _is_aggregator(const tarn_if *ifp) {
    return read_once(ifp->if_flags) & TARN_IF_F_AGG;
}

// Takes the record off every list that names it, and empties its own. Those above count without it;
// nothing is said: what could be said has been.
void _unlink(tarn_if *ifp) {
    while (const tarn_ifmgr_list_node *first = tarn_ifmgr_parents(ifp))
        tarn_ifmgr_take_apart(first->ifp, ifp);
    while (const tarn_ifmgr_list_node *first = tarn_ifmgr_children(ifp))
        tarn_ifmgr_take_apart(ifp, first->ifp);
    write_lock_bh(&tarn_if_db_lock);
    while (ifp->upstream_ifs)
        tarn_ifmgr_list_remove(&ifp->upstream_ifs, ifp->upstream_ifs->ifp);
    write_unlock_bh(&tarn_if_db_lock);
}

// A child may itself wait for its destructor: that one cannot be held any more, and need not be.
void _remove_child(tarn_if *vlan, tarn_if *child) {
    bool held = refcount_inc_not_zero(&child->refcnt);
    pr_warn("Child interface %.16s found while deleting %.16s\n", child->name, vlan->name);
    if (tarn_vlan_unbind_vlan_from_port(vlan, child, 1) < 0)
        pr_err("Failed to remove %.16s from %.16s\n", child->name, vlan->name);
    if (held)
        _tarn_ifmgr_if_put(child);
}

void _remove_children(tarn_if *vlan) {
    const tarn_ifmgr_list_node *next;
    for (const tarn_ifmgr_list_node *node = tarn_ifmgr_children(vlan); node; node = next) {
        next = node->next;
        _remove_child(vlan, node->ifp);
    }
}

void _leave_aggregator(tarn_if *port, tarn_if *aggregator) {
    if (!_is_aggregator(aggregator)) {
        pr_err("Unexpected parent %.16s found for %.16s\n", aggregator->name, port->name);
        return;
    }
    i32 result = tarn_ifmgr_unbind(aggregator, port);
    if (result < 0)
        pr_err("Error removing %.16s from %.16s ret %d\n", port->name, aggregator->name, result);
    else if (!tarn_ifmgr_children(aggregator))
        tarn_vlan_agg_unbind(aggregator);
}

void _leave_parents(tarn_if *port) {
    if (!tarn_ifmgr_parents(port))
        return;
    const tarn_ifmgr_list_node *next;
    for (const tarn_ifmgr_list_node *node = tarn_ifmgr_parents(port); node; node = next) {
        next = node->next;
        _leave_aggregator(port, node->ifp);
    }
    if (const tarn_ifmgr_list_node *left = tarn_ifmgr_parents(port))
        pr_err("Parent interface %.16s found while deleting %.16s\n", left->ifp->name, port->name);
}

void _end_ethernet(tarn_if *ifp) {
    _unlink(ifp);
    if (!tarn_ifmgr_eth_device_put(ifp))
        pr_err("netdevice for %.16s not found\n", ifp->name);
}

void _end_vlan(tarn_if *ifp) {
    _remove_children(ifp);
    _unlink(ifp);
    if (!ifp->netdev) {
        pr_err("netdevice for %.16s not found\n", ifp->name);
        return;
    }
    tarn_os_l3_if_unconfigure(ifp);
}

void _end_port(tarn_if *ifp) {
    if (const tarn_ifmgr_list_node *child = tarn_ifmgr_children(ifp))
        pr_err("Child interface %.16s found while deleting %.16s\n", child->ifp->name, ifp->name);
    tarn_vlan_delete_vlan_from_port_all(ifp);
    _leave_parents(ifp);
    _unlink(ifp);
    module_remove_proc_if(ifp);
    if (ifp->netdev)
        tarn_os_l3_if_unconfigure(ifp);
}

i32 _in_a_change(tarn_if *ifp, void (*end)(tarn_if *ifp)) {
    tarn_ifmgr_change_begin();
    end(ifp);
    tarn_ifmgr_change_end();
    return 0;
}

i32 _retired_destructor(tarn_if *) {
    return 0;
}

} // namespace

i32 tarn_ifmgr_eth_if_destructor(tarn_if *ifp) {
    return _in_a_change(ifp, _end_ethernet);
}

i32 tarn_ifmgr_vlan_if_destructor(tarn_if *ifp) {
    return _in_a_change(ifp, _end_vlan);
}

i32 tarn_ifmgr_l2_if_destructor(tarn_if *ifp) {
    return _in_a_change(ifp, _end_port);
}

bool tarn_ifmgr_eth_device_put(tarn_if *ifp) {
    net_device *none = nullptr;
    net_device *device = __atomic_exchange_n(&ifp->netdev, none, __ATOMIC_RELAXED);
    if (!device)
        return false;
    dev_put(device);
    return true;
}

void tarn_ifmgr_if_retire(tarn_if *ifp, bool keeps_device) {
    if (keeps_device) {
        // First, so that nothing that follows tells the device of it.
        write_once(ifp->netdev, nullptr);
        _unlink(ifp);
        if (ifp->type == TARN_IF_TYPE_SWITCHPORT)
            module_remove_proc_if(ifp);
    } else if (ifp->destructor) {
        ifp->destructor(ifp);
    }
    write_once(ifp->destructor, _retired_destructor);
    u32 if_flags = read_once(ifp->if_flags);
    if (if_flags & TARN_IF_F_DELETED)
        return; // the database's own reference is gone
    if (refcount_read(&ifp->refcnt) == 0)
        __atomic_and_fetch(&ifp->if_flags, ~TARN_IF_F_VALID, __ATOMIC_RELEASE);
    else
        tarn_ifmgr_delete_interface(ifp);
}
