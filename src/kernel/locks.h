// Reader-writer locks with bottom halves off.
//
// Readers may nest. A lock has static storage and is set up by rwlock_init before its first use;
// its name is what a lock report prints.
//
//   rwlock_init(lock, name)
//   read_lock_bh(lock), read_unlock_bh(lock)
//   write_lock_bh(lock), write_unlock_bh(lock)
#pragma once

struct rwlock_t;

void rwlock_init(rwlock_t *lock, const char *name);
void read_lock_bh(rwlock_t *lock);
void read_unlock_bh(rwlock_t *lock);
void write_lock_bh(rwlock_t *lock);
void write_unlock_bh(rwlock_t *lock);

#include "home/locks.h"
