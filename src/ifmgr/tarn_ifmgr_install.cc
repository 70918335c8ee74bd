// Records into the tree.
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_destroy.h"
#include "ifmgr/tarn_ifmgr_index.h"
#include "kernel/memory.h"
#include "kernel/once.h"

constinit tarn_if *tarn_ifmgr_replaced = nullptr;

namespace {

// Sees deleted and destroyed records too.
tarn_if *_find(u32 ifindex) {
    const tarn_avl_node *node = tarn_avl_lookup(p_tarn_if_db->tree, &ifindex);
    return node ? static_cast<tarn_if *>(node->info) : nullptr;
}

i32 _insert(tarn_if *record) {
    write_lock_bh(&tarn_if_db_lock);
    i32 result = tarn_avl_insert(p_tarn_if_db->tree, record);
    if (result == 0)
        tarn_ifmgr_index_add(record);
    write_unlock_bh(&tarn_if_db_lock);
    return result == 0 ? 0 : TARN_ERR_TREE_INSERT;
}

// Whether the last reference has gone and its destructor has run to its end.
bool _is_destroyed(const tarn_if *ifp) {
    return refcount_read(&ifp->refcnt) == 0 &&
           !(__atomic_load_n(&ifp->if_flags, __ATOMIC_ACQUIRE) & TARN_IF_F_VALID);
}

// Somebody may still hold it: it is taken out of use now, its memory when they let go. The device
// may be the new record's already.
void _end(tarn_if *old, const tarn_if *record) {
    if (!_is_destroyed(old))
        tarn_ifmgr_if_retire(old, old->netdev && old->netdev == record->netdev);
}

void _keep(tarn_if *ifp) {
    ifp->replaced_next = tarn_ifmgr_replaced;
    tarn_ifmgr_replaced = ifp;
}

// Only the memory of a VLAN is ever given back: readers without a lock know an aggregator by its
// address alone.
void _free_replaced() {
    for (tarn_if **at = &tarn_ifmgr_replaced; *at;) {
        tarn_if *ifp = *at;
        if (ifp->type != TARN_IF_TYPE_VLAN || !_is_destroyed(ifp)) {
            at = &ifp->replaced_next;
            continue;
        }
        *at = ifp->replaced_next;
        kfree(ifp);
    }
}

// One of that ifindex, no VLAN, that nobody holds any more; or null.
tarn_if *_take_replaced(u32 ifindex) {
    for (tarn_if **at = &tarn_ifmgr_replaced; *at; at = &(*at)->replaced_next) {
        tarn_if *ifp = *at;
        if (ifp->ifindex != ifindex || ifp->type == TARN_IF_TYPE_VLAN || !_is_destroyed(ifp))
            continue;
        *at = ifp->replaced_next;
        return ifp;
    }
    return nullptr;
}

void _take_out(tarn_if *old) {
    write_lock_bh(&tarn_if_db_lock);
    tarn_avl_delete(p_tarn_if_db->tree, &old->ifindex);
    tarn_ifmgr_index_remove(old);
    write_unlock_bh(&tarn_if_db_lock);
    _keep(old);
    _free_replaced();
}

// Readers without the lock that met the record before it ended may still ask what it is: what stays
// the same, its number and its type, is not written.
void _write_over(tarn_if *old, const tarn_if *record) {
    using word [[gnu::may_alias]] = unsigned long;
    static_assert(sizeof(tarn_if) % sizeof(word) == 0);
    auto *to = reinterpret_cast<word *>(old);
    const auto *from = reinterpret_cast<const word *>(record);
    for (u32 i = 0; i < sizeof(tarn_if) / sizeof(word); i++)
        if (to[i] != from[i])
            write_once(to[i], from[i]);
}

// One that takes turns with a VLAN has its own memory again: that of the VLAN would be lost as one.
i32 _install_copy(const tarn_if *record, tarn_if **installed) {
    tarn_if *old = _find(record->ifindex);
    if (old)
        _end(old, record);
    bool is_free = old && _is_destroyed(old);
    tarn_if *spare =
        is_free && old->type != TARN_IF_TYPE_VLAN ? nullptr : _take_replaced(record->ifindex);
    if (is_free && !spare) {
        write_lock_bh(&tarn_if_db_lock);
        _write_over(old, record);
        write_unlock_bh(&tarn_if_db_lock);
        *installed = old;
        return 0;
    }

    tarn_if *copy = spare ? spare : _tarn_ifmgr_if_alloc();
    if (!copy)
        return TARN_ERR_NO_MEMORY;
    _write_over(copy, record);
    if (old)
        _take_out(old);
    i32 result = _insert(copy);
    if (result != 0) {
        spare ? _keep(copy) : kfree(copy);
        return result;
    }
    *installed = copy;
    return 0;
}

i32 _install_itself(tarn_if *record, tarn_if **installed) {
    if (tarn_if *old = _find(record->ifindex)) {
        _end(old, record);
        _take_out(old);
    }
    *installed = record;
    return _insert(record);
}

u32 _first_stp_state(u32 type) {
    return type == TARN_IF_TYPE_SWITCHPORT || type == TARN_IF_TYPE_VLAN ? TARN_STP_BLOCKING
                                                                        : TARN_STP_FORWARDING;
}

// The files come last: who reads them finds the rest as it is to be.
void _start_by_type(tarn_if *ifp) {
    ifp->auth_supp_table = nullptr;
    ifp->auth_guest_vlan = 0;
    ifp->guest_fwd_count = 0;
    ifp->guest_fwd_rules = nullptr;
    ifp->auth_arp_forward = 0;
    ifp->auth_fwd_count = 0;
    ifp->auth_fwd_rules = nullptr;
    ifp->stp_instance = 0;
    for (u32 &state : ifp->stp_state)
        state = _first_stp_state(ifp->type);
    switch (ifp->type) {
    case TARN_IF_TYPE_ETHERNET:
        ifp->auth_state = TARN_AUTH_UNCONTROLLED;
        ifp->destructor = tarn_ifmgr_eth_if_destructor;
        break;
    case TARN_IF_TYPE_SWITCHPORT:
        ifp->auth_state = TARN_AUTH_UNCONTROLLED;
        ifp->destructor = tarn_ifmgr_l2_if_destructor;
        _module_create_proc_if(ifp);
        break;
    case TARN_IF_TYPE_VLAN:
        ifp->destructor = tarn_ifmgr_vlan_if_destructor;
        break;
    }
}

i32 _install(tarn_if *record, tarn_if **out, bool take_record) {
    _free_replaced();
    tarn_if *ifp = nullptr;
    i32 result = take_record ? _install_itself(record, &ifp) : _install_copy(record, &ifp);
    if (result != 0)
        return result;

    refcount_set(&ifp->refcnt, 1);
    _start_by_type(ifp);
    // Last: a reader that meets the record earlier gets nothing.
    __atomic_or_fetch(&ifp->if_flags, TARN_IF_F_VALID, __ATOMIC_RELEASE);
    tarn_follow(ifp);
    *out = ifp;
    return 0;
}

} // namespace

tarn_if *_tarn_ifmgr_if_alloc() {
    return static_cast<tarn_if *>(__kmalloc(sizeof(tarn_if), gfp_here() | __GFP_ZERO));
}

i32 _tarn_ifmgr_if_install(tarn_if *record, tarn_if **out, bool take_record) {
    if (!record || !out || !p_tarn_if_db)
        return TARN_ERR_BAD_ARG;
    tarn_ifmgr_change_begin();
    i32 result = _install(record, out, take_record);
    tarn_ifmgr_change_end();
    return result;
}
