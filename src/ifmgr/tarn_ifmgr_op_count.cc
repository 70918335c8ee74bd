// The operational count, and the work that its edges produce.
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_update.h"
#include "ifmgr/tarn_ifmgr_walk.h"
#include "kernel/log.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

namespace {

using _batch = tarn_ifmgr_list_node *;

// A leaf counts on each way that leads up from it. Counts are written inside a change alone, so
// that each edge is met once.

// Whether it was the edge to 0, and RUNNING is taken.
bool _lower(tarn_if *ifp, u32 delta, u32 ways) {
    u32 count = read_once(ifp->oper_count);
    u32 left = count > delta * ways ? count - delta * ways : 0;
    write_once(ifp->oper_count, left);
    if (left > 0 || (read_once(ifp->if_flags) & TARN_IF_F_ALWAYS_UP))
        return false;
    clear_bits(ifp->flags, IFF_RUNNING);
    return true;
}

// Whether it was the edge from 0, which is met on the first way. The count is a byte and wraps.
bool _raise(tarn_if *ifp, u32 delta, u32 ways) {
    u32 count = read_once(ifp->oper_count);
    write_once(ifp->oper_count, count + delta * ways);
    if (static_cast<u8>(count + delta) != delta)
        return false;
    if (!(read_once(ifp->if_flags) & TARN_IF_F_AGG_DYNAMIC))
        set_bits(ifp->flags, IFF_RUNNING);
    return true;
}

i32 _tarn_ifmgr_op_count_update(tarn_if *ifp, u32 op, u32 delta, _batch *batch) {
    u32 ways = ifp->walk_ways;
    bool edge = op == TARN_OP_LOWER ? _lower(ifp, delta, ways) : _raise(ifp, delta, ways);
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
i32 _tarn_ifmgr_op_count_walk(tarn_if *ifp, u32 op, u32 delta, _batch *batch) {
    if (!ifp)
        return TARN_ERR_BAD_ARG;
    if (delta == 0)
        return 0;
    for (tarn_if *at = tarn_ifmgr_walk_up(ifp); at; at = at->walk_next)
        _tarn_ifmgr_op_count_update(at, op, delta, batch);
    return 0;
}

// Of those above only aggregators are the chip's matter.
void _follow(tarn_if *ifp) {
    for (const tarn_if *at = tarn_ifmgr_walk_up(ifp); at; at = at->walk_next)
        if (at->type == TARN_IF_TYPE_SWITCHPORT)
            tarn_follow(at);
}

} // namespace

i32 _tarn_ifmgr_op_count_post(tarn_if *ifp, u32 op, u32 delta) {
    _batch batch = nullptr;
    tarn_ifmgr_change_begin();
    read_lock_bh(&tarn_if_db_lock);
    i32 result = _tarn_ifmgr_op_count_walk(ifp, op, delta, &batch);
    read_unlock_bh(&tarn_if_db_lock);
    if (ifp && delta != 0)
        _follow(ifp);
    tarn_ifmgr_change_end();
    if (result < 0) {
        pr_err("Failed to update op count ret %d\n", result);
        return result;
    }
    tarn_ifmgr_update_queue(batch);
    return 0;
}
