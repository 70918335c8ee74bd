// What the redirects ask of the features beside them.
//
// They include no feature's header; they name here what they need, and the file named beside each
// call answers.
#pragma once

#include "kernel/types.h"

struct sk_buff;
struct tarn_if;
struct tarn_pkt_info;

// What a multicast frame is to snooping.
enum tarn_mc_type : i32 {
    TARN_MC_NONE = 0,     // not its business
    TARN_MC_MESSAGE = 1,  // a message of the group protocol
    TARN_MC_ROUTER = 2,   // traffic of routers
    TARN_MC_DATA = 3,     // data for a group that nobody has joined
    TARN_MC_MISMATCH = 4, // the MAC address is not that of the group
};

// sockets/igmp_type.cc: tarn_mc_type, TARN_MC_NONE for all but IPv4; igmp.cc: whether the CPU
// routes multicast.
i32 tarn_igs_get_mc_type(const tarn_pkt_info *info);
u8 tarn_ipv4_mc_software_routing_enabled_get();
// sockets/mld_type.cc, mld.cc: the same of IPv6.
i32 tarn_mlds_get_mc_type(const tarn_pkt_info *info);
u8 tarn_ipv6_mc_software_routing_enabled_get();

// security/dhcpsn.cc: whether ARP is checked against the leases.
bool dhcpsn_arpsec_enabled();
// security/arp_sec.cc: 0 when the ARP packet at that offset of the frame is good; then it has been
// forwarded at Layer 2 where that is wanted. The frame stays with the caller. May sleep.
i32 dhcpsn_arpsec_check_arp_violation(tarn_if *l2_port, sk_buff *skb, u32 arp_offset, u32 vid);

// stack/stack_state.cc: whether a master of the stack is being chosen.
bool tarn_stack_is_pending_master();

// vlan/vlan_subnet.cc: whether the address, as in a packet, lies in a subnet that the port puts
// into a VLAN; then *vid is that VLAN.
bool tarn_subnet_vlan_wa_match(u32 address, u16 *vid, tarn_if *port);
