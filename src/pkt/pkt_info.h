// The records that travel with one frame along the chain of redirects.
//
//   tarn_rx_meta        from the driver (tarn/rxtx_hw.h)
//   tarn_rx_modify      handed to modify_rx hooks, before classification
//   tarn_pkt_info       the classification, argument of every match
//   redirect_why        what a match tells of its reasons
//   redirect_instruct   what a match decided
//   tarn_post_info      handed to post hooks
//
// All of them live on the stack of the receive pipeline and are valid during the call only.
#pragma once

#include "ifmgr/tarn_if.h"
#include "kernel/types.h"
#include "tarn/rxtx_hw.h"

// First word of an exception pair that excepts nothing.
inline constexpr u32 FLOOD_NO_EXCEPTION = 0xFFFFFFFF;

// Set in tarn_pkt_info.tag when it is a tag that the frame carried.
inline constexpr u32 TARN_TAG_PRESENT = 0x10000;

struct tarn_rx_modify {
    u32 rx_vid;
    u32 vid;
    u32 flood_except[2];
};

// Why a redirect decided as it did, for whoever watches frames on their way (pkt/pkt_explain.h).
struct redirect_why {
    const char *rule;   // what decided, in words; null: the decision says it all
    const char *number; // what was measured against a limit; null: nothing was
    u32 measured;
    u32 limit;
};

struct tarn_pkt_info {
    tarn_if *rx_port; // null for a local frame
    tarn_if *l2_port; // the aggregator of rx_port, or rx_port; null for a local frame
    tarn_if *vlan_if; // with a reference; the port itself on a routed port; may be null
    tarn_if *l3_if;   // where a post to the IP stack goes; no reference of its own; may be null
    sk_buff *skb;
    u32 l2_ifindex;
    u32 rx_vid; // 0 on a routed port
    u32 vid;
    u32 tag; // the TCI with TARN_TAG_PRESENT, or the VID argument without it
    u32 flood_except[2];
    u32 code;
    u8 stack_slave;
    u8 vlan_port_disabled;
    u8 replicated;
    u8 slave_only;
    u8 src_mac_is_own;
    u8 low_mem;
    u32 ethertype; // host order, the inner type of a tagged frame
    u8 mac_multicast;
    u8 mac_ipv4_mc;
    u8 mac_ipv6_mc;
    u8 src_ip[16]; // IPv4 in the first four bytes
    u8 dst_ip[16];
    u8 ip_proto;
    u16 ip_frag_off; // network order
    u8 ttl;
    u8 ipv4_mc_mac_matches;
    u8 ipv6_parsed;
    u8 ipv6_next_header;
    u8 hop_limit;
    u8 ipv6_mc_mac_matches;
    u8 rtr_alert;
    u8 icmpv6_type;
    u16 udp_dport; // network order
    u8 ingress_filter;
    u8 vlan_member_ok;
    u32 flags; // of tarn_rx_meta
    u32 extra;
    const u8 *order; // the order table in use
    u32 result;      // of a chain that no redirect stopped: always 0
    u8 local;
    u8 local_post_kernel;
    redirect_why *why; // for a match to fill; null while nobody watches
    u32 facts;         // frame_fact (pkt_redirect.h)
};

enum redirect_flag : u32 {
    REDIRECT_POST_USERSPACE = 0x01,
    REDIRECT_STACK_REPLICATE = 0x02,
    REDIRECT_STOP = 0x04,
    REDIRECT_RESEND_L2 = 0x08,
    REDIRECT_POST_KERNEL = 0x10,
    REDIRECT_FLOOD_L2 = 0x20,
    REDIRECT_POST_KERNEL_PORT = 0x40,
};

inline constexpr u32 REDIRECT_REASONS = 20; // reasons 0 to 19

struct redirect_instruct {
    u32 flags;  // redirect_flag; 0: not interested
    u32 reason; // of a stop, read as one byte
    u32 flood_queue;
    u32 flood_cos;
    void *pre_post_arg; // owned by the redirect's pre_post_modify hook; set only with flags
};

struct tarn_post_info {
    tarn_if *rx_port;
    tarn_if *vlan_if;
    u32 l2_ifindex;
    u32 rx_vid;
    u32 vid;
    u32 flood_except[2];
    u32 code;
    u32 tag;
    u8 ipv6_next_header;
    u8 ip_proto;
    u32 flags;
    u32 extra;
};
