#include "kernel/ratelimit.h"

#include "kernel/log.h"
#include "kernel/time.h"

namespace {

// Written under the lock, read without it by those who ask how many lines were missed.
void store(int &word, int value) {
    __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

void begin_interval(ratelimit_state *state, const char *caller, unsigned long now) {
    if (state->missed != 0) {
        pr_warn("%s: %d callbacks suppressed\n", caller, state->missed);
        store(state->missed, 0);
    }
    state->begin = now;
    state->printed = 0;
}

} // namespace

int ___ratelimit(ratelimit_state *state, const char *caller) {
    int interval = ratelimit_interval(state);
    int burst = ratelimit_burst(state);
    if (interval == 0)
        return 1;
    // Whoever holds the lock is about to print: two lines at once would be too busy anyway.
    if (pthread_mutex_trylock(&state->lock) != 0)
        return 0;

    unsigned long now = get_jiffies();
    if (state->begin == 0)
        state->begin = now;
    if (static_cast<long>(state->begin + static_cast<unsigned long>(interval) - now) < 0)
        begin_interval(state, caller, now);

    int may_print = burst > state->printed;
    if (may_print)
        state->printed++;
    else
        store(state->missed, state->missed + 1);
    pthread_mutex_unlock(&state->lock);
    return may_print;
}
