// Deferred work and the mutex that goes with it: process context, where one may sleep.
//
// Work and mutex have static storage and are set up once, by work_init and mutex_init.
//
//   schedule_work_unbound(work)   queues it on the system's queue, on whatever CPU is free; false
//   when
//                                 it was queued already. It runs once for each time it is queued,
//                                 never twice at once.
#pragma once

struct work_item;
struct mutex;

void work_init(work_item *work, void (*run)(work_item *work));
bool schedule_work_unbound(work_item *work);

void mutex_init(mutex *lock, const char *name);
void mutex_lock(mutex *lock);
void mutex_unlock(mutex *lock);

#include "home/work.h"
