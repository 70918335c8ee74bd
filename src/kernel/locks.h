// Reader-writer locks with bottom halves off, and what a build that looks for mistakes asserts of
// locks.
//
// Readers may nest. A lock has static storage and is set up by rwlock_init before its first use;
// its name is what a lock report prints.
//
//   rwlock_init(lock, name)
//   read_lock_bh(lock), read_unlock_bh(lock)
//   write_lock_bh(lock), write_unlock_bh(lock)
//   lockdep_is_held(lock)        whether the caller has it, for reading or for writing
//   lockdep_assert(condition)    stops or warns when it does not hold
//
// The last two are for kernels that prove locks, and for processes built with a sanitizer
// (LOCKDEP). Elsewhere nobody keeps account, and the condition is not looked at.
#pragma once

struct rwlock_t;

void rwlock_init(rwlock_t *lock, const char *name);
void read_lock_bh(rwlock_t *lock);
void read_unlock_bh(rwlock_t *lock);
void write_lock_bh(rwlock_t *lock);
void write_unlock_bh(rwlock_t *lock);
bool lockdep_is_held(const rwlock_t *lock);

#include "home/locks.h" // LOCKDEP, lockdep_failed()

#define lockdep_assert(condition)                                                                  \
    do {                                                                                           \
        if constexpr (LOCKDEP)                                                                     \
            if (!(condition))                                                                      \
                lockdep_failed(__FILE__, __LINE__);                                                \
    } while (false)
