// Transmit of single frames, in layers from the top:
//
//   _tarn_eth_drv_tx       frames of the IP stack: modify_tx hooks, priority     pkt_tx.cc
//   _tarn_eth_drv_svi_tx   sockets that send straight on a VLAN                  pkt_tx.cc
//   tarn_start_xmit        sockets that send on a port                           pkt_tx.cc
//   _tarn_start_xmit       discard switch, debug log, port mirror                pkt_tx.cc
//   _tarn_port_start_xmit  VLAN, spanning tree, tagging, the chip or a device    pkt_tx_port.cc
//
// Ownership: 0 means that the frame was taken, by the chip, by a device, or by being dropped where
// that is not an error. Any other result (an errno, as u32) leaves the frame with the caller, who
// frees it; but _tarn_eth_drv_tx frees it itself.
//
// Arguments that run through all layers:
//   port            output port; null: the VLAN as a whole
//   vlan_if         VLAN of the frame, or null
//   cos             class of service, 0 to 7
//   queue           transmit queue, cut to 8 bits for the chip
//   tx_enable       1, but 0 for frames between the members of a stack
//   discard_bypass  passes the discard switch
//   tx_option       what a socket's address asked for
#pragma once

#include "kernel/skb.h"

struct tarn_if;

// Non-zero: what leaves the switch is discarded, but for VLANs that are local to this member.
extern u32 tx_discard_all;
void tarn_tx_discard_all_set(u32 value);

i32 _tarn_eth_drv_tx(tarn_if *ifp, sk_buff *skb);
i32 _tarn_eth_drv_svi_tx(tarn_if *ifp, sk_buff *skb, u32 cos, u32 queue);
u32 tarn_start_xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue, u8 tx_enable,
                    bool tx_option);
u32 _tarn_start_xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue,
                     u8 tx_enable, bool discard_bypass, bool tx_option);
u32 _tarn_port_start_xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue,
                          u8 tx_enable, bool tx_option);

// Class of service of a frame of the IP stack: its priority, or 0 above 7.
u32 _tarn_eth_drv_tx_socket_priority_to_cos(u32 priority);

// Books a failure to send on this interface and calls its tx_failure_cb. A null interface is
// ignored.
void tarn_pkt_xmit_failure(tarn_if *ifp, u32 kind, i32 error);

// Sends the frame to the port of its sender or floods it: to `port` when the source address is the
// VLAN's own, else to all but `port`. Both interfaces are not null; the VLAN is that of the frame.
i32 tarn_forward_with_dest_mac(sk_buff *skb, tarn_if *port, tarn_if *vlan_if);

// Writes an Ethernet header in front of the frame, which has 14 bytes of headroom: 14. `type` 1: a
// length field (IEEE 802.3) of `length`. -EFAULT for a null destination or a frame without room.
u32 add_eth_header(sk_buff *skb, u16 type, const u8 *dst, const u8 *src, u16 length);

// Whether frames trapped here are replicated to the master's CPU alone: on this design, always.
inline u32 tarn_pkt_trap_to_master_cpu_only() {
    return 1;
}
