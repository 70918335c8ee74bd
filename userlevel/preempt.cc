#include "kernel/preempt.h"

constinit thread_local u32 userlevel::preempt_depth = 0;
