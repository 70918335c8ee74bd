// The settings of single interfaces that the control family writes.
//
// Results are 0 or negative: -EINVAL, or a tarn_ifmgr_error.
#pragma once

#include "ifmgr/tarn_if.h"

// Of set_vlan_options; the other options of a VLAN count at its creation alone.
inline constexpr u32 TARN_VLAN_OPTION_NO_MEMBER_CHECK = 0x20;

// Makes the port routed, with that VID, or a switch port again (VID 0). -203.
i32 tarn_ifmgr_l3_switchport_set(u32 ifindex, u16 vid);
// -EINVAL: an interface is missing, or they differ in type; or what bind answered.
i32 tarn_ifmgr_aggregator_port_attach(u32 aggregator, u32 port);
// -EINVAL (null), -218 (they differ in type), or what unbind answered.
i32 tarn_ifmgr_aggregator_port_detach(tarn_if *aggregator, tarn_if *port);
// Takes the bits from if_flags of every record, destroyed ones included. Always 0.
i32 tarn_ifmgr_clear_flags(u32 mask);
i32 tarn_ifmgr_set_vlan_options(tarn_if *vlan, u32 options);
i32 tarn_ifmgr_set_hwaddr(u32 ifindex, u32 length, const u8 *bytes); // -203
i32 tarn_ifmgr_if_bind_fib(u32 ifindex, u32 fib_id);                 // -203, -204
i32 tarn_ifmgr_if_unbind_fib(u32 ifindex, u32 fib_id);               // -203, -204

// Copies of what leaves the source go to the target. Only directions with bit 0x2 (transmit), and
// only VID 0 (all), are kept here; others change nothing and give 0.
i32 tarn_ifmgr_set_portmirror(u32 target, u32 source, u32 direction, u32 vid);
i32 tarn_ifmgr_unset_portmirror(u32 target, u32 source, u32 direction, u32 vid);

i32 tarn_ifmgr_stp_port_state_set(u32 ifindex, u32 instance, u32 state);
i32 tarn_ifmgr_stp_vlan_inst_add(u32 instance, u32 vid);
i32 tarn_ifmgr_stp_vlan_inst_delete(u32 vid);

// The new node, or null without memory.
tarn_ifmgr_list_node *tarn_ifmgr_vlan_upstream_if_add(tarn_if *vlan, tarn_if *ifp);
void tarn_ifmgr_vlan_upstream_if_delete(tarn_if *vlan, tarn_if *ifp);
void tarn_ifmgr_vlan_all_upstream_ifs_delete(tarn_if *vlan);
