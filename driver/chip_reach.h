// Which ports a frame may enter and leave by: VLANs, links, spanning tree and aggregators.
//
// Under the chip's lock, but for reach_forget.
#pragma once

#include "chip_frame.h"
#include "chip_state.h"

// Why the frame may not come in; CHIP_DROPS: it may. *learns: whether its source may be learned,
// which it may on a port that is still to forward.
chip_drop reach_in(const chip_frame &frame, bool *learns);

// The ports that a frame of the VLAN may leave by.
u64 reach_out(u32 vid);
// Whether an address of the VLAN that was learned on these ports is still there.
bool reach_knows(u64 ports, u32 vid);

// The ports, and of each that is in an aggregator all members.
u64 reach_with_groups(u64 ports);
// The ports, but of each aggregator one alone: the same for all frames between two stations.
u64 reach_one_of_each(u64 ports, const u8 *frame);
// The port or the members of the aggregator of that ifindex.
u64 reach_named(u32 ifindex);
// Where addresses of the port's side are learned: one port stands for its aggregator.
u32 reach_learns_at(u32 slot);

// The port that has a copy of what leaves by this one, of those that may send; CHIP_PORTS: none.
u32 reach_mirror(u32 slot, u32 vid);

// Whether the address is the switch's own for frames of the VLAN on the port (CHIP_PORTS: of none).
bool reach_is_own(const u8 *mac, u32 vid, u32 slot);

// Who has that address of the VLAN, seen from the port: the switch itself, or what the table says
// and what still holds.
fdb_entry reach_find(const u8 *mac, u32 vid, u32 slot);

// After ports have changed their aggregators.
void reach_regroup();
// After something has ended, addresses that were learned by it are of no use; they are forgotten
// at the next reach_forget(), which takes no lock that its caller may hold.
void reach_ended();
void reach_forget();
