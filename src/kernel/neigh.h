// Neighbour tables of the IP stack (ARP, neighbour discovery): services of the switch's own kernel,
// which knows behind which port a neighbour was learned.
//
// The flushes drop the entries of a VLAN (-1: any), a device (null: any of this module's) and a
// port or a MAC address. The port is the word at the end of the control block of the ARP or
// neighbour discovery that netif_rx_ni() took. An entry whose port is not known any more goes with
// any: it comes back when it is wanted. They may sleep, and take the RTNL lock where they need it.
#pragma once

#include "kernel/types.h"

struct net_device;

void arp_flush_dev_and_port(i32 vid, net_device *device, u32 ifindex);
void ndisc_flush_dev_and_port(i32 vid, net_device *device, u32 ifindex);
// The IPv4 neighbours with that MAC address; 6 bytes. 0.
i32 arp_flush_vlan_and_mac(i32 vid, net_device *device, const u8 *mac);
// The neighbour with that MAC address is behind another port now: what is known of it on the device
// goes, of both families. Without a device nothing is known.
void neigh_moved(net_device *device, const u8 *mac);

#include "home/neigh.h"
