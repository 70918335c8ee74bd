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
#define TARN_RX_FILTER_MATCH 0x008u /* a filter rule of the chip matched */
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

#ifdef __cplusplus
}
#endif

#endif
