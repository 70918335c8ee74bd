// Time in jiffies: 100 a second in both homes. At user level a test may stop and move the clock.
#pragma once

#include "kernel/types.h"

inline constexpr unsigned long JIFFIES_PER_SECOND = 100;

unsigned long get_jiffies();

#include "home/time.h"
