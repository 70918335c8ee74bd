// The bind graph: a VLAN is parent of its ports and aggregators, an aggregator of its ports.
//
// One binding is two list nodes, one on the parent's `children`, one on the child's `parents`;
// neither holds a reference. New bindings stand first. Who may write and walk the lists:
// tarn_ifmgr_change.h. A binding and its end are changes of their own.
#pragma once

#include "ifmgr/tarn_if.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "kernel/locks.h"
#include "kernel/memory.h"

// How many bindings may stand one above the other; VLAN over aggregator over port are two.
inline constexpr u32 TARN_IFMGR_MAX_LEVELS = 8;

extern kmem_cache *tarn_ifmgr_list_node_cache;
// A node at the head of the list: null without memory.
tarn_ifmgr_list_node *tarn_ifmgr_list_add(tarn_ifmgr_list_node **list, tarn_if *ifp);
// Takes the first node naming the interface off the list: whether there was one.
bool tarn_ifmgr_list_remove(tarn_ifmgr_list_node **list, const tarn_if *ifp);
// After a change of ifp->parents, under the lock for writing.
void tarn_ifmgr_parents_changed(tarn_if *ifp);

// The heads of the two lists, for who may walk them.
inline const tarn_ifmgr_list_node *tarn_ifmgr_parents(const tarn_if *ifp) {
    lockdep_assert(tarn_ifmgr_may_walk());
    return ifp->parents;
}
inline const tarn_ifmgr_list_node *tarn_ifmgr_children(const tarn_if *ifp) {
    lockdep_assert(tarn_ifmgr_may_walk());
    return ifp->children;
}

// 0; -204 (the child is layer 3 and the parent a port or aggregator, or they would stand in a
// ring, or above one another more than TARN_IFMGR_MAX_LEVELS times); -205 (no memory: a change of
// the parent's flags stays).
i32 tarn_ifmgr_bind(tarn_if *parent, tarn_if *child);
// 0 whether or not they were bound; -204.
i32 tarn_ifmgr_unbind(tarn_if *parent, tarn_if *child);
// The same without a look at the types: for a record that goes.
void tarn_ifmgr_take_apart(tarn_if *parent, tarn_if *child);
u32 tarn_ifmgr_isbound(const tarn_if *parent, const tarn_if *child);
u32 tarn_ifmgr_is_child_l3_and_parent_l2(const tarn_if *parent, const tarn_if *child);

// The port through which frames for this port or aggregator leave, with a reference: of an
// aggregator, the member with link that has the highest ifindex. Null when there is none.
tarn_if *tarn_ifmgr_get_L2_xmit_port(tarn_if *ifp);
// The layer 3 interface that frames of the VLAN from this port belong to, with a reference; or
// null.
tarn_if *tarn_ifmgr_get_matching_L3_port(tarn_if *ifp, u32 vid);
