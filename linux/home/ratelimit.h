#pragma once

#include "glue.h"
#include "home/field.h"

struct ratelimit_state {
    alignas(8) unsigned char state[TARN_RATELIMIT_SIZE];
};

inline void ratelimit_state_init(ratelimit_state *state, int interval, int burst) {
    tarn_k_ratelimit_init(state, interval, burst);
}
inline int ratelimit_missed(const ratelimit_state *state) {
    return __atomic_load_n(&home::field<int>(state, TARN_RATELIMIT_MISSED), __ATOMIC_RELAXED);
}
inline int ratelimit_interval(const ratelimit_state *state) {
    return __atomic_load_n(&home::field<int>(state, TARN_RATELIMIT_INTERVAL), __ATOMIC_RELAXED);
}
inline int ratelimit_burst(const ratelimit_state *state) {
    return __atomic_load_n(&home::field<int>(state, TARN_RATELIMIT_BURST), __ATOMIC_RELAXED);
}
inline void ratelimit_set_interval(ratelimit_state *state, int interval) {
    __atomic_store_n(&home::field<int>(state, TARN_RATELIMIT_INTERVAL), interval, __ATOMIC_RELAXED);
}
inline void ratelimit_set_burst(ratelimit_state *state, int burst) {
    __atomic_store_n(&home::field<int>(state, TARN_RATELIMIT_BURST), burst, __ATOMIC_RELAXED);
}
inline bool ratelimit_try_set_interval(ratelimit_state *state, int interval) {
    return tarn_k_ratelimit_try_store(state, &home::field<int>(state, TARN_RATELIMIT_INTERVAL),
                                      interval) != 0;
}
inline bool ratelimit_try_set_burst(ratelimit_state *state, int burst) {
    return tarn_k_ratelimit_try_store(state, &home::field<int>(state, TARN_RATELIMIT_BURST),
                                      burst) != 0;
}
