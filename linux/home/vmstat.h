#pragma once

extern "C" {
extern long vm_zone_stat[];
}

inline long vm_zone_stat_read(unsigned item) {
    return __atomic_load_n(&vm_zone_stat[item], __ATOMIC_RELAXED);
}
