// Where a frame goes.
#pragma once

#include "chip_frame.h"

// Ports of the VLAN that a frame to this destination goes to, `from` (0 or one bit) never among
// them. `flood_groups`: also when nobody joined the group. Under the lock.
u64 forward_ports(const chip_frame &frame, u64 from, bool flood_groups);
