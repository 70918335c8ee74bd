#include "memory.h"

#include "control.h"
#include "kernel/memory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <random>

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ASAN 1
#endif
#endif
#ifdef UNDER_ASAN
#include <sanitizer/asan_interface.h>

// What the core holds for ever is on the list of what is alive, whose links lie in forbidden
// ground; what leaks of the core's, leaked_since tells. The sanitizer looks after the rest of the
// process.
extern "C" const char *__lsan_default_options() {
    return "use_poisoned=1";
}
#endif

namespace userlevel {

namespace {

// Stands before each block. The list is what is alive, oldest first.
struct alignas(16) header {
    header *next;
    header *previous;
    object about;
};

std::mutex memory_mutex;
constinit header alive{&alive, &alive, {}};
u64 made = 0;
u64 slept_in_atomic = 0;
u64 fail_in = 0;
u32 fail_chance = 0;
std::mt19937_64 fail_generator;

bool shall_fail() {
    if (fail_in != 0 && --fail_in == 0)
        return true;
    return fail_chance != 0 && (fail_generator() & 0xFFFF) < fail_chance;
}

// A list member's neighbours lie before blocks that are forbidden ground for everybody else.
void open(header *one) {
    allow(one, one + 1);
}
void close(header *one) {
    if (one != &alive)
        forbid(one, one + 1);
}

void link(header *one) {
    header *last = alive.previous;
    open(last);
    one->next = &alive;
    one->previous = last;
    last->next = one;
    alive.previous = one;
    close(last);
    close(one);
}

void unlink(header *one) {
    header *previous = one->previous;
    header *next = one->next;
    open(previous);
    open(next);
    previous->next = next;
    next->previous = previous;
    close(previous);
    close(next);
}

std::string name_of(const void *site) {
    Dl_info info{};
    char text[64];
    std::snprintf(text, sizeof(text), "%p", site);
    if (dladdr(site, &info) && info.dli_sname)
        return info.dli_sname;
    return text;
}

} // namespace

void *allocate(const char *kind, std::size_t bytes, gfp_t flags, const void *site) {
    std::lock_guard guard(memory_mutex);
    made++;
    if ((flags & __GFP_DIRECT_RECLAIM) && preempt_count() != 0)
        slept_in_atomic++;
    if (shall_fail())
        return nullptr;
    auto *one = static_cast<header *>(std::malloc(sizeof(header) + bytes));
    if (!one)
        return nullptr;
    void *memory = one + 1;
    if (flags & __GFP_ZERO)
        std::memset(memory, 0, bytes);
    one->about = {kind, bytes, made, flags, memory, site};
    link(one);
    return memory;
}

void release(const void *memory) {
    if (!memory)
        return;
    std::lock_guard guard(memory_mutex);
    auto *one = static_cast<header *>(const_cast<void *>(memory)) - 1;
    open(one);
    unlink(one);
    std::free(one);
}

void forbid([[maybe_unused]] const void *from, [[maybe_unused]] const void *to) {
#ifdef UNDER_ASAN
    __asan_poison_memory_region(from, static_cast<std::size_t>(static_cast<const u8 *>(to) -
                                                               static_cast<const u8 *>(from)));
#endif
}

void allow([[maybe_unused]] const void *from, [[maybe_unused]] const void *to) {
#ifdef UNDER_ASAN
    __asan_unpoison_memory_region(from, static_cast<std::size_t>(static_cast<const u8 *>(to) -
                                                                 static_cast<const u8 *>(from)));
#endif
}

void fail_allocation(u64 n) {
    std::lock_guard guard(memory_mutex);
    fail_in = n;
}

void fail_allocations_at_random(u32 chance, u64 seed) {
    std::lock_guard guard(memory_mutex);
    fail_chance = chance;
    fail_generator.seed(seed);
}

u64 allocations_made() {
    std::lock_guard guard(memory_mutex);
    return made;
}

u64 sleeping_allocations_in_atomic() {
    std::lock_guard guard(memory_mutex);
    return slept_in_atomic;
}

std::vector<object> leaked_since(const snapshot &before) {
    std::lock_guard guard(memory_mutex);
    std::vector<object> found;
    // From the youngest: a test asks often and leaks seldom.
    for (header *one = alive.previous; one != &alive;) {
        open(one);
        header *previous = one->previous;
        bool old = one->about.serial <= before.serial;
        if (!old)
            found.push_back(one->about);
        close(one);
        if (old)
            break;
        one = previous;
    }
    std::reverse(found.begin(), found.end());
    return found;
}

std::vector<object> live() {
    return leaked_since({});
}

snapshot take_snapshot() {
    return {allocations_made()};
}

std::string describe(const std::vector<object> &objects) {
    std::string text;
    for (const object &one : objects)
        text += std::to_string(one.bytes) + " bytes of " + one.kind + ", allocation " +
                std::to_string(one.serial) + ", from " + name_of(one.site) + "\n";
    return text;
}

} // namespace userlevel

struct kmem_cache {
    const char *name;
    unsigned size;
    void (*constructor)(void *);
};

void *__kmalloc(std::size_t bytes, gfp_t flags) {
    return userlevel::allocate("kmalloc", bytes, flags, __builtin_return_address(0));
}

void kfree(const void *memory) {
    userlevel::release(memory);
}

kmem_cache *kmem_cache_create(const char *name, unsigned size, unsigned, unsigned,
                              void (*constructor)(void *)) {
    void *memory = userlevel::allocate("kmem_cache", sizeof(kmem_cache), GFP_KERNEL,
                                       __builtin_return_address(0));
    if (!memory)
        return nullptr;
    auto *cache = static_cast<kmem_cache *>(memory);
    *cache = {name, size, constructor};
    return cache;
}

void *kmem_cache_alloc(kmem_cache *cache, gfp_t flags) {
    void *memory =
        userlevel::allocate(cache->name, cache->size, flags, __builtin_return_address(0));
    if (memory && cache->constructor)
        cache->constructor(memory);
    return memory;
}

void kmem_cache_free(kmem_cache *, void *memory) {
    userlevel::release(memory);
}
