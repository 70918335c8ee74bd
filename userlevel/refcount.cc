#include "kernel/refcount.h"

#include "kernel/log.h"

#include <climits>

namespace {

const char *message(refcount_saturation_type what) {
    switch (what) {
    case REFCOUNT_ADD_NOT_ZERO_OVF:
    case REFCOUNT_ADD_OVF:
        return "saturated; leaking memory";
    case REFCOUNT_ADD_UAF:
        return "addition on 0; use-after-free";
    case REFCOUNT_SUB_UAF:
        return "underflow; use-after-free";
    case REFCOUNT_DEC_LEAK:
        return "decrement hit 0; leaking memory";
    }
    return "unknown saturation event!?";
}

} // namespace

void refcount_warn_saturate(refcount_t *count, refcount_saturation_type what) {
    refcount_set(count, INT_MIN / 2);
    pr_warn("refcount_t: %s.\n", message(what));
}
