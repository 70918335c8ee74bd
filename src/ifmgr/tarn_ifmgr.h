// The interface database.
//
// In: an ifindex or a VID. Out: the tarn_if with one reference taken, which the caller drops with
// tarn_ifmgr_if_ref_put, or null for an interface that is unknown, deleted or destroyed, and for
// anything before tarn_ifmgr_init has finished. A lookup costs a read lock, one look into a table
// (tarn_ifmgr_index.h), seldom a descent of the tree, and one atomic increment.
//
// A record is installed with one reference, the database's own. Deletion marks it TARN_IF_F_DELETED
// and drops that reference; the last reference to go runs the record's destructor in the context of
// whoever drops it, or in a work item when that context must not sleep.
//
// tarn_if_db_lock covers the shape of the tree and the lists of a record, nothing else, and is
// never held across a call into the network stack. Who may walk `parents` and `children`:
// tarn_ifmgr_change.h.
#pragma once

#include "ifmgr/tarn_if.h"
#include "kernel/locks.h"

struct tarn_if_db {
    tarn_avl_tree *tree; // every record ever installed, by ifindex
    unsigned long unused[2];
    i32 (*on_bind)(tarn_if *ifp);
    i32 (*on_unbind)(tarn_if *ifp);
};

extern tarn_if_db *p_tarn_if_db;
extern rwlock_t tarn_if_db_lock;

i32 tarn_ifmgr_init();

tarn_if *tarn_ifmgr_lookup_by_index(u32 ifindex);
tarn_if *tarn_ifmgr_lookup_by_vid(u32 vid);
void tarn_ifmgr_if_ref_get(tarn_if *ifp); // null is ignored
void tarn_ifmgr_if_ref_put(tarn_if *ifp); // null is ignored
// The same where the destructor must not run: under the RTNL lock, or in a file of the interface's
// own.
void tarn_ifmgr_if_ref_put_later(tarn_if *ifp);
void _tarn_ifmgr_if_hold(tarn_if *ifp); // not null
void _tarn_ifmgr_if_put(tarn_if *ifp);  // not null

// The aggregator that the interface is bound under, when its first parent is one; else the
// interface itself. No reference is taken.
tarn_if *tarn_ifmgr_logical_port(tarn_if *ifp);

// The spanning tree state of the port in the instance that the VLAN belongs to.
u32 tarn_ifmgr_stp_state(const tarn_if *port, const tarn_if *vlan_if);

// Whether a frame of the VLAN may pass between a and b. An empty upstream list, or a null
// interface, allows it; otherwise one of the two must be upstream.
bool tarn_ifmgr_vlan_inter_if_forwarding_allowed(const tarn_if *vlan, const tarn_if *a,
                                                 const tarn_if *b);
