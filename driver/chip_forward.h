// Where a frame goes.
#pragma once

#include "chip_frame.h"

// Ports that a frame of the VLAN to this destination leaves by, one of each aggregator, and none of
// `from`: the port or aggregator that it came in by, 0 for the CPU. Routed ports have no traffic
// but the CPU's. `flood_groups`: also when nobody joined the group. Under the lock.
u64 forward_ports(const chip_frame &frame, u64 from, bool flood_groups);
