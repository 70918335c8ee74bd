#pragma once

#include "glue.h"

inline u32 preempt_count() {
    return tarn_k_preempt_count();
}
inline const void *current_task() {
    return tarn_k_current();
}
inline void local_bh_disable() {
    tarn_k_local_bh_disable();
}
inline void local_bh_enable() {
    tarn_k_local_bh_enable();
}
