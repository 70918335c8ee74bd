/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Sockets of the control protocols: their families and their addresses.
 *
 * A daemon opens one socket of its family, socket(TARN_AF_LACP, SOCK_RAW, 0), and gets every frame of
 * its protocol from every port; the address that comes with a frame (msg_name) names the port. It sends
 * by naming the port in the address. docs/sockets.md tells what each family receives and sends.
 *
 * MAC addresses and `type` are bytes of the frame; `ifindex` and `vid` are native words. On receive only
 * dest_mac, src_mac, type, ifindex and vid mean something.
 *
 * Plain C; include it in a daemon, a kernel module or a process.
 */
#ifndef TARN_SKADDR_H
#define TARN_SKADDR_H

#ifdef __KERNEL__
#include <linux/types.h>
#else
#include <stdint.h>
#endif

enum tarn_socket_family {
    TARN_AF_LACP = 46,
    TARN_AF_EAPOL = 47,
    TARN_AF_STP = 48,
    TARN_AF_GARP = 50,
    TARN_AF_IGMP_SNOOP = 51,
    TARN_AF_MLD_SNOOP = 52,
    TARN_AF_LLDP = 53,
    TARN_AF_RYKE = 54,
    TARN_AF_TESTD = 55,
    TARN_AF_FRAME = 56,
    TARN_AF_LDF = 57,
    TARN_AF_DHCPSN = 60,
    TARN_AF_UDLD = 61,
    TARN_AF_KELM = 62,
    TARN_AF_OPENFLOW = 63,
    TARN_AF_KELM_AGENT = 65,
    TARN_AF_CFM = 66,
    TARN_AF_BEFD = 67,
    TARN_AF_ISIS = 68,
    TARN_AF_MRP = 69,
    TARN_AF_PROFINET = 70,
};

/* lacp, befd, isis */
struct l2_skaddr {
    uint8_t dest_mac[6];
    uint8_t src_mac[6];
    uint32_t ifindex; /* the receiving port; the port to send on */
};

/* the others */
struct vlan_skaddr {
    uint8_t dest_mac[6];
    uint8_t src_mac[6];
    uint16_t type; /* receive: network order */
    uint16_t reserved1;
    uint32_t ifindex;
    uint16_t vid; /* cfm: tag control information */
    uint16_t reserved2;
    uint32_t except_ifindex; /* send: the port that a flood leaves out */
    uint16_t reserved3;
    uint8_t xmit_flag; /* send, frame and mrp: asks the chip for its transmit option */
    uint8_t reserved4;
    uint32_t reserved5;
};

#ifdef __cplusplus
static_assert(sizeof(struct l2_skaddr) == 16, "a binary interface");
static_assert(sizeof(struct vlan_skaddr) == 36, "a binary interface");
#elif !defined(__STDC_VERSION__) || __STDC_VERSION__ < 201112L
typedef char tarn_l2_skaddr_size[sizeof(struct l2_skaddr) == 16 ? 1 : -1];
typedef char tarn_vlan_skaddr_size[sizeof(struct vlan_skaddr) == 36 ? 1 : -1];
#else
_Static_assert(sizeof(struct l2_skaddr) == 16, "a binary interface");
_Static_assert(sizeof(struct vlan_skaddr) == 36, "a binary interface");
#endif

#endif
