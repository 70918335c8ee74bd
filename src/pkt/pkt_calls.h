// What the packet path asks of the features above it.
//
// The packet path includes no feature's header; it names here what it needs, and the file named
// beside each call answers. A feature's own header declares the rest of what it offers.
#pragma once

#include "kernel/types.h"

struct frame_bytes;
struct sk_buff;
struct sock;
struct tarn_if;

// vlan/vlan_member.cc: the bitmaps of a port. A VID above 4095 is in none.
bool tarn_vlan_is_vlan_port_disabled(const tarn_if *port, u32 vid);
bool tarn_vlan_port_member_check(const tarn_if *port, u32 vid);
// Whether frames of the VLAN leave the port tagged; a null port, or one of another type, never.
bool tarn_vlan_egress_tagged(const tarn_if *port, u32 vid);
// vlan/vlan_stack.cc: the outer VLAN that frames of this one are carried in, 0 for none.
u32 tarn_vlan_stack_outer_vlan_get(u32 vid);

// stack/stack_state.cc: whether this unit is a slave of its stack now.
u8 tarn_stack_is_slave();
// stack/stack_state.cc: whether a VLAN that is local to one member may have this port.
bool tarn_stack_local_vlan_member_allowed(const tarn_if *port);
// stack/stack_mgmt_vlan.cc: 0 with *vid set, or -1 when the stack has no management VLAN.
i32 tarn_stack_mgmt_vlan_get_vid(u32 *vid);
// stack/stack_tx.cc: sends on the management VLAN. Consumes the frame whatever the result.
i32 _tarn_stack_drv_tx(sk_buff *skb, u32 reserved);
// stack/stack_replicate.cc: 1 when the stack management path took the frame.
u32 tarn_stack_pkt_process(sk_buff *skb, u32 vid, u32 queue);
// stack/stack_replicate.cc: sends a copy to the other members. The frame stays with the caller.
i32 tarn_pkt_stack_replicate(sk_buff *skb, tarn_if *rx_port, u32 vid, u32 tag, u32 code, u32 flags,
                             u32 extra, u32 repl_type, u8 *replicated);

// sockets/mld.cc: whether the hop-by-hop header at `offset` carries the router alert (RFC 2711).
bool tarn_ipv6_mc_is_rtr_alert_present(const frame_bytes &frame, u32 offset);

// sockets/socket.cc: queues the frame on the socket: 0, or a negative result that leaves the frame
// with the caller.
i32 tarn_socket_post_skb(sock *sk, sk_buff *skb);
