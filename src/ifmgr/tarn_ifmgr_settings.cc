#include "ifmgr/tarn_ifmgr_settings.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "kernel/errno.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

namespace {

constexpr u32 MIRROR_TRANSMIT = 0x2;

// Runs the change on the interface, or gives `missing`.
template <typename Change>
i32 _on(tarn_if *ifp, i32 missing, Change change) {
    if (!ifp)
        return missing;
    i32 result = change(ifp);
    tarn_ifmgr_if_ref_put(ifp);
    return result;
}

template <typename Change>
i32 _on_index(u32 ifindex, i32 missing, Change change) {
    return _on(tarn_ifmgr_lookup_by_index(ifindex), missing, change);
}

void _if_flag(tarn_if *ifp, u32 flag, bool on) {
    if (on)
        set_bits(ifp->if_flags, flag);
    else
        clear_bits(ifp->if_flags, flag);
}

bool _has_child_with_link(const tarn_if *vlan) {
    bool found = false;
    read_lock_bh(&tarn_if_db_lock);
    for (const tarn_ifmgr_list_node *node = tarn_ifmgr_children(vlan); node && !found;
         node = node->next)
        found = (read_once(node->ifp->flags) & TARN_IF_LINK) == TARN_IF_LINK;
    read_unlock_bh(&tarn_if_db_lock);
    return found;
}

void _set_always_up(tarn_if *vlan, bool on) {
    bool was_on = read_once(vlan->if_flags) & TARN_IF_F_ALWAYS_UP;
    _if_flag(vlan, TARN_IF_F_ALWAYS_UP, on);
    if (on)
        _tarn_ifmgr_flags_set(vlan, read_once(vlan->flags));
    else if (was_on && !_has_child_with_link(vlan))
        tarn_os_l3_if_flags_unset(vlan, IFF_RUNNING);
}

bool _is_tracked(u32 direction, u32 vid) {
    return (direction & MIRROR_TRANSMIT) && vid == 0;
}

} // namespace

i32 tarn_ifmgr_l3_switchport_set(u32 ifindex, u16 vid) {
    return _on_index(ifindex, TARN_ERR_NO_INTERFACE, [=](tarn_if *ifp) {
        write_once(ifp->vid, vid);
        _if_flag(ifp, TARN_IF_F_L3_SWITCHPORT, vid != 0);
        tarn_follow(ifp);
        return 0;
    });
}

i32 tarn_ifmgr_clear_flags(u32 mask) {
    if (!p_tarn_if_db)
        return 0;
    read_lock_bh(&tarn_if_db_lock);
    for (tarn_avl_node *node = tarn_avl_top(p_tarn_if_db->tree); node; node = tarn_avl_next(node))
        _if_flag(static_cast<tarn_if *>(node->info), mask, false);
    read_unlock_bh(&tarn_if_db_lock);
    return 0;
}

i32 tarn_ifmgr_set_vlan_options(tarn_if *vlan, u32 options) {
    if (vlan->type != TARN_IF_TYPE_VLAN)
        return -EINVAL;
    tarn_ifmgr_change_begin();
    _set_always_up(vlan, options & TARN_VLAN_OPTION_ALWAYS_UP);
    _if_flag(vlan, TARN_IF_F_NO_VLAN_MEMBER_CHECK, options & TARN_VLAN_OPTION_NO_MEMBER_CHECK);
    tarn_follow(vlan);
    tarn_ifmgr_change_end();
    return 0;
}

i32 tarn_ifmgr_set_hwaddr(u32 ifindex, u32 length, const u8 *bytes) {
    return _on_index(ifindex, TARN_ERR_NO_INTERFACE, [=](tarn_if *ifp) {
        bool is_l3 = tarn_if_is_l3(ifp);
        if (is_l3)
            tarn_os_l3_if_hwaddr_set(ifp, length, bytes);
        u8 *place = is_l3 ? ifp->hwaddr : ifp->port_hwaddr;
        tarn_if_address address(place);
        memcpy(address.bytes, bytes,
               length < sizeof(address.bytes) ? length : sizeof(address.bytes));
        address.store(place);
        tarn_follow(ifp);
        return 0;
    });
}

i32 tarn_ifmgr_if_bind_fib(u32 ifindex, u32 fib_id) {
    return _on_index(ifindex, TARN_ERR_NO_INTERFACE, [=](tarn_if *ifp) -> i32 {
        if (!tarn_if_is_l3(ifp))
            return TARN_ERR_WRONG_TYPE;
        write_once(ifp->fib_id, fib_id);
        return 0;
    });
}

i32 tarn_ifmgr_if_unbind_fib(u32 ifindex, u32 fib_id) {
    return _on_index(ifindex, TARN_ERR_NO_INTERFACE, [=](tarn_if *ifp) -> i32 {
        if (!tarn_if_is_l3(ifp) || read_once(ifp->fib_id) != fib_id)
            return TARN_ERR_WRONG_TYPE;
        write_once(ifp->fib_id, 0);
        return 0;
    });
}

// A target cannot be a mirrored port, nor can a port be its own.
i32 tarn_ifmgr_set_portmirror(u32 target, u32 source, u32 direction, u32 vid) {
    if (!_is_tracked(direction, vid))
        return 0;
    return _on_index(source, -EINVAL, [=](tarn_if *from) {
        return _on_index(target, 0, [=](tarn_if *to) {
            if (to == from || read_once(to->mirror_ifindex) != 0)
                return -EINVAL;
            write_once(from->mirror_ifindex, to->ifindex);
            tarn_follow(from);
            return 0;
        });
    });
}

i32 tarn_ifmgr_unset_portmirror(u32, u32 source, u32 direction, u32 vid) {
    if (!_is_tracked(direction, vid))
        return 0;
    return _on_index(source, -EINVAL, [](tarn_if *from) {
        write_once(from->mirror_ifindex, 0);
        tarn_follow(from);
        return 0;
    });
}

i32 tarn_ifmgr_stp_port_state_set(u32 ifindex, u32 instance, u32 state) {
    if (instance >= TARN_STP_INSTANCES)
        return -EINVAL;
    return _on_index(ifindex, -EINVAL, [=](tarn_if *port) {
        if (port->type != TARN_IF_TYPE_SWITCHPORT)
            return -EINVAL;
        write_once(port->stp_state[instance], state);
        tarn_follow_stp(port, instance);
        return 0;
    });
}

i32 tarn_ifmgr_stp_vlan_inst_add(u32 instance, u32 vid) {
    if (instance >= TARN_STP_INSTANCES)
        return -EINVAL;
    return _on(tarn_ifmgr_lookup_by_vid(vid), -EINVAL, [=](tarn_if *vlan) {
        write_once(vlan->stp_instance, instance);
        tarn_follow(vlan);
        return 0;
    });
}

i32 tarn_ifmgr_stp_vlan_inst_delete(u32 vid) {
    return tarn_ifmgr_stp_vlan_inst_add(0, vid);
}

// Readers on the packet path walk the list, so it is under the database's lock like the others.
tarn_ifmgr_list_node *tarn_ifmgr_vlan_upstream_if_add(tarn_if *vlan, tarn_if *ifp) {
    write_lock_bh(&tarn_if_db_lock);
    tarn_ifmgr_list_node *node = tarn_ifmgr_list_add(&vlan->upstream_ifs, ifp);
    write_unlock_bh(&tarn_if_db_lock);
    return node;
}

void tarn_ifmgr_vlan_upstream_if_delete(tarn_if *vlan, tarn_if *ifp) {
    write_lock_bh(&tarn_if_db_lock);
    tarn_ifmgr_list_remove(&vlan->upstream_ifs, ifp);
    write_unlock_bh(&tarn_if_db_lock);
}

void tarn_ifmgr_vlan_all_upstream_ifs_delete(tarn_if *vlan) {
    write_lock_bh(&tarn_if_db_lock);
    while (vlan->upstream_ifs)
        tarn_ifmgr_list_remove(&vlan->upstream_ifs, vlan->upstream_ifs->ifp);
    write_unlock_bh(&tarn_if_db_lock);
}
