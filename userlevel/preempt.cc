#include "kernel/preempt.h"

#include "control.h"

#include <algorithm>
#include <linux/membarrier.h>
#include <mutex>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

constinit thread_local u32 userlevel::preempt_depth = UNLISTED;

namespace {

// Never destroyed: threads may outlive main().
std::mutex &list_mutex = *new std::mutex;
std::vector<const u32 *> &threads = *new std::vector<const u32 *>;

struct leave_at_end {
    const u32 *depth;
    ~leave_at_end() {
        std::lock_guard guard(list_mutex);
        std::erase(threads, depth);
    }
};

// Every thread of the process finishes what it has begun to write and to read. Readers pay nothing
// for that; where the machine has no such call, waiting for a while does it too.
void barrier_for_all() {
    constexpr unsigned long_enough = 1000;
    static const bool has_call =
        syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
    if (!has_call || syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) != 0)
        usleep(long_enough);
}

bool is_off(const u32 *depth) {
    return (__atomic_load_n(depth, __ATOMIC_ACQUIRE) & ~userlevel::UNLISTED) != 0;
}

} // namespace

void userlevel::preempt_list_thread() {
    thread_local const leave_at_end end{&preempt_depth};
    {
        std::lock_guard guard(list_mutex);
        threads.push_back(end.depth);
    }
    preempt_add(UNLISTED); // takes the bit off
}

void userlevel::wait_for_bottom_halves() {
    if (preempt_count() != 0)
        BUG();
    barrier_for_all();
    {
        std::lock_guard guard(list_mutex);
        for (const u32 *depth : threads)
            while (is_off(depth))
                usleep(10);
    }
    barrier_for_all();
}
