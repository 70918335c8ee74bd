#pragma once

#include "glue.h"
#include "home/offsets.h"

struct work_item {
    alignas(8) unsigned char work[TARN_WORK_SIZE];
};

struct mutex {
    alignas(8) unsigned char lock[TARN_MUTEX_SIZE];
    alignas(8) unsigned char key[TARN_LOCK_KEY_SIZE + 1];
};

inline void work_init(work_item *work, void (*run)(work_item *work)) {
    tarn_k_work_init(work, reinterpret_cast<void (*)(void *)>(run));
}
inline bool schedule_work_unbound(work_item *work) {
    return tarn_k_schedule_work_unbound(work) != 0;
}
inline void mutex_init(mutex *lock, const char *name) {
    tarn_k_mutex_init(lock->lock, name, lock->key);
}
inline void mutex_lock(mutex *lock) {
    tarn_k_mutex_lock(lock->lock);
}
inline void mutex_unlock(mutex *lock) {
    tarn_k_mutex_unlock(lock->lock);
}
