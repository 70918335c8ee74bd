/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The control family of the switch: what a control daemon says to it, and what it says unasked.
 *
 * A generic netlink family, found by its name. Every command is a request without an answer of its
 * own: with NLM_F_ACK its result comes back in the acknowledgement, 0 or negative. There are no dumps.
 * Attributes are checked strictly: one of an unknown number, or an integer of a wrong size, refuses
 * the command. Integers are in host byte order; IPv4 and tunnel addresses are the 4 bytes as they
 * stand in a packet. Commands are run one at a time, over all senders.
 *
 * Results: 0; a negative errno (-EINVAL for a missing attribute); a bare -1, which reads as -EPERM,
 * where a command below says so; or one of the switch's own numbers, TARNFWD_ERR_*.
 *
 * Plain C; include it in a program or in a kernel module.
 */
#ifndef TARN_TARNFWD_NL_H
#define TARN_TARNFWD_NL_H

#ifdef __KERNEL__
#include <linux/types.h>
#else
#include <stdint.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define TARNFWD_NL_FAMILY "tarnfwd"
#define TARNFWD_NL_VERSION 1
#define TARNFWD_NL_GROUP "tarnfwd" /* the one multicast group: events */

/* The groups of NETLINK_USERSOCK on which whole frames go out, and what reserves each. */
#define TARNFWD_RAW_GROUP_SFLOW 1 /* samples */
#define TARNFWD_RAW_GROUP_FLOWD 2 /* frames for the flow daemon */

/* --- attributes ---------------------------------------------------------------------------------- */

/*
 * Each with its type: u8, u16, u32; bytes(n), at most n of them; array of records, as many as fit; or
 * string. A command that needs bytes(n) refuses fewer than n with -EINVAL, but for the VLAN bitmap,
 * where missing bytes read as zero.
 */
enum tarnfwd_attr {
    TARNFWD_ATTR_UNSPEC = 0,
    TARNFWD_ATTR_IFINDEX = 1,       /* u32: interface or port, as the daemon numbers them */
    TARNFWD_ATTR_AGG_IFINDEX = 2,   /* u32: aggregator */
    TARNFWD_ATTR_PORT_IFINDEX = 3,  /* u32: port on which flushed neighbours were learned */
    TARNFWD_ATTR_VID = 4,           /* u16: VLAN id; a VLAN's interface is ifindex vid + 300 */
    TARNFWD_ATTR_ID = 5,            /* u32: FIB id; of the neighbour commands, the VLAN (-1: any) */
    TARNFWD_ATTR_STATE = 6,         /* u8: on or off; of an event, 1: the entry is added */
    TARNFWD_ATTR_TAGGED = 7,        /* u8: the port's frames of the VLAN carry a tag */
    TARNFWD_ATTR_VID_BITMAP = 8,    /* bytes(512): VLAN v is bit v & 31 of 32-bit word v >> 5 */
    TARNFWD_ATTR_MAC = 9,           /* bytes(6): MAC address */
    TARNFWD_ATTR_FAMILY = 10,       /* u8: 0 both, 2 IPv4, 10 IPv6 */
    TARNFWD_ATTR_IPV4_ADDR = 11,    /* bytes(4): IPv4 address; of IGMP_SNOOPING_ROUTERMODE a u32
                                       that numbers a group bit, 0 to 255 */
    TARNFWD_ATTR_PREFIX_LEN = 12,   /* u8: bits of a subnet */
    TARNFWD_ATTR_XLATE_VID = 13,    /* u16: VLAN that a translation rule finds */
    TARNFWD_ATTR_XLATE_NEW_VID = 14,      /* u16: VLAN that it makes of it */
    TARNFWD_ATTR_XLATE_MISS_ACTION = 15,  /* u8: what becomes of a frame that no rule finds */
    TARNFWD_ATTR_STACK_RULE_VID_A = 16,   /* u16: inner VLAN of a stacking rule */
    TARNFWD_ATTR_STACK_RULE_VID_B = 17,   /* u16: outer VLAN of a stacking rule */
    TARNFWD_ATTR_PVLAN_TYPE = 18,         /* u8: 0 none, 1 community, 2 isolated, 3 primary */
    TARNFWD_ATTR_PVLAN_PRIMARY_VID = 19,  /* u16 */
    TARNFWD_ATTR_PVLAN_SECONDARY_VID = 20, /* u16 */
    TARNFWD_ATTR_PVLAN_PORT_MODE = 21,     /* u8: 2 and 3 promiscuous, others a host port */
    TARNFWD_ATTR_PVLAN_FORWARDING = 22,    /* u8: 0 through upstream interfaces only, 1 free */
    TARNFWD_ATTR_PVLAN_UPSTREAM_LIST = 23, /* array of struct tarnfwd_upstream */
    TARNFWD_ATTR_DHCPSN_LEASE_OP = 24,     /* u8: enum tarnfwd_lease_op */
    TARNFWD_ATTR_DHCPSN_KIND = 25,   /* u8: 0 DHCP snooping, 1 ARP security, 2 its debug log */
    TARNFWD_ATTR_DHCPSN_GLOBAL = 26, /* u8: not 0, with kind 0: of the switch, not of the VLAN */
    TARNFWD_ATTR_ARPSEC_ACTION = 27, /* u8: bits 0 to 3; bit 3 is the one the switch acts on */
    TARNFWD_ATTR_ARPSEC_REASON = 28, /* u8, event only: enum tarnfwd_arpsec_reason */
    TARNFWD_ATTR_MIRROR_TARGET = 29, /* u32: ifindex that gets the copies */
    TARNFWD_ATTR_MIRROR_SOURCE = 30, /* u32: ifindex that is mirrored */
    TARNFWD_ATTR_MIRROR_DIRECTION = 31,    /* u8: bits; 0x2, transmit, is the one kept here */
    TARNFWD_ATTR_STP_INSTANCE = 32,        /* u32: spanning tree instance, 0 to 63 */
    TARNFWD_ATTR_STP_STATE = 33,           /* u8: enum tarnfwd_stp_state */
    TARNFWD_ATTR_AUTH_PORT_STATE = 34,     /* u8: enum tarnfwd_auth_state */
    TARNFWD_ATTR_AUTH_METHOD = 35,         /* u8: bits of the ways to authenticate */
    TARNFWD_ATTR_AUTH_WEB_PORT = 36,       /* u16: port on which Web authentication listens */
    TARNFWD_ATTR_AUTH_WEB_PORT2 = 37,      /* u16: its second one */
    TARNFWD_ATTR_AUTH_HTTP_PORTS = 38,     /* array of u16: ports to hook */
    TARNFWD_ATTR_AUTH_HTTPS_PORTS = 39,    /* array of u16: ports to hook */
    TARNFWD_ATTR_AUTH_GUEST_FWD_RULES = 40, /* array of struct tarnfwd_fwd_rule, 255 at most */
    TARNFWD_ATTR_AUTH_FWD_RULES = 41,       /* array of struct tarnfwd_fwd_rule, 255 at most */
    TARNFWD_ATTR_MC_RATE_LIMIT = 42,        /* u32: frames a second of unregistered multicast */
    TARNFWD_ATTR_MC_ROUTER_OP = 43,         /* u8: 0 set the group bit, 1 clear it, 2 store the mode */
    TARNFWD_ATTR_MC_ROUTER_VALUE = 44,      /* u8: the mode */
    TARNFWD_ATTR_FLAGS = 45,                /* u32: IFF_* */
    TARNFWD_ATTR_SPEED = 46,                /* u32: Mbit/s, as ethtool prints it */
    TARNFWD_ATTR_DUPLEX = 47,               /* u8: 0 half, 1 full, as ethtool prints it */
    TARNFWD_ATTR_VID_START = 48,            /* u16: first VLAN of a range */
    TARNFWD_ATTR_VID_END = 49,              /* u16: the VLAN behind the last one */
    TARNFWD_ATTR_VLAN_OPTIONS = 50,         /* u32: TARNFWD_VLAN_* */
    TARNFWD_ATTR_VXLAN_LOCAL_ADDR = 51,     /* bytes(4) */
    TARNFWD_ATTR_VXLAN_REMOTE_ADDR = 52,    /* bytes(4) */
    TARNFWD_ATTR_VXLAN_VNI = 53,            /* u32 */
    TARNFWD_ATTR_RESERVED = 54,             /* u32: accepted and not looked at */
    TARNFWD_ATTR_IF_NAME = 55,              /* string; more than 16 bytes are cut */
    TARNFWD_ATTR_IF_KIND = 56,              /* u8: enum tarnfwd_if_kind */
    TARNFWD_ATTR_PORT_KIND = 57,            /* u8: enum tarnfwd_port_kind */
    TARNFWD_ATTR_STACK_MEMBER = 58,         /* u32: member of the stack that the port belongs to */
    TARNFWD_ATTR_DOS_REASON = 59,           /* u8, event only: the reason that the chip gave */
    TARNFWD_ATTR_ETHERTYPE = 60,            /* u16, event only */
    TARNFWD_ATTR_DOS_HEADER = 61,           /* bytes(20), event only: the frame behind its type */
    TARNFWD_ATTR_FDB_EVENT = 62,            /* u8, event only: enum tarnfwd_fdb_event */
    TARNFWD_ATTR_MAX = 62
};

/* --- commands and events ------------------------------------------------------------------------- */

/*
 * Each command with the attributes that it needs, in the order in which they are asked for (the first
 * that is missing gives -EINVAL), those that it may have in brackets, and what an interface or VLAN
 * that is not there gives, where it is not 0 or a TARNFWD_ERR_ number.
 */
enum tarnfwd_cmd {
    /* An interface comes to be. IFINDEX, IF_NAME, IF_KIND, FLAGS, [MAC, PORT_KIND, STACK_MEMBER].
     * Kinds 2 and 3 alone make one; without MAC they give -201. Unknown kinds: -EOPNOTSUPP. */
    TARNFWD_CMD_IF_NEWLINK = 0,
    /* Flags of a port (of other interfaces they are not looked at), speed and duplex.
     * IFINDEX, FLAGS, [SPEED, DUPLEX]. Unknown: -1. */
    TARNFWD_CMD_IF_UPDATE = 1,
    /* An interface goes. IFINDEX. Unknown: 0. */
    TARNFWD_CMD_IF_DELLINK = 2,
    /* IFINDEX, MAC. Unknown: -203. */
    TARNFWD_CMD_IF_SET_HWADDR = 3,
    /* The interface belongs to a FIB. IFINDEX, ID. Unknown: -203; not layer 3: -204. */
    TARNFWD_CMD_IF_BIND_FIB = 4,
    /* IFINDEX, ID. Unknown: -203; bound to another FIB: -204. */
    TARNFWD_CMD_IF_UNBIND_FIB = 5,
    /* A VLAN interface goes. IFINDEX. Unknown: -1. */
    TARNFWD_CMD_IF_DELETE_SVI = 6,
    /* VLAN interfaces VID_START to VID_END - 1 come to be; the answer is that of the last.
     * VID_START, VID_END, VLAN_OPTIONS, MAC. */
    TARNFWD_CMD_IF_CREATE_SVI_RANGE = 7,
    /* IFINDEX, VLAN_OPTIONS (TARNFWD_VLAN_ALWAYS_UP and TARNFWD_VLAN_NO_MEMBER_CHECK count, each set or
     * cleared as it is there). Unknown: -1. */
    TARNFWD_CMD_IF_SET_VLAN_OPTIONS = 8,
    /* A VXLAN tunnel of a VLAN comes or goes. STATE, VID, VXLAN_VNI, VXLAN_REMOTE_ADDR,
     * VXLAN_LOCAL_ADDR. Always 0. */
    TARNFWD_CMD_IF_SET_VXLAN_CONFIG = 9,
    /* Neighbours learned on a port are forgotten. FAMILY, ID (the VLAN, or -1), PORT_IFINDEX, IFINDEX
     * (0 or unknown: of any device). A family that is none: -1. */
    TARNFWD_CMD_NBR_DEL_BY_VLAN_AND_PORT = 10,
    /* A neighbour has moved. IFINDEX, MAC. Unknown: -EINVAL. */
    TARNFWD_CMD_NBR_DEL_BY_VLAN_MAC = 11,
    /* ARP may answer with a MAC address that is not its sender's. IFINDEX, STATE. Unknown: -1. */
    TARNFWD_CMD_ARP_MAC_DISPARITY = 12,
    /* Neighbours of a MAC address are forgotten. IFINDEX (0: of any device; else a VLAN interface), ID
     * (the VLAN, of which 16 bits count), MAC. Unknown, or no VLAN interface: -1. */
    TARNFWD_CMD_ARP_DEL_ALL_BY_MAC = 13,

    /* VID, STP_INSTANCE. */
    TARNFWD_CMD_STP_ADD_VLAN_TO_INSTANCE = 14,
    /* VID. */
    TARNFWD_CMD_STP_DELETE_VLAN_FROM_INSTANCE = 15,
    /* IFINDEX, STP_INSTANCE, STP_STATE. */
    TARNFWD_CMD_STP_SET_PORT_STATE = 16,

    /* IFINDEX, STATE. -EINVAL for what is no port, here and in the seven below. */
    TARNFWD_CMD_PORT_SET_VLAN_INGRESS_FILTER = 17,
    /* IFINDEX, VID. */
    TARNFWD_CMD_VLAN_SET_DEFAULT_PVID = 18,
    /* IFINDEX, TAGGED, VID. */
    TARNFWD_CMD_VLAN_ADD_PORT_DYNAMIC = 19,
    /* IFINDEX, TAGGED, VID_BITMAP. */
    TARNFWD_CMD_VLAN_ADD_VID_BMP_TO_PORT = 20,
    /* IFINDEX, VID. */
    TARNFWD_CMD_VLAN_DELETE_PORT_DYNAMIC = 21,
    /* IFINDEX, VID_BITMAP. Unknown: 0. */
    TARNFWD_CMD_VLAN_DELETE_VID_BMP_FROM_PORT = 22,
    /* Untagged frames from a subnet belong to a VLAN. IFINDEX, VID, IPV4_ADDR, PREFIX_LEN.
     * Unknown: -EINVAL, here and in the four below. */
    TARNFWD_CMD_VLAN_CLASSIFIER_ADD = 23,
    /* IFINDEX, VID, IPV4_ADDR, PREFIX_LEN. */
    TARNFWD_CMD_VLAN_CLASSIFIER_DELETE = 24,
    /* IFINDEX, XLATE_VID, XLATE_NEW_VID. */
    TARNFWD_CMD_VLAN_XLATE_ADD_TO_PORT = 25,
    /* IFINDEX, XLATE_VID, XLATE_NEW_VID. */
    TARNFWD_CMD_VLAN_XLATE_DELETE_FROM_PORT = 26,
    /* IFINDEX, XLATE_MISS_ACTION. */
    TARNFWD_CMD_VLAN_XLATE_SET_MISS_ACTION_TO_PORT = 27,
    /* IFINDEX, XLATE_MISS_ACTION (of neither is the value looked at), STACK_RULE_VID_A,
     * STACK_RULE_VID_B. */
    TARNFWD_CMD_VLAN_STACK_RULE_ADD = 28,
    /* The same. */
    TARNFWD_CMD_VLAN_STACK_RULE_DELETE = 29,

    /* ID (of the VRF), IPV4_ADDR (the group bit), MC_ROUTER_OP, MC_ROUTER_VALUE. Always 0. */
    TARNFWD_CMD_IGMP_SNOOPING_ROUTERMODE = 30,
    /* The VRF has a router mode, or no longer. ID, STATE. Always 0. */
    TARNFWD_CMD_IGMP_SNOOPING_ROUTERMODE_DB = 31,
    /* Multicast that nobody asked for is not flooded. STATE (1: not flooded). Always 0. */
    TARNFWD_CMD_STOP_UNREG_MC_FLOODING = 32,
    /* MC_RATE_LIMIT. Always 0. */
    TARNFWD_CMD_MULTICAST_RATELIMIT = 33,
    /* Multicast is routed on the interface. IFINDEX. Always 0, as the next. */
    TARNFWD_CMD_IPV4_MC_VIF_ADD = 34,
    /* IFINDEX. */
    TARNFWD_CMD_IPV4_MC_VIF_DEL = 35,
    /* ID (of the FIB), VID, IPV4_ADDR. */
    TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_ADD = 36,
    /* ID, VID, IPV4_ADDR. Not there: -1. */
    TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_REMOVE = 37,
    /* Needs nothing. */
    TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_FLUSH = 38,
    /* STATE. Always 0, as the next. */
    TARNFWD_CMD_IPV4_MC_SOFTWARE_ROUTING_SET = 39,
    /* STATE. */
    TARNFWD_CMD_IPV6_MC_SOFTWARE_ROUTING_SET = 40,

    /* AGG_IFINDEX. Unknown: -EINVAL, here and in the two below. */
    TARNFWD_CMD_LACP_DELETE_AGGREGATOR = 41,
    /* The port joins the aggregator. IFINDEX, AGG_IFINDEX. */
    TARNFWD_CMD_LACP_ATTACH_MUX_TO_AGGREGATOR = 42,
    /* The port leaves it. IFINDEX, AGG_IFINDEX. */
    TARNFWD_CMD_LACP_DETACH_MUX_FROM_AGGREGATOR = 43,

    /* VID, PVLAN_TYPE. -EINVAL for what does not fit, here and in the seven below. */
    TARNFWD_CMD_PVLAN_SET_VLAN_TYPE = 44,
    /* PVLAN_PRIMARY_VID, PVLAN_SECONDARY_VID. */
    TARNFWD_CMD_PVLAN_VLAN_ASSOCIATE = 45,
    /* PVLAN_PRIMARY_VID, PVLAN_SECONDARY_VID. */
    TARNFWD_CMD_PVLAN_VLAN_DISSOCIATE = 46,
    /* IFINDEX, PVLAN_PRIMARY_VID, PVLAN_SECONDARY_VID. */
    TARNFWD_CMD_PVLAN_PORT_ADD = 47,
    /* IFINDEX, PVLAN_PRIMARY_VID, PVLAN_SECONDARY_VID. */
    TARNFWD_CMD_PVLAN_PORT_DELETE = 48,
    /* IFINDEX, PVLAN_PORT_MODE. */
    TARNFWD_CMD_PVLAN_SET_PORT_MODE = 49,
    /* VID, PVLAN_FORWARDING. */
    TARNFWD_CMD_PVLAN_SET_VLAN_FORWARDING = 50,
    /* PVLAN_UPSTREAM_LIST. Records that name nothing are passed over. */
    TARNFWD_CMD_PVLAN_UFO_UPSTREAM_IF_UPDATE = 51,

    /* IFINDEX, AUTH_PORT_STATE, AUTH_METHOD. Unknown: -ENODEV. */
    TARNFWD_CMD_AUTH_SET_PORT_STATE = 52,
    /* IPV4_ADDR, AUTH_WEB_PORT, AUTH_WEB_PORT2, STATE, AUTH_HTTP_PORTS, AUTH_HTTPS_PORTS. */
    TARNFWD_CMD_AUTH_WEB_CONFIG = 53,
    /* IFINDEX, VID (of guests), STATE (ARP is forwarded), AUTH_GUEST_FWD_RULES, AUTH_FWD_RULES.
     * Unknown: -1; else 0. */
    TARNFWD_CMD_AUTH_FWD_CONFIG = 54,
    /* IFINDEX, VID, STATE (admitted), MAC. Unknown: -1. */
    TARNFWD_CMD_AUTH_SET_SUPP_STATE = 55,
    /* IFINDEX, MAC. Unknown: -1. */
    TARNFWD_CMD_AUTH_DEL_SUPP = 56,
    /* IFINDEX, STATE, MAC. Unknown, or no such supplicant: -1. */
    TARNFWD_CMD_AUTH_MAC_AGEOUT_INCOMPLETE = 57,

    /* VID, STATE. */
    TARNFWD_CMD_RYKE_SET_CTRL_VLAN = 58,
    /* The port carries the VLAN (1), or is shut for it (0). IFINDEX, VID, STATE. */
    TARNFWD_CMD_VLAN_PORT_STATE = 59,
    /* The same for many VLANs. IFINDEX, VID_BITMAP, STATE. */
    TARNFWD_CMD_VLAN_PORT_STATE_BMP = 60,
    /* MIRROR_TARGET, MIRROR_SOURCE, VID (0: all), MIRROR_DIRECTION. */
    TARNFWD_CMD_PMIRROR_SET = 61,
    /* The same. */
    TARNFWD_CMD_PMIRROR_UNSET = 62,

    /* IFINDEX, VID, DHCPSN_LEASE_OP, IPV4_ADDR, MAC: all, whatever the operation. An operation that is
     * none: -1. */
    TARNFWD_CMD_DHCPSN_LEASE = 63,
    /* VID, DHCPSN_KIND, STATE, DHCPSN_GLOBAL. */
    TARNFWD_CMD_DHCPSN_STATE = 64,
    /* IFINDEX (0 with STATE 0: all ports), STATE. Unknown: -EINVAL. */
    TARNFWD_CMD_DHCPSN_TRUST = 65,
    /* IFINDEX, ARPSEC_ACTION. Unknown: -EINVAL. */
    TARNFWD_CMD_DHCPSN_ARPSEC_ACTION = 66,
    /* VID, STATE. Unknown: -1. */
    TARNFWD_CMD_DHCPSN_L2_FLOODING_STATE = 67,
    /* STATE. Always 0. */
    TARNFWD_CMD_UDLD_ENABLED = 68,
    /* IFINDEX, STATE. */
    TARNFWD_CMD_UDLD_SET_HW_FILTER = 69,
    /* IPV4_ADDR. Always 0, as the next. */
    TARNFWD_CMD_VORNAPPSD_REDIRECT_ADD_IP_ADDRESS = 70,
    /* IPV4_ADDR. */
    TARNFWD_CMD_VORNAPPSD_REDIRECT_REMOVE_IP_ADDRESS = 71,

    /* Event: the chip's table needs to know of an address. MAC, IFINDEX (0 of a destination), VID,
     * STATE (1), FDB_EVENT, VXLAN_VNI, VXLAN_REMOTE_ADDR (of a frame that no tunnel brought, the
     * chip's exception pair). */
    TARNFWD_CMD_L2_FDB_ADD = 72,
    /* Nobody's: always -EINVAL. */
    TARNFWD_CMD_L2_FDB_SET = 73,
    /* Event: a frame looked like an attack. IFINDEX, DOS_REASON, ETHERTYPE, DOS_HEADER. */
    TARNFWD_CMD_DOS_MATCH = 74,
    /* Event: an ARP packet was refused. IFINDEX, VID, IPV4_ADDR, ARPSEC_REASON, MAC. */
    TARNFWD_CMD_DHCPSN_ARPSEC_VIOLATION = 75,

    /* The management VLAN of the stack. VID, MAC. There already: -1. */
    TARNFWD_CMD_STACK_MGMT_VLAN_CREATE = 76,
    /* Needs nothing. None there: -1, as the next. */
    TARNFWD_CMD_STACK_MGMT_VLAN_DESTROY = 77,
    /* STATE. */
    TARNFWD_CMD_STACK_MGMT_VLAN_SET_STATE = 78,
    /* IFINDEX. Always 0, as the next. */
    TARNFWD_CMD_IPV6_MC_VIF_ADD = 79,
    /* IFINDEX. */
    TARNFWD_CMD_IPV6_MC_VIF_DEL = 80,
    /* The port is routed, with that VLAN (0: a switch port again). IFINDEX, VID. Unknown: -203. */
    TARNFWD_CMD_PORT_SET_L3 = 81,
    TARNFWD_CMD_MAX = 81
};

/* --- values -------------------------------------------------------------------------------------- */

enum tarnfwd_if_kind {
    TARNFWD_IF_KIND_ETHERNET = 2, /* a device of the machine, found by its name */
    TARNFWD_IF_KIND_PORT = 3,     /* a port or an aggregator, as PORT_KIND says */
    TARNFWD_IF_KIND_MAX = 9       /* 1 and 4 to 9 are accepted and make nothing */
};

enum tarnfwd_port_kind {
    TARNFWD_PORT_KIND_SWITCHED = 0,    /* so are all values but those below */
    TARNFWD_PORT_KIND_ROUTED = 1,      /* a port with a device of its own */
    TARNFWD_PORT_KIND_AGG_DYNAMIC = 2, /* an aggregator that the daemon brings up */
    TARNFWD_PORT_KIND_AGG_STATIC = 3   /* an aggregator that is up while a member is */
};

/* VLAN_OPTIONS */
#define TARNFWD_VLAN_MIRROR 0x1u           /* at creation: a remote mirror VLAN */
#define TARNFWD_VLAN_LOCAL 0x2u            /* at creation: of this stack member alone */
#define TARNFWD_VLAN_ALWAYS_UP 0x4u        /* at any time: up without a port that is */
#define TARNFWD_VLAN_NO_MEMBER_CHECK 0x20u /* IF_SET_VLAN_OPTIONS: frames from any port belong */

enum tarnfwd_stp_state {
    TARNFWD_STP_DISABLED = 0,
    TARNFWD_STP_LISTENING = 1,
    TARNFWD_STP_LEARNING = 2,
    TARNFWD_STP_FORWARDING = 3,
    TARNFWD_STP_BLOCKING = 4
};

enum tarnfwd_auth_state {
    TARNFWD_AUTH_BLOCK_IN_OUT = 0,
    TARNFWD_AUTH_BLOCK_IN = 1,
    TARNFWD_AUTH_UNBLOCK = 2,
    TARNFWD_AUTH_UNCONTROLLED = 3,
    TARNFWD_AUTH_AUTO = 4
};

enum tarnfwd_lease_op {
    TARNFWD_LEASE_ADD = 0,
    TARNFWD_LEASE_DELETE = 1,
    TARNFWD_LEASE_FLUSH = 2
};

enum tarnfwd_mc_router_op {
    TARNFWD_MC_ROUTER_SET_GROUP = 0,
    TARNFWD_MC_ROUTER_CLEAR_GROUP = 1,
    TARNFWD_MC_ROUTER_SET_MODE = 2
};

enum tarnfwd_arpsec_reason {
    TARNFWD_ARPSEC_NO_BINDING = 1,    /* nobody has leased the address */
    TARNFWD_ARPSEC_VLAN_MISMATCH = 2, /* leased in another VLAN */
    TARNFWD_ARPSEC_PORT_MISMATCH = 3, /* leased on another port */
    TARNFWD_ARPSEC_MAC_MISMATCH = 4   /* leased to another station */
};

enum tarnfwd_fdb_event {
    TARNFWD_FDB_NEW_SOURCE = 1,
    TARNFWD_FDB_MOVED_SOURCE = 3,
    TARNFWD_FDB_DESTINATION = 4
};

/* --- records inside attributes ------------------------------------------------------------------- */

/* PVLAN_UPSTREAM_LIST, host byte order. */
struct tarnfwd_upstream {
    uint32_t operation; /* 1: the interface is upstream of the VLAN; else: no longer */
    uint32_t vid;
    uint32_t ifindex;
};

/* AUTH_FWD_RULES and AUTH_GUEST_FWD_RULES: what a station may reach before it is admitted. */
struct tarnfwd_fwd_rule {
    uint32_t family;     /* 2 IPv4, 10 IPv6 */
    uint8_t prefix_len;  /* of the address */
    uint8_t reserved1[7];
    uint8_t address[16]; /* as in a packet; an IPv4 address is the first 4 bytes */
    uint16_t port;       /* host byte order; 0: any */
    uint8_t protocol;    /* 6 TCP, 17 UDP; 0: any */
    uint8_t reserved2;
};

/* --- the switch's own results -------------------------------------------------------------------- */

/* They stand in an acknowledgement beside errno's, above whose numbers they lie. */
enum tarnfwd_error {
    TARNFWD_ERR_BAD_ARG = -201,       /* no MAC address, or no such kind of aggregator */
    TARNFWD_ERR_NO_INTERFACE = -203,  /* no interface of that ifindex */
    TARNFWD_ERR_WRONG_TYPE = -204,    /* the interface's type does not go with it */
    TARNFWD_ERR_NO_MEMORY = -205,     /* a record could not be allocated */
    TARNFWD_ERR_TREE_INSERT = -206,   /* the database had no room for it */
    TARNFWD_ERR_NETDEV = -210,        /* its network device could not be made */
    TARNFWD_ERR_INIT = -215,          /* the database could not be made; no command answers this */
    TARNFWD_ERR_TYPE_MISMATCH = -218, /* port and aggregator differ in type */
    TARNFWD_ERR_EXISTS = -226         /* the aggregator's ifindex was taken meanwhile */
};

#ifdef __cplusplus
}
#endif

#endif
