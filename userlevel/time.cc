#include "kernel/time.h"

#include "control.h"

#include <atomic>
#include <chrono>

namespace userlevel {

namespace {

using steady = std::chrono::steady_clock;

const steady::time_point began = steady::now();
std::atomic<bool> stopped = false;
std::atomic<unsigned long> now = 0;

} // namespace

void clock_stop(unsigned long jiffies) {
    now = jiffies;
    stopped = true;
}

void clock_advance(unsigned long jiffies) {
    now += jiffies;
}

void clock_run() {
    stopped = false;
}

} // namespace userlevel

unsigned long get_jiffies() {
    using namespace userlevel;
    if (stopped)
        return now;
    auto ticks = std::chrono::duration_cast<std::chrono::milliseconds>(steady::now() - began) / 10;
    return CLOCK_START + static_cast<unsigned long>(ticks.count());
}
