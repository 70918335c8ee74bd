// Neighbour tables of the IP stack (ARP, neighbour discovery): services of the switch's own kernel,
// which knows behind which port a neighbour was learned.
//
// Each drops the entries of a VLAN (-1: any), a device (null: any of this module's) and a port. A
// home whose kernel does not know the port may drop more: an entry comes back when it is wanted.
#pragma once

#include "kernel/types.h"

struct net_device;

void arp_flush_dev_and_port(i32 vid, net_device *device, u32 ifindex);
void ndisc_flush_dev_and_port(i32 vid, net_device *device, u32 ifindex);

#include "home/neigh.h"
