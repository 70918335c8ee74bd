#include "kernel/vmstat.h"

#include "control.h"

#include <array>
#include <atomic>

namespace {

constexpr unsigned ITEMS = 16;
constexpr long GIGABYTE = 1 << 18;

std::array<std::atomic<long>, ITEMS> pages{GIGABYTE};

} // namespace

long vm_zone_stat_read(unsigned item) {
    return item < ITEMS ? pages[item].load() : 0;
}

void userlevel::zone_pages_set(unsigned item, long count) {
    if (item < ITEMS)
        pages[item] = count;
}
