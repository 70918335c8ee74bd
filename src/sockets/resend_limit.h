// A limit on frames that are sent on in software: so many in a second, of all ports together.
#pragma once

#include "kernel/once.h"
#include "kernel/time.h"
#include "kernel/types.h"

// Words that CPUs share without a lock: a frame more or less is accepted.
struct resend_limit {
    u32 start; // of the window, jiffies
    u32 count;
};

inline constexpr u32 RESEND_WINDOW = 101; // jiffies

// Whether one more of at most `most` in a window may go.
inline bool resend_passes(resend_limit *limit, u32 most) {
    u32 now = static_cast<u32>(get_jiffies());
    if (now - read_once(limit->start) >= RESEND_WINDOW) {
        write_once(limit->start, now);
        write_once(limit->count, 0);
    }
    return read_once(limit->count) < most && count_in(limit->count, 1) <= most;
}
