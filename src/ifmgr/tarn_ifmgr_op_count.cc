// The operational count, and the work that its edges produce.
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_update.h"
#include "kernel/log.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

namespace {

using _batch = tarn_ifmgr_list_node *;

// Whether it was the edge to 0, and RUNNING is taken.
bool _lower(tarn_if *ifp, u32 delta) {
    i32 left = static_cast<i32>(read_once(ifp->oper_count)) - static_cast<i32>(delta);
    write_once(ifp->oper_count, left > 0 ? left : 0);
    if (left > 0 || (read_once(ifp->if_flags) & TARN_IF_F_ALWAYS_UP))
        return false;
    write_once(ifp->flags, read_once(ifp->flags) & ~IFF_RUNNING);
    return true;
}

// Whether it was the edge from 0. The count is a byte and wraps.
bool _raise(tarn_if *ifp, u32 delta) {
    u8 now = static_cast<u8>(read_once(ifp->oper_count) + delta);
    write_once(ifp->oper_count, now);
    if (delta == 0 || now != delta)
        return false;
    if (!(read_once(ifp->if_flags) & TARN_IF_F_AGG_DYNAMIC))
        write_once(ifp->flags, read_once(ifp->flags) | IFF_RUNNING);
    return true;
}

i32 _tarn_ifmgr_op_count_update(tarn_if *ifp, u32 op, u32 delta, _batch *batch) {
    if (!ifp)
        return TARN_ERR_BAD_ARG;
    bool edge = op == TARN_OP_LOWER ? _lower(ifp, delta) : _raise(ifp, delta);
    // One that is being destroyed has no device to tell.
    if (!edge || !refcount_inc_not_zero(&ifp->refcnt))
        return 0;
    if (!tarn_ifmgr_list_add(batch, ifp)) {
        _tarn_ifmgr_if_put(ifp);
        return TARN_ERR_NO_MEMORY;
    }
    return 0;
}

// A lost node loses one update and not the walk.
i32 _tarn_ifmgr_op_count_walk(tarn_if *ifp, u32 op, u32 delta, bool skip_self, _batch *batch,
                              u32 depth) {
    if (!ifp)
        return TARN_ERR_BAD_ARG;
    if (delta == 0 || depth == 0)
        return 0;
    if (!skip_self)
        _tarn_ifmgr_op_count_update(ifp, op, delta, batch);
    for (const tarn_ifmgr_list_node *node = ifp->parents; node; node = node->next) {
        _tarn_ifmgr_op_count_update(node->ifp, op, delta, batch);
        if (node->ifp->parents)
            _tarn_ifmgr_op_count_walk(node->ifp, op, delta, true, batch, depth - 1);
    }
    return 0;
}

} // namespace

i32 _tarn_ifmgr_op_count_post(tarn_if *ifp, u32 op, u32 delta) {
    _batch batch = nullptr;
    read_lock_bh(&tarn_if_db_lock);
    i32 result = _tarn_ifmgr_op_count_walk(ifp, op, delta, false, &batch, TARN_IFMGR_MAX_DEPTH);
    read_unlock_bh(&tarn_if_db_lock);
    if (result < 0) {
        pr_err("Failed to update op count ret %d\n", result);
        return result;
    }
    tarn_ifmgr_update_queue(batch);
    return 0;
}
