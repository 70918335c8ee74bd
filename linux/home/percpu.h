#pragma once

#include "glue.h"

inline void this_cpu_add(u32 *word, u32 more) {
    tarn_k_this_cpu_add(word, more);
}
inline u32 percpu_sum(const u32 *word) {
    return tarn_k_percpu_sum(word);
}
inline u64 this_cpu_add_return(u64 *word, u64 more) {
    return tarn_k_this_cpu_add_return(word, more);
}
inline u64 this_cpu_read(u64 *word) {
    return tarn_k_this_cpu_read(word);
}
inline void this_cpu_write(u64 *word, u64 value) {
    tarn_k_this_cpu_write(word, value);
}
