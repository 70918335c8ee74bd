// The starts of the redirects that have no socket of their own, each in the file named after it.
// Every one registers its record in its slot and returns what the registry answers.
#pragma once

#include "kernel/types.h"

struct net_device;
struct tarn_if;

i32 tarn_netlink_sflow_sock_init();   // sflow.cc
i32 tarn_netlink_flowd_init();        // flowd.cc
i32 tarn_mcdrop_init();               // mcdrop.cc
i32 tarn_vrrp_init();                 // vrrp.cc
i32 tarn_pim_init();                  // pim.cc
i32 tarn_ipv4_init();                 // ipv4.cc
i32 tarn_ipv6_init();                 // ipv6.cc, two slots
i32 tarn_arp_init();                  // arp.cc
i32 tarn_rarp_init();                 // rarp.cc
i32 tarn_pppoe_init();                // pppoe.cc
i32 tarn_icmp_cpucode_init();         // icmp_cpucode.cc
i32 tarn_orvo_bridge_init();          // orvo_bridge.cc
i32 tarn_rmirror_init();              // rmirror.cc
i32 tarn_l3_drop_init();              // l3_drop.cc
i32 tarn_filter_match_cpucode_init(); // filter_match_cpucode.cc
i32 pbr_init();                       // pbr.cc
i32 tarn_dos_init();                  // dos.cc
i32 tarn_vornappsd_init();            // vornappsd.cc
i32 tarn_grasp_init();                // grasp.cc
i32 tarn_vlan_local_init();           // vlan_local.cc
i32 tarn_ptp_init();                  // ptp.cc

// rmirror.cc: makes a VLAN a remote mirror VLAN, or takes that back. -EINVAL above 4094.
i32 tarn_rmirror_set_mirror_vlan(u32 vid, bool mirror);

// mc_throttle.cc: how many frames of unregistered multicast a second; 0: no limit.
void tarn_update_mcast_limits(u32 limit);

// flooding_group.cc: groups that are flooded in a VLAN of a FIB; addresses as in a packet.
i32 tarn_mcdrop_flooding_group_add(u32 fib_id, u16 vid, u32 group);
i32 tarn_mcdrop_flooding_group_remove(u32 fib_id, u16 vid, u32 group);
i32 tarn_mcdrop_flooding_group_flush();

// vornappsd.cc: hosts whose Web traffic the switch takes itself; addresses as in a packet.
i32 tarn_vornappsd_add_ip_address(const u32 *address);
i32 tarn_vornappsd_remove_ip_address(const u32 *address);
