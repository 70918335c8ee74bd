// Reference counts that never wrap: an impossible step is reported and the count saturates.
//
//   refcount_inc_not_zero(count)   false when the count is 0 (the object is going away)
//   refcount_dec(count)            the value before the step, fully ordered
#pragma once

#include "kernel/types.h"

struct refcount_t {
    i32 refs;
};

enum refcount_saturation_type {
    REFCOUNT_ADD_NOT_ZERO_OVF,
    REFCOUNT_ADD_OVF,
    REFCOUNT_ADD_UAF,
    REFCOUNT_SUB_UAF,
    REFCOUNT_DEC_LEAK,
};

extern "C" void refcount_warn_saturate(refcount_t *count, refcount_saturation_type what);

inline void refcount_set(refcount_t *count, i32 value) {
    __atomic_store_n(&count->refs, value, __ATOMIC_RELAXED);
}

inline i32 refcount_read(const refcount_t *count) {
    return __atomic_load_n(&count->refs, __ATOMIC_RELAXED);
}

inline bool refcount_inc_not_zero(refcount_t *count) {
    i32 old = refcount_read(count);
    do {
        if (old == 0)
            return false;
    } while (!__atomic_compare_exchange_n(&count->refs, &old,
                                          static_cast<i32>(static_cast<u32>(old) + 1), true,
                                          __ATOMIC_RELAXED, __ATOMIC_RELAXED));
    if (old < 0 || old == __INT32_MAX__)
        refcount_warn_saturate(count, REFCOUNT_ADD_NOT_ZERO_OVF);
    return true;
}

inline void refcount_inc(refcount_t *count) {
    i32 old = __atomic_fetch_add(&count->refs, 1, __ATOMIC_RELAXED);
    if (old == 0)
        refcount_warn_saturate(count, REFCOUNT_ADD_UAF);
    else if (old < 0 || old == __INT32_MAX__)
        refcount_warn_saturate(count, REFCOUNT_ADD_OVF);
}

inline i32 refcount_dec(refcount_t *count) {
    return __atomic_fetch_sub(&count->refs, 1, __ATOMIC_SEQ_CST);
}
