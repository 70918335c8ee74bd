// Words of each CPU, in a process: a thread stands for a CPU.
//
// Memory comes in regions of equal strips, one for each place and, first, one that threads without
// a place share. A record lies at the same distance from the start in all strips of its region.
#include "kernel/percpu.h"

#include "control.h"
#include "kernel/memory.h"
#include "memory.h"

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <vector>

constinit thread_local std::size_t userlevel::percpu_offset = 0;

namespace userlevel {

namespace {

constexpr std::size_t STRIP = 64 << 10;

std::mutex mutex;                                      // covers what follows
std::vector<std::size_t> left_places;                  // of threads that have ended
std::map<std::size_t, std::vector<u8 *>> left_records; // by size
u8 *strip = nullptr;                                   // the first of the newest region
std::size_t strip_used = STRIP;

struct record {
    std::size_t bytes;
    void *account; // so that it can fail, and is on the list of what is alive
};
std::map<void *, record> records;

// Written under the mutex.
std::atomic<std::size_t> places_taken = 0; // the most at once
std::atomic<std::size_t> places_left = PERCPU_PLACES;

// Gives the place back when the thread ends; what comes after that shares.
struct place {
    bool is_over = false;
    ~place() {
        std::lock_guard guard(mutex);
        if (percpu_offset != 0) {
            left_places.push_back(percpu_offset);
            places_left++;
        }
        percpu_offset = 0;
        is_over = true;
    }
};
thread_local place own_place;

u8 *new_strip() {
    void *region = mmap(nullptr, (PERCPU_PLACES + 1) * STRIP, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return region == MAP_FAILED ? nullptr : static_cast<u8 *>(region);
}

// Under the mutex. Null when the process has no more memory.
u8 *take_record(std::size_t bytes) {
    if (auto &left = left_records[bytes]; !left.empty()) {
        u8 *again = left.back();
        left.pop_back();
        return again;
    }
    if (strip_used + bytes > STRIP) {
        strip = new_strip();
        strip_used = strip ? 0 : STRIP;
    }
    if (!strip)
        return nullptr;
    strip_used += bytes;
    return strip + strip_used - bytes;
}

u8 *take_zeroed(std::size_t bytes) {
    u8 *made = take_record(bytes);
    for (std::size_t place = 0; made && place <= places_taken; place++)
        std::memset(made + place * STRIP, 0, bytes);
    return made;
}

std::size_t in_lines(std::size_t bytes) {
    return (bytes + PERCPU_LINE - 1) / PERCPU_LINE * PERCPU_LINE;
}

// A place that is taken meanwhile is not summed up, or has 0.
template <typename Word>
Word sum_of(const Word *word) {
    const auto *at = reinterpret_cast<const u8 *>(word);
    Word sum = 0;
    for (std::size_t place = 0; place <= places_taken; place++)
        sum += read_once(*reinterpret_cast<const Word *>(at + place * STRIP));
    return sum;
}

// False: there is no place.
bool enter() {
    if (own_place.is_over || places_left == 0)
        return false;
    std::lock_guard guard(mutex);
    if (places_left == 0)
        return false;
    places_left--;
    if (left_places.empty()) {
        percpu_offset = ++places_taken * STRIP;
    } else {
        percpu_offset = left_places.back();
        left_places.pop_back();
    }
    return true;
}

} // namespace

u32 percpu_add_slowly(u32 *word, u32 more) {
    return enter() ? percpu_add(word, more) : count_in(*word, more);
}

u64 percpu_add_slowly(u64 *word, u64 more) {
    return enter() ? percpu_add(word, more) : count_in(*word, more);
}

u64 *percpu_numbers(std::size_t count) {
    std::lock_guard guard(mutex);
    u8 *made = take_zeroed(in_lines(count * sizeof(u64)));
    if (!made)
        BUG(); // a process that has just begun has some memory
    return reinterpret_cast<u64 *>(made);
}

u64 percpu_total(const u64 *number) {
    return sum_of(number);
}

} // namespace userlevel

using namespace userlevel;

u32 percpu_sum(const u32 *word) {
    return sum_of(word);
}

void *__alloc_percpu_gfp(std::size_t bytes, std::size_t, gfp_t flags) {
    bytes = in_lines(bytes);
    if (bytes > STRIP)
        BUG(); // a kernel has no more for one record
    void *account = allocate("percpu", bytes, flags, __builtin_return_address(0));
    if (!account)
        return nullptr;
    std::lock_guard guard(mutex);
    u8 *made = take_zeroed(bytes);
    if (!made) {
        release(account);
        return nullptr;
    }
    records[made] = {bytes, account};
    return made;
}

void free_percpu(void *record) {
    if (!record)
        return;
    std::lock_guard guard(mutex);
    auto found = records.find(record);
    if (found == records.end())
        BUG(); // it is none, or freed already
    release(found->second.account);
    left_records[found->second.bytes].push_back(static_cast<u8 *>(record));
    records.erase(found);
}
