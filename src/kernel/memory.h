// Memory. Every allocation can fail; a test can make the n-th one fail.
//
//   __kmalloc(bytes, flags)          null on failure
//   kfree(object)                    null is ignored
//   kmem_cache_create(name, size, align, flags, constructor), kmem_cache_alloc, kmem_cache_free
//                                    a cache of objects of one size; null on failure
//   gfp_here()                       GFP_ATOMIC where the caller must not sleep, else GFP_KERNEL
#pragma once

#include "kernel/preempt.h"
#include "kernel/types.h"

#include "home/memory.h" // GFP_KERNEL, GFP_ATOMIC, __GFP_ZERO

struct kmem_cache;

inline constexpr unsigned SLAB_NOLEAKTRACE = 0x800000;

extern "C" {
void *__kmalloc(std::size_t bytes, gfp_t flags);
void kfree(const void *object);
kmem_cache *kmem_cache_create(const char *name, unsigned size, unsigned align, unsigned flags,
                              void (*constructor)(void *));
void *kmem_cache_alloc(kmem_cache *cache, gfp_t flags);
void kmem_cache_free(kmem_cache *cache, void *object);
}

inline gfp_t gfp_here() {
    return preempt_count() != 0 ? GFP_ATOMIC : GFP_KERNEL;
}
