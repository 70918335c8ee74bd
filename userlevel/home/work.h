#pragma once

#include <pthread.h>

struct work_item {
    void (*run)(work_item *work);
    work_item *next; // in the queue
    bool queued;
};

// Zeroed storage is a mutex ready for use.
struct mutex {
    pthread_mutex_t lock;
};

inline void work_init(work_item *work, void (*run)(work_item *work)) {
    *work = {.run = run, .next = nullptr, .queued = false};
}

inline void mutex_init(mutex *, const char *) {}
