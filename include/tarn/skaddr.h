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

/* the others, but for three that have their own */
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

/* mld_snoop */
struct mld_skaddr {
    uint8_t src_ip[16]; /* receive */
    uint8_t dst_ip[16];
    uint8_t dest_mac[6];
    uint8_t src_mac[6]; /* send: all zero for that of the VLAN's interface */
    uint32_t ifindex;
    uint16_t vid;
    uint16_t vrf;            /* receive */
    uint32_t except_ifindex; /* send: the port that a flood leaves out */
};

/* dhcpsn */
struct dhcpsn_skaddr {
    uint32_t ifindex; /* where the frame came from; send: 0 for nowhere */
    uint16_t vid;
    uint16_t to_stack;       /* receive: 1 for a frame from a port; send: also to the IP stack */
    uint32_t target_ifindex; /* send: the port to send on, 0 to flood */
    uint32_t client_ip;      /* send: of the lease, 0 for none */
    uint8_t client_mac[6];
    uint16_t reserved;
};

/* openflowd */
struct openflow_skaddr {
    uint16_t family; /* bind: 63 */
    uint16_t vid;    /* receive */
    uint32_t ifindex;
    uint32_t reserved;
};

/* A binary interface: so long, and no longer. */
#ifdef __cplusplus
#define TARN_SKADDR_SIZE(record, size) static_assert(sizeof(struct record) == (size), #record)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define TARN_SKADDR_SIZE(record, size) _Static_assert(sizeof(struct record) == (size), #record)
#else
#define TARN_SKADDR_SIZE(record, size)                                                             \
    typedef char record##_size[sizeof(struct record) == (size) ? 1 : -1]
#endif

TARN_SKADDR_SIZE(l2_skaddr, 16);
TARN_SKADDR_SIZE(vlan_skaddr, 36);
TARN_SKADDR_SIZE(mld_skaddr, 56);
TARN_SKADDR_SIZE(dhcpsn_skaddr, 24);
TARN_SKADDR_SIZE(openflow_skaddr, 12);

#endif
