// The plainest switch: ports and VLANs in the interface database, all of them up, nothing filtered.
//
// What tarn-replay offers its frames to, and what tests, benchmarks and fuzzers start from. The
// module must have been loaded (init_module) before the first call. Every call ends the process
// with a message when memory fails: none of its users could go on.
#pragma once

#include "ifmgr/tarn_ifmgr.h"

namespace plain_switch {

inline constexpr u32 FIRST_PORT_IFINDEX = 5000; // port k has ifindex 5000 + k

// "port<k>", k from 1: a switch port, flags 0x43 (up, broadcast, running), MAC 02:00:00:00:01:<k>,
// spanning tree Forwarding in all instances, no ingress filter, member of no VLAN.
tarn_if *add_port(u32 k);

// "vlan<vid>": a VLAN interface, MAC 02:00:00:00:00:01, flags 0x1043.
tarn_if *add_vlan(u32 vid);

// Makes the port an untagged member.
void add_member(tarn_if *port, u32 vid);

} // namespace plain_switch
