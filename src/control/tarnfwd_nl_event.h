// Events to user space.
#pragma once

#include "kernel/types.h"

// A frame that matched a denial-of-service rule: its ingress ifindex, the reason the chip gave, its
// type, and the 20 bytes behind its Ethernet header.
i32 tarnfwd_nl_send_dos_match(u32 ifindex, u32 reason, u16 ethertype, const u8 *header);
