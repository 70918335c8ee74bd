// Events to user space: one message each, to whoever listens to the family's group.
//
// They may be sent from any context and on all CPUs at once. 0; -ESRCH when nobody listens; -ENOMEM
// or -EMSGSIZE. A lost event stays lost.
#pragma once

#include "kernel/types.h"

struct genl_family_record;

// The family whose events these are; its commands are why it stands above: control/tarnfwd_nl.cc.
extern const genl_family_record tarnfwd_nl_family;

// The chip's table needs to know of an address. `event` is an enum tarnfwd_fdb_event; the last two
// are of the tunnel that brought the frame, or the chip's exception pair.
i32 tarnfwd_nl_send_l2_fdb_add(const u8 *mac, u32 ifindex, u8 event, u16 vid, u8 state, u32 vni,
                               u32 remote);
// A frame that matched a denial-of-service rule: its ingress ifindex, the reason the chip gave, its
// type, and the 20 bytes behind its Ethernet header.
i32 tarnfwd_nl_send_dos_match(u32 ifindex, u32 reason, u16 ethertype, const u8 *header);
// An ARP packet that was refused: the address and the station in question, and why.
i32 tarnfwd_nl_send_dhcpsn_arpsec_violation(u32 ifindex, u16 vid, u32 address, const u8 *mac,
                                            u8 reason);
