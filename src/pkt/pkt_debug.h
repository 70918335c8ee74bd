// The frame log: one line for each frame on receive or transmit, switched on by bits, filtered by
// VLAN, and limited so that a flood of traffic costs a bounded number of log lines.
//
// The controls are plain words, read at the next frame. On the frame path the test is one word,
// tarn_pkt_debug; all else is behind it.
#pragma once

#include "kernel/ratelimit.h"
#include "kernel/skb.h"
#include "pkt/pkt_info.h"

inline constexpr u32 TARN_PKT_DEBUG_RX = 0x1;
inline constexpr u32 TARN_PKT_DEBUG_TX = 0x2;

extern u32 tarn_pkt_debug;      // TARN_PKT_DEBUG_*
extern u32 tarn_pkt_debug_vlan; // 0: all VLANs, else only this VID
extern u16 tarn_pkt_debug_cnt;  // number of the last line logged, both directions
extern ratelimit_state tarn_pkt_debug_ratelimit;

// The last post to a protocol socket, for test tools to read back.
struct tarn_ppdi {
    u8 vid_valid;
    u8 mld_valid;
    u32 vid;
    u32 mld_pkt;
};
extern u32 tarn_packet_post_debug_enable; // turns tarn_ppdi_last on
extern tarn_ppdi tarn_ppdi_last;

// Once, before anything else here.
void tarn_pkt_debug_init();

// Bytes that the longest dump needs, its end included, fit in this.
inline constexpr u32 TARN_LOG_DUMP_SIZE = 256;

// The start of the frame in hexadecimal; leaves the buffer as it is for an empty frame. Returns the
// buffer, which holds TARN_LOG_DUMP_SIZE bytes.
char *tarn_log_skb_to_str(const sk_buff *skb, char *buffer);

// One received frame, as it stands before its tag is taken off.
void tarn_pkt_debug_rx(const tarn_if *ifp, const sk_buff *skb, u32 vid, const tarn_rx_meta *meta);

// One frame about to be sent. `except`: it is a flood, and port_name is the port left out.
void _tarn_pkt_debug_tx(const char *port_name, const char *vlan_name, u32 vid, const sk_buff *skb,
                        u32 queue, bool except);
// The same line from the records; either may be null.
void tarn_pkt_debug_tx(const tarn_if *port, const tarn_if *vlan_if, const sk_buff *skb, u32 queue,
                       bool except);
