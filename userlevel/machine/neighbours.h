// Neighbours of the machine's IP stack behind the switch's ports. The machine's tables know no
// port, so it is kept here what port the ARP and neighbour discovery of a station came in by; a
// flush looks there.
#pragma once

#include "control.h"

namespace machine {

// A device of the module that is the machine's, too, or no longer.
void neighbours_device(unsigned ifindex, bool is_there);
// A frame on its way into the machine's IP stack, at its Ethernet header.
void neighbours_learn(unsigned ifindex, sk_buff *skb);
void neighbours_forget(const userlevel::neigh_flush &flush);

} // namespace machine
