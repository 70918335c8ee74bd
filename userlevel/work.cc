#include "kernel/work.h"

#include "control.h"
#include "kernel/bug.h"
#include "kernel/preempt.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

std::mutex queue_mutex;
// Never destroyed: the thread that waits for work outlives main().
std::condition_variable &queued = *new std::condition_variable;
// Of the thread that works, while it has nothing to do; never destroyed, either.
std::condition_variable &idle = *new std::condition_variable;
work_item *first = nullptr;
u32 done = 0;
bool has_thread = false, is_working = false;

// With the queue's mutex, which is dropped while the work runs. No item runs twice at once: only
// one thread runs any.
void run_queued(std::unique_lock<std::mutex> &guard) {
    while (work_item *work = first) {
        first = work->next;
        work->queued = false;
        guard.unlock();
        work->run(work);
        guard.lock();
        done++;
    }
}

} // namespace

bool schedule_work_unbound(work_item *work) {
    std::lock_guard guard(queue_mutex);
    if (work->queued)
        return false;
    work->queued = true;
    work->next = nullptr;
    work_item **end = &first;
    while (*end)
        end = &(*end)->next;
    *end = work;
    queued.notify_one();
    return true;
}

// Whoever asks for a mutex may have to wait, so a caller that must not sleep is stopped here.
void mutex_lock(mutex *lock) {
    if (preempt_count() != 0 || !lock->is_set_up || pthread_mutex_lock(&lock->lock) != 0)
        BUG();
}

void mutex_unlock(mutex *lock) {
    if (pthread_mutex_unlock(&lock->lock) != 0)
        BUG();
}

namespace userlevel {

u32 work_run() {
    std::unique_lock guard(queue_mutex);
    u32 before = done;
    if (has_thread)
        idle.wait(guard, [] { return !first && !is_working; });
    else
        run_queued(guard);
    return done - before;
}

void work_thread_start() {
    std::lock_guard starting(queue_mutex);
    has_thread = true;
    std::thread([] {
        std::unique_lock guard(queue_mutex);
        for (;;) {
            queued.wait(guard, [] { return first != nullptr; });
            is_working = true;
            run_queued(guard);
            is_working = false;
            idle.notify_all();
        }
    }).detach();
}

} // namespace userlevel
