// The receive pipeline: one frame from the driver to its fate.
//
//   rxtx_hw_packet_recv     finds the port                                  pkt_rx.cc
//   tarn_pkt_process        prepares the classification, runs the chain     pkt_rx.cc
//   tarn_pkt_modify_rx      lets the hooks before classification at it      pkt_modify_rx.cc
//   tarn_pkt_parse          reads the headers                               pkt_parse.cc
//   tarn_pkt_low_mem        is memory short?                                pkt_low_mem.cc
//   tarn_pkt_chain          asks the redirects                              pkt_chain.cc
//   tarn_pkt_carry_out      does what one of them decided                   pkt_carry_out.cc
//
// A frame that is not copied costs no allocation, but for the text of a debug log line.
#pragma once

#include "pkt/frame.h"
#include "pkt/pkt_info.h"

// Forces slave_only on; a debug control.
extern u32 slave_only_debug_override;

// What low_mem reads while memory is not short: 0, unless a debug control sets it.
extern u32 tarn_pkt_low_mem_normal_return;

// Takes the frame and returns 0, or returns 1 and leaves it with the caller: a redirect that stops
// gave an illegal instruct. `ifp` is the ingress port with a reference of the caller's, or null.
u32 tarn_pkt_process(sk_buff *skb, tarn_if *ifp, u32 vid, const tarn_rx_meta *meta);

// Fills the fields from `ethertype` to `udp_dport` from info->skb.
void tarn_pkt_parse(tarn_pkt_info *info);

// Lets the modify_rx hooks at a frame that came in on a port.
void tarn_pkt_modify_rx(tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp,
                        sk_buff *skb);

// Memory is short with fewer bytes free than this: 20 MiB.
inline constexpr u32 TARN_PKT_LOW_MEM_BYTES = 0x1400000;
// Bytes that were last seen free, less what came since.
u32 tarn_pkt_low_mem_estimate();

// Counts a frame of that length against the memory that was last seen free: 1 when memory is short.
u8 tarn_pkt_low_mem(u32 frame_length);

// Same result as tarn_pkt_process; uses up the reference to info->vlan_if.
u32 tarn_pkt_chain(tarn_pkt_info *info);

// Does what the redirect decided, which is something. True when that ended the frame's way, with
// what the driver is to be told; else the frame goes on and the instruct is clear.
struct packet_redirect;
bool tarn_pkt_carry_out(packet_redirect *redirect, tarn_pkt_info *info, redirect_instruct *instruct,
                        u32 *result);
