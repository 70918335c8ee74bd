#include "ifmgr/tarn_ifmgr.h"

#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "ifmgr/tarn_ifmgr_index.h"
#include "ifmgr/tarn_ifmgr_update.h"
#include "kernel/bug.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/once.h"

constinit tarn_if_db *p_tarn_if_db = nullptr;
constinit rwlock_t tarn_if_db_lock{};
constinit tarn_if *tarn_ifmgr_index[TARN_IF_INDEX_PLACES] = {};

namespace {

constinit u8 _finished = 0;

// Both sides start with the ifindex, so a record and a bare u32 serve equally as key.
int _tarn_ifmgr_if_cmp(const void *key, const void *info) {
    u32 wanted = *static_cast<const u32 *>(key);
    u32 there = *static_cast<const u32 *>(info);
    if (wanted < there)
        return -1;
    return wanted > there ? 1 : 0;
}

// Under the lock. Sees deleted and destroyed records too.
tarn_if *_find(u32 ifindex) {
    if (tarn_if *ifp = tarn_ifmgr_index_find(ifindex)) [[likely]]
        return ifp;
    const tarn_avl_node *node = tarn_avl_lookup(p_tarn_if_db->tree, &ifindex);
    return node ? static_cast<tarn_if *>(node->info) : nullptr;
}

void _put(tarn_if *ifp, bool may_sleep) {
    i32 before = refcount_dec(&ifp->refcnt);
    if (before > 1)
        return;
    if (before <= 0) {
        refcount_warn_saturate(&ifp->refcnt, REFCOUNT_SUB_UAF);
        return;
    }

    u32 if_flags = read_once(ifp->if_flags);
    if (!(if_flags & TARN_IF_F_DELETED)) {
        pr_err("Invalid deletion of interface %.16s\n", ifp->name);
        return;
    }
    if (!(if_flags & TARN_IF_F_VALID)) {
        pr_err("Invalid deletion of interface (not valid) %.16s\n", ifp->name);
        return;
    }
    if (!read_once(ifp->destructor))
        BUG();
    tarn_ifmgr_retire(ifp, may_sleep);
}

} // namespace

i32 tarn_ifmgr_init() {
    if (read_once(_finished))
        return 0;
    // Creations lock before they find that there is no database.
    tarn_ifmgr_change_init();
    tarn_ifmgr_update_init();

    auto *db = static_cast<tarn_if_db *>(__kmalloc(sizeof(tarn_if_db), GFP_KERNEL | __GFP_ZERO));
    if (!db)
        return TARN_ERR_INIT;
    if (tarn_avl_create(&db->tree, 0, _tarn_ifmgr_if_cmp) != 0) {
        kfree(db);
        return TARN_ERR_INIT;
    }

    rwlock_init(&tarn_if_db_lock, "tarn_if_db_lock");
    db->on_bind = _module_bind_add_proc_if;
    db->on_unbind = _module_unbind_del_proc_if;
    tarn_ifmgr_list_node_cache = kmem_cache_create("ifmgr_free_list", sizeof(tarn_ifmgr_list_node),
                                                   0, SLAB_NOLEAKTRACE, nullptr);
    // The views of the database may be read from now on, before any lookup succeeds.
    __atomic_store_n(&p_tarn_if_db, db, __ATOMIC_RELEASE);
    __atomic_store_n(&_finished, 1, __ATOMIC_RELEASE);
    return 0;
}

tarn_if *tarn_ifmgr_lookup_by_index(u32 ifindex) {
    if (!__atomic_load_n(&_finished, __ATOMIC_ACQUIRE))
        return nullptr;

    tarn_if *found = nullptr;
    read_lock_bh(&tarn_if_db_lock);
    if (tarn_if *ifp = _find(ifindex)) {
        u32 state = read_once(ifp->if_flags) & (TARN_IF_F_VALID | TARN_IF_F_DELETED);
        if (state == TARN_IF_F_VALID && refcount_inc_not_zero(&ifp->refcnt))
            found = ifp;
    }
    read_unlock_bh(&tarn_if_db_lock);
    return found;
}

tarn_if *tarn_ifmgr_lookup_by_vid(u32 vid) {
    return tarn_ifmgr_lookup_by_index(vid + TARN_IF_VLAN_BASE);
}

void _tarn_ifmgr_if_hold(tarn_if *ifp) {
    refcount_inc(&ifp->refcnt);
}

void _tarn_ifmgr_if_put(tarn_if *ifp) {
    _put(ifp, true);
}

void tarn_ifmgr_if_ref_put_later(tarn_if *ifp) {
    if (ifp)
        _put(ifp, false);
}

void tarn_ifmgr_if_ref_get(tarn_if *ifp) {
    if (ifp)
        _tarn_ifmgr_if_hold(ifp);
}

void tarn_ifmgr_if_ref_put(tarn_if *ifp) {
    if (ifp)
        _tarn_ifmgr_if_put(ifp);
}
