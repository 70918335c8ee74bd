// The kernel's limiter for log lines: at most `burst` in `interval` jiffies.
//
//   ratelimit_state_init(state, interval, burst)
//   ___ratelimit(state, caller)   1 to print, 0 to keep silent; when an interval ends in which
//   lines
//                                 were kept back, logs "<caller>: <n> callbacks suppressed\n"
//   ratelimit_missed(state)       lines kept back in this interval, read without the lock
//   ratelimit_interval(state), ratelimit_burst(state), and their setters
//   ratelimit_try_set_interval, ratelimit_try_set_burst
//                                 the same under the limiter's lock: false, and nothing changed,
//                                 when somebody has it
#pragma once

struct ratelimit_state;

extern "C" int ___ratelimit(ratelimit_state *state, const char *caller);

void ratelimit_state_init(ratelimit_state *state, int interval, int burst);
int ratelimit_missed(const ratelimit_state *state);
int ratelimit_interval(const ratelimit_state *state);
int ratelimit_burst(const ratelimit_state *state);
void ratelimit_set_interval(ratelimit_state *state, int interval);
void ratelimit_set_burst(ratelimit_state *state, int burst);
bool ratelimit_try_set_interval(ratelimit_state *state, int interval);
bool ratelimit_try_set_burst(ratelimit_state *state, int burst);

#include "home/ratelimit.h"
