#pragma once

#include "kernel/bug.h"

namespace userlevel {
extern constinit thread_local u32 preempt_depth;
}

inline u32 preempt_count() {
    return userlevel::preempt_depth;
}
inline const void *current_task() {
    return &userlevel::preempt_depth;
}
inline void local_bh_disable() {
    userlevel::preempt_depth += SOFTIRQ_DISABLE_OFFSET;
}
inline void local_bh_enable() {
    if (userlevel::preempt_depth < SOFTIRQ_DISABLE_OFFSET)
        BUG(); // an unlock without its lock
    userlevel::preempt_depth -= SOFTIRQ_DISABLE_OFFSET;
}
