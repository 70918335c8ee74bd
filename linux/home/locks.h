#pragma once

#include "glue.h"
#include "home/offsets.h"

// The kernel's lock, and the key by which lock proving knows it (nothing in other kernels).
struct rwlock_t {
    alignas(8) unsigned char lock[TARN_RWLOCK_SIZE];
    alignas(8) unsigned char key[TARN_LOCK_KEY_SIZE + 1];
};

extern "C" {
void _raw_read_lock_bh(void *lock);
void _raw_read_unlock_bh(void *lock);
void _raw_write_lock_bh(void *lock);
void _raw_write_unlock_bh(void *lock);
}

// Only a kernel that proves locks has keys for them.
inline constexpr bool LOCKDEP = TARN_LOCK_KEY_SIZE != 0;

inline void rwlock_init(rwlock_t *lock, const char *name) {
    tarn_k_rwlock_init(lock->lock, name, lock->key);
}
inline bool lockdep_is_held(const rwlock_t *lock) {
    return tarn_k_rwlock_is_held(lock->lock) != 0;
}
inline void lockdep_failed(const char *file, int line) {
    tarn_k_lockdep_warn(file, line);
}
inline void read_lock_bh(rwlock_t *lock) {
    _raw_read_lock_bh(lock->lock);
}
inline void read_unlock_bh(rwlock_t *lock) {
    _raw_read_unlock_bh(lock->lock);
}
inline void write_lock_bh(rwlock_t *lock) {
    _raw_write_lock_bh(lock->lock);
}
inline void write_unlock_bh(rwlock_t *lock) {
    _raw_write_unlock_bh(lock->lock);
}
