// Whether the caller may sleep, who it is, and bottom halves off on this CPU.
//
//   preempt_count()      0 when the caller may sleep
//   current_task()       who runs here: to be compared, not to be followed
//   local_bh_disable()   adds SOFTIRQ_DISABLE_OFFSET to the count
//   local_bh_enable()    takes it off again
#pragma once

#include "kernel/types.h"

inline constexpr u32 SOFTIRQ_DISABLE_OFFSET = 0x200;

u32 preempt_count();
const void *current_task();
void local_bh_disable();
void local_bh_enable();

#include "home/preempt.h"
