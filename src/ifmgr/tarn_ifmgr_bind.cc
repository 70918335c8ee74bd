#include "ifmgr/tarn_ifmgr_bind.h"

#include "ifmgr/tarn_if_device.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_walk.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

constinit kmem_cache *tarn_ifmgr_list_node_cache = nullptr;

namespace {

// What a VLAN has when its last port goes: no RUNNING.
constexpr u32 VLAN_FLAGS = IFF_UP | IFF_BROADCAST | IFF_MULTICAST;

bool _holds(const tarn_ifmgr_list_node *list, const tarn_if *ifp) {
    for (; list; list = list->next)
        if (list->ifp == ifp)
            return true;
    return false;
}

u32 _device_flags_or(const tarn_if *ifp, u32 otherwise) {
    return tarn_if_with_device(
        ifp, [=](const net_device *device) { return device ? netdev_flags(device) : otherwise; });
}

// The first child lends the parent its flags: whether they are others now.
bool _take_flags(tarn_if *parent, const tarn_if *child) {
    u32 old = read_once(parent->flags);
    u32 now = read_once(child->flags) | (old & IFF_UP);
    write_once(parent->flags, now);
    return now != _device_flags_or(parent, old);
}

// Whether they would stand in a ring, or too high above one another.
bool _cannot_stand(tarn_if *parent, tarn_if *child) {
    u32 above = 0, below = 0;
    for (const tarn_if *at = tarn_ifmgr_walk_up(parent); at; at = at->walk_next) {
        if (at == child)
            return true;
        above = at->walk_level > above ? at->walk_level : above;
    }
    for (const tarn_if *at = tarn_ifmgr_walk_down(child); at; at = at->walk_next)
        below = at->walk_level > below ? at->walk_level : below;
    return above + 1 + below > TARN_IFMGR_MAX_LEVELS;
}

i32 _link_both(tarn_if *parent, tarn_if *child) {
    if (!tarn_ifmgr_list_add(&parent->children, child))
        return TARN_ERR_NO_MEMORY;
    if (!tarn_ifmgr_list_add(&child->parents, parent)) {
        tarn_ifmgr_list_remove(&parent->children, child);
        return TARN_ERR_NO_MEMORY;
    }
    tarn_ifmgr_parents_changed(child);
    return 0;
}

// After a binding or its end. An aggregator has other flags then; of a child only its aggregator
// counts, which a VLAN that comes or goes may change, too.
void _follow(const tarn_if *parent, const tarn_if *child, const tarn_if *aggregator_before) {
    if (parent->type == TARN_IF_TYPE_SWITCHPORT)
        tarn_follow(parent);
    if (read_once(child->aggregator) != aggregator_before)
        tarn_follow(child);
}

void _last_child_gone(tarn_if *parent) {
    write_once(parent->flags, VLAN_FLAGS);
    if (parent->type == TARN_IF_TYPE_VLAN)
        tarn_os_l3_if_flags_set(parent, VLAN_FLAGS);
    else if (p_tarn_if_db->on_unbind)
        p_tarn_if_db->on_unbind(parent);
}

bool _has_link(const tarn_if *ifp) {
    return (read_once(ifp->flags) & TARN_IF_LINK) == TARN_IF_LINK;
}

bool _is_aggregator(const tarn_if *ifp) {
    return read_once(ifp->if_flags) & TARN_IF_F_AGG;
}

tarn_if *_top_of(tarn_if *ifp) {
    tarn_if *top = ifp;
    while (const tarn_ifmgr_list_node *first = tarn_ifmgr_parents(top))
        top = first->ifp;
    return top;
}

i32 _bind(tarn_if *parent, tarn_if *child) {
    if (_cannot_stand(parent, child))
        return TARN_ERR_WRONG_TYPE;

    bool changed = false;
    if (!tarn_ifmgr_children(parent)) {
        changed = _take_flags(parent, child);
        if (parent->type != TARN_IF_TYPE_VLAN && p_tarn_if_db->on_bind)
            p_tarn_if_db->on_bind(parent);
    }

    const tarn_if *aggregator = read_once(child->aggregator);
    write_lock_bh(&tarn_if_db_lock);
    i32 result = _link_both(parent, child);
    write_unlock_bh(&tarn_if_db_lock);
    if (result != 0)
        return result;

    if (changed)
        _tarn_ifmgr_flags_set(parent, read_once(parent->flags));
    _tarn_ifmgr_op_count_post(parent, TARN_OP_RAISE, read_once(child->oper_count));
    _follow(parent, child, aggregator);
    return 0;
}

void _take_apart(tarn_if *parent, tarn_if *child) {
    const tarn_if *aggregator = read_once(child->aggregator);
    write_lock_bh(&tarn_if_db_lock);
    bool was_child = tarn_ifmgr_list_remove(&parent->children, child);
    tarn_ifmgr_list_remove(&child->parents, parent);
    tarn_ifmgr_parents_changed(child);
    write_unlock_bh(&tarn_if_db_lock);
    if (!was_child)
        return;

    _tarn_ifmgr_op_count_post(parent, TARN_OP_LOWER, read_once(child->oper_count));
    if (!tarn_ifmgr_children(parent))
        _last_child_gone(parent);
    _follow(parent, child, aggregator);
}

} // namespace

tarn_ifmgr_list_node *tarn_ifmgr_list_add(tarn_ifmgr_list_node **list, tarn_if *ifp) {
    if (!tarn_ifmgr_list_node_cache)
        return nullptr;
    auto *node = static_cast<tarn_ifmgr_list_node *>(
        kmem_cache_alloc(tarn_ifmgr_list_node_cache, gfp_here()));
    if (!node)
        return nullptr;
    *node = {.ifp = ifp, .next = *list};
    write_once(*list, node);
    return node;
}

bool tarn_ifmgr_list_remove(tarn_ifmgr_list_node **list, const tarn_if *ifp) {
    for (tarn_ifmgr_list_node **at = list; *at; at = &(*at)->next) {
        tarn_ifmgr_list_node *node = *at;
        if (node->ifp != ifp)
            continue;
        write_once(*at, node->next);
        kmem_cache_free(tarn_ifmgr_list_node_cache, node);
        return true;
    }
    return false;
}

u32 tarn_ifmgr_is_child_l3_and_parent_l2(const tarn_if *parent, const tarn_if *child) {
    return tarn_if_is_l3(child) && parent->type == TARN_IF_TYPE_SWITCHPORT;
}

i32 tarn_ifmgr_bind(tarn_if *parent, tarn_if *child) {
    if (tarn_ifmgr_is_child_l3_and_parent_l2(parent, child))
        return TARN_ERR_WRONG_TYPE;
    tarn_ifmgr_change_begin();
    i32 result = _bind(parent, child);
    tarn_ifmgr_change_end();
    return result;
}

void tarn_ifmgr_take_apart(tarn_if *parent, tarn_if *child) {
    tarn_ifmgr_change_begin();
    _take_apart(parent, child);
    tarn_ifmgr_change_end();
}

i32 tarn_ifmgr_unbind(tarn_if *parent, tarn_if *child) {
    if (tarn_ifmgr_is_child_l3_and_parent_l2(parent, child))
        return TARN_ERR_WRONG_TYPE;
    tarn_ifmgr_take_apart(parent, child);
    return 0;
}

u32 tarn_ifmgr_isbound(const tarn_if *parent, const tarn_if *child) {
    if (tarn_ifmgr_is_child_l3_and_parent_l2(parent, child))
        return 0;
    read_lock_bh(&tarn_if_db_lock);
    const tarn_ifmgr_list_node *children = tarn_ifmgr_children(parent);
    const tarn_ifmgr_list_node *parents = tarn_ifmgr_parents(child);
    bool either_empty = !children || !parents;
    bool down = _holds(children, child);
    bool up = _holds(parents, parent);
    read_unlock_bh(&tarn_if_db_lock);
    if (either_empty)
        return 0;
    if (down != up)
        pr_err("Interfaces parent:%.16s (bound=%u) child:%.16s (bound=%u) are bound only one way, "
               "when both way binding is expected.\n",
               parent->name, down, child->name, up);
    return down && up;
}

// The record of an aggregator is never freed, so the word may be read at any time.
tarn_if *tarn_ifmgr_logical_port(tarn_if *ifp) {
    tarn_if *aggregator = read_once(ifp->aggregator);
    return aggregator ? aggregator : ifp;
}

// Only the first parent counts: a port of an aggregator has that one and no other.
void tarn_ifmgr_parents_changed(tarn_if *ifp) {
    tarn_if *first = ifp->parents ? ifp->parents->ifp : nullptr;
    bool is_aggregator = first && first->type == TARN_IF_TYPE_SWITCHPORT;
    write_once(ifp->aggregator, is_aggregator ? first : nullptr);
}

// One fixed member carries all, and the choice moves only when it loses link or a higher one gains
// it.
tarn_if *tarn_ifmgr_get_L2_xmit_port(tarn_if *ifp) {
    if (!ifp || (ifp->type != TARN_IF_TYPE_ETHERNET && ifp->type != TARN_IF_TYPE_SWITCHPORT))
        return nullptr;
    // The lists hold no references: one that waits for its destructor may still stand on them.
    if (!_is_aggregator(ifp))
        return refcount_inc_not_zero(&ifp->refcnt) ? ifp : nullptr;

    tarn_if *chosen = nullptr;
    read_lock_bh(&tarn_if_db_lock);
    for (const tarn_ifmgr_list_node *node = tarn_ifmgr_children(ifp); node; node = node->next)
        if (_has_link(node->ifp) && (!chosen || node->ifp->ifindex > chosen->ifindex))
            chosen = node->ifp;
    if (chosen && !refcount_inc_not_zero(&chosen->refcnt))
        chosen = nullptr;
    read_unlock_bh(&tarn_if_db_lock);
    return chosen;
}

tarn_if *tarn_ifmgr_get_matching_L3_port(tarn_if *ifp, u32 vid) {
    if (ifp->type == TARN_IF_TYPE_ETHERNET || (read_once(ifp->if_flags) & TARN_IF_F_L3_SWITCHPORT))
        return refcount_inc_not_zero(&ifp->refcnt) ? ifp : nullptr;

    tarn_if *found = nullptr;
    read_lock_bh(&tarn_if_db_lock);
    tarn_if *top = _top_of(ifp);
    if (top != ifp && top->type == TARN_IF_TYPE_VLAN)
        found = tarn_ifmgr_lookup_by_vid(vid); // of the frame, not necessarily the top
    else if (top != ifp && top->type == TARN_IF_TYPE_ETHERNET &&
             refcount_inc_not_zero(&top->refcnt))
        found = top;
    read_unlock_bh(&tarn_if_db_lock);
    return found;
}

bool tarn_ifmgr_vlan_inter_if_forwarding_allowed(const tarn_if *vlan, const tarn_if *a,
                                                 const tarn_if *b) {
    if (!read_once(vlan->upstream_ifs) || !a || !b)
        return true;
    read_lock_bh(&tarn_if_db_lock);
    bool allowed =
        !vlan->upstream_ifs || _holds(vlan->upstream_ifs, a) || _holds(vlan->upstream_ifs, b);
    read_unlock_bh(&tarn_if_db_lock);
    return allowed;
}

u32 tarn_ifmgr_stp_state(const tarn_if *port, const tarn_if *vlan_if) {
    u8 instance = read_once(vlan_if->stp_instance);
    return instance < TARN_STP_INSTANCES ? read_once(port->stp_state[instance])
                                         : u32{TARN_STP_DISABLED};
}
