#include "ifmgr/tarn_ifmgr_update.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/once.h"
#include "kernel/preempt.h"

constinit tarn_ifmgr_update_data update_data{};

namespace {

constinit tarn_if *_retired = nullptr; // newest first
constinit work_item _retire_work{};
// Held while destructors run, over a creation, and while a device is told of its interface's state.
constinit mutex _retire_lock{};
constinit u8 _retire_locked = 0;

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

void _destroy(tarn_if *ifp) {
    ifp->destructor(ifp);
    // The last touch: from here on an install may take or free the record's memory.
    __atomic_and_fetch(&ifp->if_flags, ~TARN_IF_F_VALID, __ATOMIC_RELEASE);
}

void _lock() {
    mutex_lock(&_retire_lock);
    write_once(_retire_locked, 1);
}

void _unlock() {
    write_once(_retire_locked, 0);
    mutex_unlock(&_retire_lock);
}

// A destructor may drop other last references: they join the queue.
void _run_waiting() {
    tarn_if *next = nullptr;
    while ((next = __atomic_exchange_n(&_retired, nullptr, __ATOMIC_ACQUIRE)))
        while (tarn_if *ifp = next) {
            next = ifp->retired_next;
            _destroy(ifp);
        }
}

void _retire_now() {
    _lock();
    _run_waiting();
    _unlock();
}

void _run_retired(work_item *) {
    _retire_now();
}

void _queue(tarn_if *ifp) {
    tarn_if *head = read_once(_retired);
    do {
        ifp->retired_next = head;
    } while (!__atomic_compare_exchange_n(&_retired, &head, ifp, true, __ATOMIC_RELEASE,
                                          __ATOMIC_RELAXED));
}

} // namespace

void tarn_ifmgr_update_init() {
    mutex_init(&update_data.update_lock, "update_lock");
    mutex_init(&_retire_lock, "retire_lock");
    work_init(&update_data.work, do_process_work);
    work_init(&_retire_work, _run_retired);
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
        _lock();
        _update(ifp);
        _unlock();
        kmem_cache_free(tarn_ifmgr_list_node_cache, node);
        _tarn_ifmgr_if_put(ifp);
    }
}

// Whoever holds the lock may be this very caller, in a destructor: the work item comes after it.
void tarn_ifmgr_retire(tarn_if *ifp, bool may_sleep) {
    _queue(ifp);
    if (may_sleep && preempt_count() == 0 && !read_once(_retire_locked))
        _retire_now();
    else
        schedule_work_unbound(&_retire_work);
}

void tarn_ifmgr_creation_begin() {
    _lock();
    _run_waiting();
}

void tarn_ifmgr_creation_end() {
    _run_waiting();
    _unlock();
}
