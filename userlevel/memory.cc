#include "memory.h"

#include "control.h"
#include "free_blocks.h"
#include "kernel/bug.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/percpu.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <dlfcn.h>
#include <mutex>
#include <random>

#if TARN_UNDER_ASAN
#include <sanitizer/asan_interface.h>

// What the core holds for ever is on the list of what is alive, whose links lie in forbidden
// ground; what leaks of the core's, leaked_since tells. The sanitizer looks after the rest of the
// process.
extern "C" const char *__lsan_default_options() {
    return "use_poisoned=1";
}
#endif

// For the few that read a block's header, which is forbidden ground for everybody else.
#define READS_HEADERS __attribute__((no_sanitize("address")))

namespace userlevel {

namespace {

struct list;

// Stands before each block. The list is what is alive, oldest first.
struct alignas(16) header {
    header *next;
    header *previous;
    object about;
    i32 holders;
    list *on;
};

// Threads have lists of their own as far as these go, so that they do not wait for each other.
struct alignas(64) list {
    std::mutex mutex;
    header alive;

    constexpr list() : alive{&alive, &alive, {}, 1, this} {}
};
constexpr std::size_t LISTS = 16;
constinit std::array<list, LISTS> lists{};
constinit std::array<list, LISTS> pooled{}; // what is pooled stays on its list while it is kept
std::atomic<std::size_t> threads = 0;

// Numbers allocations and snapshots in their order; what is pooled has the number of what was
// before it, so that threads with frames need not agree.
std::atomic<u64> order = 0;
std::atomic<u64> made = 0; // but for what is pooled
std::atomic<u64> slept_in_atomic = 0;

std::atomic<bool> may_fail = false;
std::mutex fail_mutex;
u64 fail_in = 0;
u32 fail_chance = 0;
std::mt19937_64 fail_generator;

std::size_t place_of_thread() {
    thread_local const std::size_t own = threads.fetch_add(1) % LISTS;
    return own;
}

bool shall_fail() {
    if (!may_fail.load(std::memory_order_relaxed))
        return false;
    std::lock_guard guard(fail_mutex);
    if (fail_in != 0 && --fail_in == 0)
        return true;
    return fail_chance != 0 && (fail_generator() & 0xFFFF) < fail_chance;
}

// A list member's neighbours lie before blocks that are forbidden ground for everybody else.
void open(header *one) {
    allow(one, one + 1);
}
void close(header *one) {
    if (one != &one->on->alive)
        forbid(one, one + 1);
}

void link(header *one) {
    header *end = &one->on->alive;
    header *last = end->previous;
    open(last);
    one->next = end;
    one->previous = last;
    last->next = one;
    end->previous = one;
    close(last);
    close(one);
}

void unlink(header *one) {
    open(one);
    header *previous = one->previous;
    header *next = one->next;
    open(previous);
    open(next);
    previous->next = next;
    next->previous = previous;
    close(previous);
    close(next);
}

header *header_of(const void *memory) {
    return static_cast<header *>(const_cast<void *>(memory)) - 1;
}

READS_HEADERS i32 add_holders(header *one, i32 more) {
    return __atomic_add_fetch(&one->holders, more, __ATOMIC_ACQ_REL);
}

// Best told by the address sanitizer, which knows who freed it first. Without it this is a guess at
// bytes that are not ours any more, but better than a list torn apart.
[[noreturn]] READS_HEADERS void freed_twice(header *one) {
    std::fprintf(stderr, "freed twice: %p, %zu bytes\n", static_cast<void *>(one + 1),
                 one->about.bytes);
    if constexpr (UNDER_ASAN)
        std::free(one);
    BUG();
}

READS_HEADERS list *list_that_has(const header *one) {
    return one->on;
}

// Null is ignored.
void take_off(header *one) {
    if (!one)
        return;
    std::lock_guard guard(list_that_has(one)->mutex);
    unlink(one);
}

// The block, when that was its last holder; else null.
header *let_go(const void *memory) {
    if (!memory)
        return nullptr;
    header *one = header_of(memory);
    i32 left = add_holders(one, -1);
    if (left < 0)
        freed_twice(one);
    return left == 0 ? one : nullptr;
}

// The function where the linker knows it, and always what addr2line wants: file and offset.
std::string name_of(const void *site) {
    // A return address: the call is before it.
    const u8 *call = static_cast<const u8 *>(site) - 1;
    Dl_info info{};
    char text[512];
    if (!dladdr(call, &info) || !info.dli_fname) {
        std::snprintf(text, sizeof(text), "%p", site);
        return text;
    }
    auto offset = static_cast<std::size_t>(call - static_cast<const u8 *>(info.dli_fbase));
    const char *slash = std::strrchr(info.dli_fname, '/');
    std::snprintf(text, sizeof(text), "%s+%#zx", slash ? slash + 1 : info.dli_fname, offset);
    if (!info.dli_sname)
        return text;
    char *readable = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr);
    std::string name = readable ? readable : info.dli_sname;
    std::free(readable);
    return name + " (" + text + ")";
}

std::string line_about(const object &one) {
    char text[160];
    std::snprintf(
        text, sizeof(text), "%zu bytes of %s, allocation %llu, flags %#x, preempt count %#x, from ",
        one.bytes, one.kind, static_cast<unsigned long long>(one.serial), one.flags, one.preempt);
    return text + name_of(one.site) + "\n";
}

// True when it is alive now; false when the test wants it to fail, or when memory was out. Numbers
// are given under the lock, so that each list is in their order.
bool count_and_link(header *one, const object &about) {
    list *on = &lists[place_of_thread()];
    std::lock_guard guard(on->mutex);
    made.fetch_add(1, std::memory_order_relaxed);
    u64 serial = order.fetch_add(1, std::memory_order_relaxed) + 1;
    if (shall_fail() || !one)
        return false;
    one->about = about;
    one->about.serial = serial;
    one->holders = 1;
    one->on = on;
    link(one);
    return true;
}

// A kernel complains too, but only while it is debugged; here a test sees it.
void complain_of_sleep(const char *kind, std::size_t bytes) {
    slept_in_atomic++;
    pr_crit("BUG: an allocation of %zu bytes (%s) may sleep, preempt count %#x\n", bytes, kind,
            preempt_count());
}

// --- what comes and goes with frames -------------------------------------------------------------

u64 *pooled_made() {
    static u64 *const number = percpu_numbers(1);
    return number;
}

constinit thread_local free_blocks kept{};
constinit thread_local bool keeps = false, is_over = false;

void discard(header *one) {
    take_off(one);
    std::free(one);
}

// Frees what a thread has kept when it ends.
struct keeper {
    keeper() { keeps = true; }
    ~keeper() {
        is_over = true;
        for (std::size_t size = 0; size < free_blocks::SIZES; size++)
            while (void *memory = kept.take(size))
                discard(header_of(memory));
    }
};

bool is_pooled(const header *one) {
    return one->on >= pooled.data() && one->on < pooled.data() + LISTS;
}

header *new_pooled(std::size_t size) {
    auto *one = static_cast<header *>(std::malloc(free_blocks::bytes_of(size)));
    if (!one)
        return nullptr;
    one->on = &pooled[place_of_thread()];
    one->holders = 0;
    std::lock_guard guard(one->on->mutex);
    link(one);
    return one;
}

// Null when nothing is to be freed any more.
header *kept_if_pooled(header *one) {
    if (!TARN_POOLED || !one || !is_pooled(one) || is_over)
        return one;
    if (!keeps)
        thread_local keeper at_the_end;
    return kept.keep(free_blocks::size_of(sizeof(header) + one->about.bytes), one + 1) ? nullptr
                                                                                       : one;
}

void find_pooled_since(list *of, u64 serial, std::vector<object> *found) {
    std::lock_guard guard(of->mutex);
    for (header *one = of->alive.next; one != &of->alive; one = one->next)
        if (add_holders(one, 0) > 0 && one->about.serial >= serial)
            found->push_back(one->about);
}

// The young ones of a list.
void find_since(list *of, u64 serial, std::vector<object> *found) {
    std::lock_guard guard(of->mutex);
    // From the youngest: a test asks often and leaks seldom.
    for (header *one = of->alive.previous; one != &of->alive;) {
        open(one);
        header *previous = one->previous;
        bool old = one->about.serial < serial;
        if (!old)
            found->push_back(one->about);
        close(one);
        if (old)
            return;
        one = previous;
    }
}

} // namespace

void *allocate(const char *kind, std::size_t bytes, gfp_t flags, const void *site) {
    if ((flags & __GFP_DIRECT_RECLAIM) && preempt_count() != 0)
        complain_of_sleep(kind, bytes);
    // Outside the lock, and tried even when it is to fail: the lock is held for the list alone.
    header *one = bytes <= LARGEST_ALLOCATION
                      ? static_cast<header *>(std::malloc(sizeof(header) + bytes))
                      : nullptr;
    if (!count_and_link(one, {.kind = kind,
                              .bytes = bytes,
                              .serial = 0,
                              .flags = flags,
                              .preempt = preempt_count(),
                              .address = one ? one + 1 : nullptr,
                              .site = site})) {
        std::free(one);
        return nullptr;
    }
    void *memory = one + 1;
    if (flags & __GFP_ZERO)
        std::memset(memory, 0, bytes);
    return memory;
}

void *allocate_pooled(const char *kind, std::size_t bytes, gfp_t flags, const void *site) {
    const std::size_t size = free_blocks::size_of(sizeof(header) + bytes);
    if (!TARN_POOLED || size == free_blocks::SIZES)
        return allocate(kind, bytes, flags, site);
    if ((flags & __GFP_DIRECT_RECLAIM) && preempt_count() != 0)
        complain_of_sleep(kind, bytes);
    percpu_add(pooled_made(), u64{1});
    if (shall_fail())
        return nullptr;
    void *memory = kept.take(size);
    header *one = memory ? header_of(memory) : new_pooled(size);
    if (!one)
        return nullptr;
    one->about = {.kind = kind,
                  .bytes = bytes,
                  .serial = order.load(std::memory_order_relaxed),
                  .flags = flags,
                  .preempt = preempt_count(),
                  .address = one + 1,
                  .site = site};
    __atomic_store_n(&one->holders, 1, __ATOMIC_RELEASE);
    if (flags & __GFP_ZERO)
        std::memset(one + 1, 0, bytes);
    return one + 1;
}

void hold(const void *memory) {
    add_holders(header_of(memory), 1);
}

void release(const void *memory) {
    release(memory, nullptr);
}

void release(const void *first, const void *second) {
    header *one = kept_if_pooled(let_go(first));
    header *other = kept_if_pooled(let_go(second));
    if (one && other && list_that_has(one) == list_that_has(other)) {
        std::lock_guard guard(list_that_has(one)->mutex);
        unlink(one);
        unlink(other);
    } else {
        take_off(one);
        take_off(other);
    }
    std::free(one);
    std::free(other);
}

READS_HEADERS bool is_shared(const void *memory) {
    return __atomic_load_n(&header_of(memory)->holders, __ATOMIC_ACQUIRE) != 1;
}

READS_HEADERS bool is_kind(const void *memory, const char *kind) {
    return header_of(memory)->about.kind == kind;
}

void forbid([[maybe_unused]] const void *from, [[maybe_unused]] const void *to) {
#if TARN_UNDER_ASAN
    __asan_poison_memory_region(from, static_cast<std::size_t>(static_cast<const u8 *>(to) -
                                                               static_cast<const u8 *>(from)));
#endif
}

void allow([[maybe_unused]] const void *from, [[maybe_unused]] const void *to) {
#if TARN_UNDER_ASAN
    __asan_unpoison_memory_region(from, static_cast<std::size_t>(static_cast<const u8 *>(to) -
                                                                 static_cast<const u8 *>(from)));
#endif
}

void fail_allocation(u64 n) {
    std::lock_guard guard(fail_mutex);
    fail_in = n;
    may_fail = fail_in != 0 || fail_chance != 0;
}

void fail_allocations_at_random(u32 chance, u64 seed) {
    std::lock_guard guard(fail_mutex);
    fail_chance = chance;
    fail_generator.seed(seed);
    may_fail = fail_in != 0 || fail_chance != 0;
}

u64 allocations_made() {
    return made + percpu_total(pooled_made());
}

u64 sleeping_allocations_in_atomic() {
    return slept_in_atomic;
}

std::vector<object> leaked_since(const snapshot &before) {
    std::vector<object> found;
    for (list &one : lists)
        find_since(&one, before.serial, &found);
    for (list &one : pooled)
        find_pooled_since(&one, before.serial, &found);
    std::stable_sort(found.begin(), found.end(),
                     [](const object &a, const object &b) { return a.serial < b.serial; });
    return found;
}

std::vector<object> live() {
    return leaked_since({});
}

snapshot take_snapshot() {
    return {order.fetch_add(1, std::memory_order_relaxed) + 1};
}

std::string describe(const std::vector<object> &objects) {
    std::string text;
    for (const object &one : objects)
        text += line_about(one);
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

kmem_cache *kmem_cache_create(const char *name, unsigned size, unsigned align, unsigned,
                              void (*constructor)(void *)) {
    if (align > alignof(std::max_align_t))
        BUG(); // nobody asks for more yet
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

void kmem_cache_free(kmem_cache *cache, void *memory) {
    if (memory && !userlevel::is_kind(memory, cache->name))
        BUG();
    userlevel::release(memory);
}
