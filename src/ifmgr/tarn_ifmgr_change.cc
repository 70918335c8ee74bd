#include "ifmgr/tarn_ifmgr_change.h"

#include "ifmgr/tarn_ifmgr.h"
#include "kernel/once.h"
#include "kernel/preempt.h"
#include "kernel/work.h"

namespace {

constinit mutex _change_lock{};
constinit const void *_changing = nullptr; // the task that holds the lock
constinit u32 _depth = 0;                  // its own

constinit tarn_if *_retired = nullptr; // newest first
constinit work_item _retire_work{};

void _destroy(tarn_if *ifp) {
    ifp->destructor(ifp);
    // The last touch: from here on an install may take or free the record's memory.
    __atomic_and_fetch(&ifp->if_flags, ~TARN_IF_F_VALID, __ATOMIC_RELEASE);
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
    tarn_ifmgr_change_begin();
    tarn_ifmgr_change_end();
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

void tarn_ifmgr_change_init() {
    mutex_init(&_change_lock, "tarn_ifmgr_change");
    work_init(&_retire_work, _run_retired);
}

void tarn_ifmgr_change_begin() {
    if (tarn_ifmgr_is_changing()) {
        _depth++;
        return;
    }
    mutex_lock(&_change_lock);
    _depth = 1;
    write_once(_changing, current_task());
    _run_waiting();
}

void tarn_ifmgr_change_end() {
    if (_depth == 1)
        _run_waiting();
    if (--_depth != 0)
        return;
    write_once(_changing, nullptr);
    mutex_unlock(&_change_lock);
}

// Only the task itself ever writes its own name there.
bool tarn_ifmgr_is_changing() {
    return read_once(_changing) == current_task();
}

bool tarn_ifmgr_may_walk() {
    return tarn_ifmgr_is_changing() || lockdep_is_held(&tarn_if_db_lock);
}

// Whoever is at a change may be this very caller: the work item comes after it.
void tarn_ifmgr_retire(tarn_if *ifp, bool may_sleep) {
    _queue(ifp);
    if (may_sleep && preempt_count() == 0 && !read_once(_changing))
        _retire_now();
    else
        schedule_work_unbound(&_retire_work);
}
