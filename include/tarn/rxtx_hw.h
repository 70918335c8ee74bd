/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The boundary between the forwarding core and the driver of the switching chip.
 *
 * The driver hands each frame that the chip traps to the CPU to rxtx_hw_packet_recv(), from process
 * context (a thread or a work item of its own), on any CPU, possibly on several at once.
 *
 * The frame: a linear sk_buff whose data starts at the Ethernet header, any IEEE 802.1Q tag still in
 * place. Nobody else may hold its data, since the core rewrites it.
 *
 * Plain C; include it in a kernel module or in a process.
 */
#ifndef TARN_RXTX_HW_H
#define TARN_RXTX_HW_H

#ifdef __KERNEL__
#include <linux/types.h>
#else
#include <stdint.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct sk_buff;

/* What the chip says of one received frame. Owned by the driver, read only during the call. */
struct tarn_rx_meta {
    uint8_t replicated;        /* came over from another stack member */
    uint8_t debug;             /* non-zero: may appear in the receive debug log */
    uint32_t queue;            /* hardware receive queue */
    uint32_t code;             /* class of the CPU trap */
    uint32_t cpu_code;         /* raw hardware CPU code, only logged */
    uint32_t flags;            /* TARN_RX_* below */
    uint32_t extra;            /* argument of the trap: policy route mark, denial-of-service reason */
    uint8_t rx_flags;          /* bit 0: on a stack slave this frame is for the master only */
    uint32_t flood_except[2];  /* exception pair of a flood; first word -1: none */
    uint8_t local;             /* no ingress port: the frame belongs to a VLAN */
    uint8_t local_post_kernel; /* with local: may go to the IP stack */
};

/* Bits of tarn_rx_meta.flags. */
#define TARN_RX_NEW_SOURCE 0x001u   /* the source address is new to the chip */
#define TARN_RX_MOVED_SOURCE 0x002u /* the source address was behind another port */
#define TARN_RX_NO_LEARNING 0x004u  /* addresses of this frame are not to be learned */
#define TARN_RX_FILTER_MATCH 0x008u /* a filter rule of the chip matched */
#define TARN_RX_DESTINATION 0x010u  /* the destination address is to be reported */
#define TARN_RX_SUBNET_VLAN 0x020u  /* subnet VLAN lookup wanted */
#define TARN_RX_DOS 0x040u          /* denial-of-service match, reason in extra */
#define TARN_RX_POLICY_ROUTE 0x080u /* policy route mark in extra */
#define TARN_RX_FLOW_SAMPLE 0x100u  /* flow sample */

/*
 * Delivers one frame. `ifindex` is the ingress port as the interface database knows it (not looked
 * at when meta->local is set); `vid` is the VLAN the chip assigned, which decides the VLAN, whatever
 * the frame's tag says.
 *
 * Returns 0 when the core has taken the frame. Any other value leaves the frame with the driver,
 * which frees it: a redirect gave an order that contradicts itself (the kernel log names it), or the
 * frame is not linear.
 */
uint32_t rxtx_hw_packet_recv(struct sk_buff *skb, uint32_t ifindex, uint32_t vid,
                             const struct tarn_rx_meta *meta);

/* --- what the driver offers -------------------------------------------------------------------- */

struct net_device;

/*
 * The six callbacks of a driver. Any may be null; the core then does without, as told at each.
 *
 * They are called from process context and from softirq, with bottom halves off and on, on any CPU and
 * on several at once: they do not sleep. Interfaces are named by the ifindex of the interface database.
 */
struct rxtx_hw_callbacks {
    /* The driver's DMA counters, for tarn_pkt_sdma_counters_get(): its arguments are handed on.
     * Null: 0. */
    uint32_t (*sdma_counters)(unsigned long a, unsigned long b, unsigned long c);

    /* The port of this device enters authentication mode (on 1) or leaves it (0). A result other than
     * 0 refuses. Null: 0. */
    uint32_t (*auth_set)(struct net_device *netdev, uint32_t on);

    /* Sends one frame: out of port `ifindex`, or on the VLAN as a whole by the chip's own forwarding
     * when that is 0. `tagged`: with an 802.1Q tag of `vid` (the frame has none, unless its sender
     * wrote one). `tx_option` is what the sender of the frame asked for (0 or 1), `cos` its class of
     * service 0 to 7, `queue` the transmit queue, `tx_enable` 0 for frames between the members of a
     * stack, else 1. 0: the driver has the frame now and frees it. Any other value leaves it with the
     * core, which reports the failure and frees it. Null: frames are freed, and the log says so
     * once. */
    uint32_t (*start_xmit)(uint32_t ifindex, uint32_t vid, uint32_t tagged, uint32_t tx_option,
                           struct sk_buff *skb, uint32_t cos, uint8_t queue, uint8_t tx_enable);

    /* Floods one frame on the VLAN, but not to port `ifindex` (0: to all) nor to what the exception
     * pair names (except0 -1: nothing), and only to ports with all bits of `mask` in their flags (0,
     * or 0x40: ports that DHCP snooping trusts). `reserved` is 0. `tagged`: the excepted port would
     * send tagged. 0: the driver has the frame now. -EOPNOTSUPP, or null: the core floods in software.
     * Any other value leaves the frame with the core. */
    int32_t (*flood_except)(uint32_t ifindex, uint32_t vid, uint32_t except0, uint32_t except1,
                            struct sk_buff *skb, uint32_t cos, uint8_t queue, uint32_t mask,
                            uint32_t reserved, uint8_t tagged);

    /* Whether multicast frames to groups that nobody joined are flooded. Null: nothing happens. */
    uint32_t (*unknown_multicast_flood_set)(uint32_t enable);

    /* Kept for drivers; the core does not call it. Null: -1. */
    int32_t (*cache_index)(unsigned long a, unsigned long b, unsigned long c);
};

/* --- what the core exports, to modules of any licence ------------------------------------------ */

/*
 * Takes over the callbacks, all six at once, in place of those before; there is no way back but to
 * register others. A driver registers before it delivers frames.
 */
void rxtx_hw_register(struct rxtx_hw_callbacks callbacks);

/* Hands its arguments to sdma_counters and returns what that returns: a way for another module to
 * reach the driver's counters. */
uint32_t tarn_pkt_sdma_counters_get(unsigned long a, unsigned long b, unsigned long c);

/* Tells which receive queue carries the management traffic of the stack. Without a management VLAN
 * nothing is changed and the value is lost. Always 0. */
uint32_t tarn_stacking_mgmt_queue(uint32_t queue);

#ifdef __cplusplus
}
#endif

#endif
