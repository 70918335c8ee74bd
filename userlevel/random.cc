#include "kernel/random.h"

#include "control.h"
#include "kernel/bug.h"

#include <algorithm>
#include <cerrno>
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

void fill_from_the_system(u8 *bytes, std::size_t length) {
    while (length != 0) {
        ssize_t got = getrandom(bytes, length, 0);
        if (got < 0 && errno != EINTR)
            BUG();
        if (got <= 0)
            continue;
        bytes += got;
        length -= static_cast<std::size_t>(got);
    }
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
    using namespace userlevel;
    auto *bytes = static_cast<u8 *>(buffer);
    for (; length != 0 && !script.empty(); length--) {
        *bytes++ = script.front();
        script.pop_front();
    }
    if (seeded)
        std::generate_n(bytes, length, [] { return static_cast<u8>(generator()); });
    else
        fill_from_the_system(bytes, length);
}
