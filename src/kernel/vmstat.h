// The kernel's global page counters, in pages of 4096 bytes. A counter may read negative for a
// moment. At user level a test sets them.
#pragma once

inline constexpr unsigned NR_FREE_PAGES = 0;
inline constexpr unsigned NR_ZONE_INACTIVE_FILE = 3;
inline constexpr unsigned NR_ZONE_ACTIVE_FILE = 4;

long vm_zone_stat_read(unsigned item);

#include "home/vmstat.h"
