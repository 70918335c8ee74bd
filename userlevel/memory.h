// Every allocation of the home goes through here, so that each can fail and all can be listed.
#pragma once

#include "kernel/types.h"

#if defined(__SANITIZE_ADDRESS__)
#define TARN_UNDER_ASAN true
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARN_UNDER_ASAN true
#endif
#endif
#ifndef TARN_UNDER_ASAN
#define TARN_UNDER_ASAN false
#endif

namespace userlevel {

inline constexpr bool UNDER_ASAN = TARN_UNDER_ASAN;

// The most that a kernel hands out in one piece.
inline constexpr std::size_t LARGEST_ALLOCATION = 4 << 20;

// Null when the test wants it so, or when memory is out. `site` is the caller's return address.
// The bytes end where the block of the process ends, so that the address sanitizer sees a step past
// them.
void *allocate(const char *kind, std::size_t bytes, gfp_t flags, const void *site);
// The same for what comes and goes with frames: blocks that a thread has released serve it again,
// without a lock. Under a sanitizer they do not, so that it sees who uses one that is released.
void *allocate_pooled(const char *kind, std::size_t bytes, gfp_t flags, const void *site);
// What is allocated has one holder. The last one to release it frees it; null is ignored.
void hold(const void *memory);
void release(const void *memory);
void release(const void *first, const void *second); // both, with one look at the list
// Whether it was allocated as this kind: the same pointer, not the same text.
bool is_kind(const void *memory, const char *kind);

// Numbers of the home's own that each thread counts up for itself (percpu_add): they stay for ever,
// and are on no list.
u64 *percpu_numbers(std::size_t count);
u64 percpu_total(const u64 *number);

// Marks bytes that nobody may touch, for the address sanitizer; nothing without it.
void forbid(const void *from, const void *to);
void allow(const void *from, const void *to);

} // namespace userlevel
