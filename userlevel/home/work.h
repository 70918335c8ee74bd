#pragma once

#include "home/locks.h"

struct work_item {
    void (*run)(work_item *work);
    work_item *next; // in the queue
    bool queued;
};

// One that nobody has set up is not used, and nobody gives back what he has not.
struct mutex {
    pthread_mutex_t lock;
    bool is_set_up;
};

inline void work_init(work_item *work, void (*run)(work_item *work)) {
    *work = {.run = run, .next = nullptr, .queued = false};
}

inline void mutex_init(mutex *lock, const char *name) {
    lock->lock = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
    lock->is_set_up = true;
    userlevel::lock_set_up(name);
}
