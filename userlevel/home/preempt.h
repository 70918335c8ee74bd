#pragma once

#include "kernel/bug.h"

namespace userlevel {

// Of each thread, for it alone to write and for others to look at, who wait until it has bottom
// halves on (userlevel/preempt.cc). The last bit is of one that is not listed among them yet.
extern constinit thread_local u32 preempt_depth;
inline constexpr u32 UNLISTED = 0x80000000;
void preempt_list_thread();

// What is read with bottom halves off is read after they went off and before they go on. This is
// the compiler's part of it; the processor's is for who waits.
inline void preempt_barrier() {
    asm volatile("" ::: "memory");
}

inline u32 preempt_add(u32 more) {
#ifdef __SANITIZE_THREAD__
    u32 depth = preempt_depth + more;
    __atomic_store_n(&preempt_depth, depth, __ATOMIC_RELEASE);
    return depth;
#else
    return preempt_depth += more;
#endif
}

} // namespace userlevel

inline u32 preempt_count() {
    return userlevel::preempt_depth & ~userlevel::UNLISTED;
}
inline const void *current_task() {
    return &userlevel::preempt_depth;
}
inline void local_bh_disable() {
    userlevel::preempt_barrier();
    if (userlevel::preempt_add(SOFTIRQ_DISABLE_OFFSET) & userlevel::UNLISTED) [[unlikely]]
        userlevel::preempt_list_thread();
    userlevel::preempt_barrier();
}
inline void local_bh_enable() {
    if (static_cast<i32>(userlevel::preempt_depth) < static_cast<i32>(SOFTIRQ_DISABLE_OFFSET))
        BUG(); // an unlock without its lock
    userlevel::preempt_barrier();
    userlevel::preempt_add(-SOFTIRQ_DISABLE_OFFSET);
    userlevel::preempt_barrier();
}
