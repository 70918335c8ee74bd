// IPv4 groups that the chip floods by itself in a VLAN: the copy at the CPU needs no further work.
#pragma once

#include "kernel/types.h"

// Whether there is any: costs a load.
bool flooding_group_any();
bool flooding_group_lookup(u32 fib_id, u32 vid, u32 group);

// Makes the table: 0 or -1.
i32 flooding_group_init();
