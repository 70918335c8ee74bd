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
work_item *first = nullptr;

work_item *take() {
    work_item *work = first;
    if (!work)
        return nullptr;
    first = work->next;
    work->queued = false;
    return work;
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
    if (preempt_count() != 0 || pthread_mutex_lock(&lock->lock) != 0)
        BUG();
}

void mutex_unlock(mutex *lock) {
    pthread_mutex_unlock(&lock->lock);
}

namespace userlevel {

u32 work_run() {
    u32 done = 0;
    std::unique_lock guard(queue_mutex);
    while (work_item *work = take()) {
        guard.unlock();
        work->run(work);
        done++;
        guard.lock();
    }
    return done;
}

void work_thread_start() {
    std::thread([] {
        std::unique_lock guard(queue_mutex);
        for (;;) {
            queued.wait(guard, [] { return first != nullptr; });
            work_item *work = take();
            guard.unlock();
            work->run(work);
            guard.lock();
        }
    }).detach();
}

} // namespace userlevel
