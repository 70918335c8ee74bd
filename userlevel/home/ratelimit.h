#pragma once

#include <pthread.h>

// Zeroed storage is a limiter that lets everything pass.
struct ratelimit_state {
    pthread_mutex_t lock;
    int interval;
    int burst;
    int printed;
    int missed;
    unsigned long begin;
};

inline void ratelimit_state_init(ratelimit_state *state, int interval, int burst) {
    *state = {};
    state->interval = interval;
    state->burst = burst;
}

inline int ratelimit_missed(const ratelimit_state *state) {
    return __atomic_load_n(&state->missed, __ATOMIC_RELAXED);
}

inline int ratelimit_interval(const ratelimit_state *state) {
    return __atomic_load_n(&state->interval, __ATOMIC_RELAXED);
}

inline int ratelimit_burst(const ratelimit_state *state) {
    return __atomic_load_n(&state->burst, __ATOMIC_RELAXED);
}

inline void ratelimit_set_interval(ratelimit_state *state, int interval) {
    __atomic_store_n(&state->interval, interval, __ATOMIC_RELAXED);
}

inline void ratelimit_set_burst(ratelimit_state *state, int burst) {
    __atomic_store_n(&state->burst, burst, __ATOMIC_RELAXED);
}

inline bool ratelimit_try_set_interval(ratelimit_state *state, int interval) {
    if (pthread_mutex_trylock(&state->lock) != 0)
        return false;
    ratelimit_set_interval(state, interval);
    pthread_mutex_unlock(&state->lock);
    return true;
}

inline bool ratelimit_try_set_burst(ratelimit_state *state, int burst) {
    if (pthread_mutex_trylock(&state->lock) != 0)
        return false;
    ratelimit_set_burst(state, burst);
    pthread_mutex_unlock(&state->lock);
    return true;
}
