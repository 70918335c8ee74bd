// What the interface manager asks of the folders above it.
//
// It includes none of their headers; it names here what it needs, and the file named beside each
// call answers.
#pragma once

#include "kernel/types.h"

struct net_device;
struct tarn_if;

// pkt/pkt_l3dev.cc, pkt/pkt_l3dev_flags.cc: the device of a layer 3 interface, see pkt/pkt_l3dev.h.
net_device *tarn_os_l3_if_configure(tarn_if *ifp, const u8 *hwaddr, u32 hwaddr_len,
                                    u32 *out_ifindex);
i32 tarn_os_l3_if_unconfigure(tarn_if *ifp);
i32 tarn_os_l3_if_flags_set(tarn_if *ifp, u32 flags);
i32 tarn_os_l3_if_flags_unset(tarn_if *ifp, u32 flags);
i32 tarn_os_l3_if_hwaddr_set(tarn_if *ifp, u32 length, const u8 *address);

// control/tarn_proc_if.cc: the directory of a port, "tarn/<name>", and the file "members" of an
// aggregator while it has any. 0 or a negative result.
i32 _module_create_proc_if(tarn_if *ifp);
void module_remove_proc_if(tarn_if *ifp);
i32 _module_bind_add_proc_if(tarn_if *ifp);
i32 _module_unbind_del_proc_if(tarn_if *ifp);

// vlan/vlan_port.cc: the membership of ports, see vlan/vlan_member.h.
i32 tarn_vlan_unbind_vlan_from_port(tarn_if *vlan, tarn_if *port, u32 flush);
i32 tarn_vlan_delete_vlan_from_port_all(tarn_if *port);
i32 tarn_vlan_agg_port_bind_update(tarn_if *port, tarn_if *aggregator, u32 attach);
i32 tarn_vlan_agg_unbind(tarn_if *aggregator);

// pkt/pkt_follow.cc: tells the driver of the chip that what it knows of the interface, or of a
// port's state in an instance of spanning tree, may be old. Under no lock that spins.
void tarn_follow(const tarn_if *ifp);
void tarn_follow_stp(const tarn_if *port, u32 instance);

// redirects/rmirror.cc: makes a VLAN a remote mirror VLAN, or takes that back.
i32 tarn_rmirror_set_mirror_vlan(u32 vid, bool mirror);
