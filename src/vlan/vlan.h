// The starts of the VLAN services that are redirects, each in the file named after it.
#pragma once

#include "kernel/types.h"

struct tarn_if;

i32 tarn_l2_drop_init();     // l2_drop.cc
i32 tarn_l2_fdb_drop_init(); // l2_fdb_drop.cc
i32 tarn_l2_mac_init();      // l2_mac.cc; the start does not call it
i32 tarn_vlan_xlate_init();  // vlan_xlate.cc
i32 tarn_vlan_stack_init();  // vlan_stack.cc
i32 tarn_vxlan_sock_init();  // vxlan.cc

// vlan_subnet.cc: untagged frames from a subnet belong to a VLAN. Addresses as in a packet.
i32 tarn_subnet_vlan_add(tarn_if *port, u16 vid, u32 address, u8 prefix_length);
i32 tarn_subnet_vlan_delete(tarn_if *port, u16 vid, u32 address, u8 prefix_length);

// vlan_xlate.cc: frames that arrive on the port in one VLAN go on in another.
i32 tarn_vlan_xlate_add(tarn_if *port, u16 vid, u16 new_vid);
i32 tarn_vlan_xlate_delete(tarn_if *port, u16 vid, u16 new_vid);
i32 tarn_vlan_xlate_default_action_set(tarn_if *port, u32 action);

// vlan_stack.cc: frames of the inner VLAN are carried in the outer one.
i32 tarn_vlan_stack_rule_add(u16 inner_vid, u16 outer_vid);
i32 tarn_vlan_stack_rule_delete(u16 inner_vid, u16 outer_vid);

// vxlan.cc: tunnels. Addresses as in a packet.
i32 tarn_vxlan_add(u32 vid, u32 local, u32 remote, u32 vni);
i32 tarn_vxlan_del(u32 vid, u32 local, u32 remote, u32 vni);

// pvlan.cc: private VLANs. 0 or -EINVAL.
i32 tarn_pvlan_set_vlan_type(u32 vid, u32 type);
i32 tarn_pvlan_add_vlan_association(u32 primary_vid, u32 secondary_vid);
i32 tarn_pvlan_remove_vlan_association(u32 primary_vid, u32 secondary_vid);
i32 tarn_pvlan_port_add_association(u32 ifindex, u32 primary_vid, u32 secondary_vid);
i32 tarn_pvlan_port_delete_association(u32 ifindex, u32 primary_vid, u32 secondary_vid);
i32 tarn_pvlan_set_port_mode(u32 ifindex, u32 mode);
i32 tarn_pvlan_set_vlan_forwarding(u32 mode, u32 vid);
// `records` are struct tarnfwd_upstream, at any address.
i32 tarn_pvlan_set_upstream_interface_forwarding(u32 count, const u8 *records);
