#pragma once

#include "trace_glue.h"

inline bool trace_redirect_wanted() {
    return __atomic_load_n(&tarn_k_trace_wanted, __ATOMIC_RELAXED) != 0;
}
inline void trace_redirect(const redirect_event *event) {
    tarn_k_trace_redirect(event);
}
