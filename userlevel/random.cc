#include "kernel/random.h"

#include "control.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <random>
#include <sys/random.h>

namespace userlevel {

namespace {

std::mutex random_mutex;
std::deque<u8> script;
std::mt19937_64 generator;
bool seeded = false;

u8 next_byte() {
    if (!script.empty()) {
        u8 byte = script.front();
        script.pop_front();
        return byte;
    }
    if (!seeded) {
        u64 seed = 0;
        if (getrandom(&seed, sizeof(seed), 0) != static_cast<ssize_t>(sizeof(seed)))
            seed = std::random_device{}();
        generator.seed(seed);
        seeded = true;
    }
    return static_cast<u8>(generator());
}

} // namespace

void random_seed(u64 seed) {
    std::lock_guard guard(random_mutex);
    generator.seed(seed);
    seeded = true;
}

void random_script(const std::vector<u8> &next) {
    std::lock_guard guard(random_mutex);
    script.assign(next.begin(), next.end());
}

} // namespace userlevel

void get_random_bytes(void *buffer, std::size_t length) {
    std::lock_guard guard(userlevel::random_mutex);
    auto *bytes = static_cast<u8 *>(buffer);
    std::generate(bytes, bytes + length, userlevel::next_byte);
}
