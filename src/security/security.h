// The starts of access security.
#pragma once

#include "kernel/types.h"

struct tarn_if;

i32 tarn_af_eapol_sock_init();  // eapol.cc
i32 tarn_auth_init();           // auth.cc
i32 tarn_af_dhcpsn_sock_init(); // dhcpsn.cc
i32 tarn_init_arp_sec();        // arp_sec.cc; last in the start order

// auth.cc: who may use a port.
//
// A station that has asked to (auth_state.h); the record lives under the lock of its table.
struct tarn_auth_supp;

tarn_auth_supp *tarn_auth_find_supp(tarn_if *ifp, const u8 *mac); // null: unknown
// Rules are 32 bytes each, struct tarnfwd_fwd_rule, at any address; ports are u16 likewise.
void tarn_auth_set_fwd_config(tarn_if *ifp, bool forward_arp, const u8 *rules, u8 count);
void tarn_auth_set_fwd_config_guest_vlan(tarn_if *ifp, u16 guest_vid, const u8 *rules, u8 count);
// The address in host order. 0 or -1.
i32 tarn_auth_web_set_config(u32 listen_ip, u16 listen_port, u16 listen_port2, bool with_dhcpd,
                             u16 http_count, const u8 *http_ports, u16 https_count,
                             const u8 *https_ports);

// dhcpsn.cc: leases that were seen, and what is asked of them. Addresses as in a packet.
i32 dhcpsn_db_lease_add(u32 ip, const u8 *mac, u32 vid, u32 ifindex);
i32 dhcpsn_db_lease_delete(u32 ip);
i32 dhcpsn_db_lease_flush_all();
i32 dhcpsn_snooping_set(u32 kind, bool enable, u32 vid);
void dhcpsn_snooping_per_vlan_set(bool enable, u32 vid);
i32 dhcpsn_snooping_l2_flooding_set(bool enable, u32 vid);
i32 dhcpsn_trust_port_set(u32 ifindex, bool trusted);
i32 dhcpsn_arpsec_action_set(u32 ifindex, u32 action);
