#pragma once

#include <pthread.h>

#include "kernel/bug.h"
#include "kernel/preempt.h"

// Zeroed storage is a lock ready for use. Readers are preferred, so that they may nest. Whoever
// asks for a lock that it holds for writing would wait for ever in a kernel, and is stopped here.
struct rwlock_t {
    pthread_rwlock_t lock;
};

#ifdef TARN_LOCKDEP
inline constexpr bool LOCKDEP = true;
#else
inline constexpr bool LOCKDEP = false;
#endif

namespace userlevel {
void lock_set_up(const char *name); // control.h: locks_set_up
// The account of what the thread holds.
void lock_taken(const rwlock_t *lock);
void lock_dropped(const rwlock_t *lock);
} // namespace userlevel

inline void lockdep_failed(const char *file, int line) {
    kernel_bug(file, line);
}

inline void rwlock_init(rwlock_t *, const char *name) {
    userlevel::lock_set_up(name);
}

inline void read_lock_bh(rwlock_t *lock) {
    local_bh_disable();
    if (pthread_rwlock_rdlock(&lock->lock) != 0)
        BUG();
    if constexpr (LOCKDEP)
        userlevel::lock_taken(lock);
}

inline void read_unlock_bh(rwlock_t *lock) {
    if constexpr (LOCKDEP)
        userlevel::lock_dropped(lock);
    pthread_rwlock_unlock(&lock->lock);
    local_bh_enable();
}

inline void write_lock_bh(rwlock_t *lock) {
    local_bh_disable();
    if (pthread_rwlock_wrlock(&lock->lock) != 0)
        BUG();
    if constexpr (LOCKDEP)
        userlevel::lock_taken(lock);
}

inline void write_unlock_bh(rwlock_t *lock) {
    read_unlock_bh(lock);
}
