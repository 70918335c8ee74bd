#pragma once

namespace userlevel {
extern bool trace_on; // somebody watches; set by trace_watch
} // namespace userlevel

inline bool trace_redirect_wanted() {
    return __atomic_load_n(&userlevel::trace_on, __ATOMIC_RELAXED);
}
