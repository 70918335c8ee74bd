#include "ifmgr/tarn_ifmgr_update.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

constinit tarn_ifmgr_update_data update_data{};

namespace {

tarn_ifmgr_list_node *_take_all() {
    mutex_lock(&update_data.update_lock);
    tarn_ifmgr_list_node *list = update_data.list;
    update_data.list = nullptr;
    mutex_unlock(&update_data.update_lock);
    return list;
}

void _update(tarn_if *ifp) {
    if (ifp->type != TARN_IF_TYPE_VLAN)
        return;
    if (read_once(ifp->oper_count) != 0)
        tarn_os_l3_if_flags_set(ifp, IFF_RUNNING);
    else
        tarn_os_l3_if_flags_unset(ifp, IFF_RUNNING);
}

} // namespace

void tarn_ifmgr_update_init() {
    mutex_init(&update_data.update_lock, "update_lock");
    work_init(&update_data.work, do_process_work);
    update_data.list = nullptr;
}

void tarn_ifmgr_update_queue(tarn_ifmgr_list_node *batch) {
    mutex_lock(&update_data.update_lock);
    tarn_ifmgr_list_node **end = &update_data.list;
    while (*end)
        end = &(*end)->next;
    *end = batch;
    mutex_unlock(&update_data.update_lock);
    schedule_work_unbound(&update_data.work);
}

void do_process_work(work_item *) {
    tarn_ifmgr_list_node *next;
    for (tarn_ifmgr_list_node *node = _take_all(); node; node = next) {
        next = node->next;
        tarn_if *ifp = node->ifp;
        // The record is held, its device is not: a record that replaces it may have it by now, and
        // may be gone with it.
        tarn_ifmgr_change_begin();
        _update(ifp);
        tarn_ifmgr_change_end();
        kmem_cache_free(tarn_ifmgr_list_node_cache, node);
        _tarn_ifmgr_if_put(ifp);
    }
}
