// The starts of the protocol socket families, each in the file named after its protocol.
// Every one registers its redirect, then its family.
#pragma once

#include "kernel/types.h"

i32 tarn_af_lacp_sock_init();       // lacp.cc
i32 tarn_af_stp_sock_init();        // stp.cc
i32 tarn_af_garp_sock_init();       // garp.cc
i32 tarn_af_igs_sock_init();        // igmp.cc
i32 tarn_af_ryke_sock_init();       // ryke.cc
i32 tarn_af_ldf_sock_init();        // ldf.cc
i32 tarn_af_lldp_sock_init();       // lldp.cc
i32 tarn_af_testd_sock_init();      // testd.cc
i32 tarn_af_frame_sock_init();      // frame.cc
i32 tarn_af_kelm_sock_init();       // kelm.cc
i32 tarn_af_kelm_agent_sock_init(); // kelm_agent.cc
i32 tarn_af_openflowd_sock_init();  // openflow.cc
i32 tarn_af_udld_sock_init();       // udld.cc
i32 tarn_af_cfm_sock_init();        // cfm.cc
i32 tarn_befd_sock_init();          // befd.cc
i32 tarn_af_isis_sock_init();       // isis.cc
i32 tarn_mrp_sock_init();           // mrp.cc
i32 tarn_af_profinet_sock_init();   // profinet.cc
i32 tarn_af_mlds_sock_init();       // mld.cc

// What the control family sets of them.
// igmp.cc: router modes of VRFs; op as enum tarnfwd_mc_router_op. A VRF without a record has none.
void tarn_mc_router_mode_handler(u32 vrf, u32 op, u32 mode, u32 group_bit);
void tarn_mc_router_mode_db_handler(u32 vrf, bool add);
i32 tarn_af_igs_l3_multicast_enable(u32 ifindex, u32 on); // always 0
void tarn_ipv4_mc_software_routing_enabled_set(u8 on);
// mld.cc
i32 tarn_af_mlds_l3_multicast_enable(u32 ifindex, u32 on);
void tarn_ipv6_mc_software_routing_enabled_set(u8 on);
// ryke.cc: the VLANs of the rings, which nothing but ring protection may use. -EINVAL above 4094;
// a new VLAN is none.
i32 tarn_ryke_set_ctrl_vlan(u32 vid, u8 on);
u8 tarn_ryke_is_ctrl_vlan(u32 vid);
void tarn_ryek_vlan_created(u32 vid);
// udld.cc: whether the protocol is handled at all; and what becomes of the frames of a port, flags
// of a redirect. -EINVAL for an interface that is unknown.
void tarn_udld_enable(u8 on);
i32 tarn_udld_set_hw_filter(u32 ifindex, u8 value);
