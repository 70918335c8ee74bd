/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The control family of a switch that runs in a process: netlink over a Unix socket.
 *
 * The socket is of type SOCK_SEQPACKET. A packet to the switch is what one send on a netlink socket
 * would be: one message of tarnfwd_nl.h, or several. Each message of the switch, an answer or an
 * event, is a packet. They are the same bytes as a kernel's, acknowledgements included; only the
 * numbers that a kernel gives out (of the family, of its group, of the socket) are this process's.
 * The family is found by CTRL_CMD_GETFAMILY, as always.
 *
 * What setsockopt does on a netlink socket is asked for by a message too:
 *
 *     struct nlmsghdr  nlmsg_type TARNFWD_SOCKET_OPTION, nlmsg_flags NLM_F_REQUEST
 *     struct tarnfwd_socket_option
 *
 * It is answered by an acknowledgement (NLMSG_ERROR, capped) whose error is 0 or negative, and whose
 * nlmsg_pid is the number of this socket, which all answers carry. Such a message stands alone in its
 * packet.
 *
 *     join the events     NETLINK_GENERIC, NETLINK_ADD_MEMBERSHIP, the group's number
 *     whole frames        NETLINK_USERSOCK, NETLINK_ADD_MEMBERSHIP, TARNFWD_RAW_GROUP_*: frames come
 *                         as packets of their own, without a header; use a socket for them alone
 *     extended answers    NETLINK_GENERIC, NETLINK_EXT_ACK, 1
 *     short answers       NETLINK_GENERIC, NETLINK_CAP_ACK, 1
 *
 * Nobody waits for a client that does not read: what finds no room in its socket's buffer, an answer or
 * an event, is lost, though the commands are carried out, and so is all that follows until it has read
 * most of what waits. Then, where something is missing, it gets a packet of a netlink header alone, of
 * type NLMSG_OVERRUN: what ENOBUFS is of a kernel's socket. No whole frame is as short as that.
 */
#ifndef TARN_TARNFWD_SOCKET_H
#define TARN_TARNFWD_SOCKET_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Where a switch serves it when nobody says otherwise, and a variable that says otherwise. */
#define TARNFWD_SOCKET_PATH "/run/tarn/netlink"
#define TARNFWD_SOCKET_VARIABLE "TARN_NETLINK"

/* The longest packet, either way. */
#define TARNFWD_SOCKET_PACKET_MAX 65536

/* Of the numbers that netlink keeps for its own control messages and does not use. */
#define TARNFWD_SOCKET_OPTION 0x0F

struct tarnfwd_socket_option {
    uint32_t protocol; /* NETLINK_GENERIC or NETLINK_USERSOCK */
    uint32_t option;   /* NETLINK_ADD_MEMBERSHIP, NETLINK_EXT_ACK, ... */
    uint32_t value;    /* a group's number; 0 or 1 */
};

#ifdef __cplusplus
}
#endif

#endif
