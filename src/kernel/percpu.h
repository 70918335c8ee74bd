// Words that each CPU has for itself: counters that several CPUs raise and none waits for.
//
// What is counted stands on lines of the CPU that counts, and is summed up by who looks. Raising a
// word is one step for everybody on the same CPU, so no count is lost and no old number is written
// over a newer one, whoever interrupts whom.
//
//   alloc_percpu_gfp<record>(flags)
//                                  a record of words for each CPU, all 0; null on failure. What it
//                                  gives names the words and is not read itself.
//   free_percpu(record)            null is ignored
//   this_cpu_add(&record->word, n), this_cpu_inc(&record->word)
//   percpu_sum(&record->word)      what all CPUs have; of a word that only grows it never falls
//   this_cpu_add_return(&record->word, n), this_cpu_read, this_cpu_write
//                                  what this CPU has, for itself alone
//
// A word that is summed up is a u32, one that is looked at by its CPU a u64.
#pragma once

#include "kernel/types.h"

inline constexpr std::size_t PERCPU_LINE = 64;

extern "C" {
void *__alloc_percpu_gfp(std::size_t bytes, std::size_t align, gfp_t flags);
void free_percpu(void *record);
}

#include "home/percpu.h"

template <typename Record>
Record *alloc_percpu_gfp(gfp_t flags) {
    return static_cast<Record *>(__alloc_percpu_gfp(sizeof(Record), PERCPU_LINE, flags));
}

inline void this_cpu_inc(u32 *word) {
    this_cpu_add(word, 1);
}

// What a word that only grows has grown by since it was last asked so, with the same `summed_up`.
inline u32 percpu_grown(const u32 *word, u32 *summed_up) {
    u32 now = percpu_sum(word), before = *summed_up;
    *summed_up = now;
    return now - before;
}
