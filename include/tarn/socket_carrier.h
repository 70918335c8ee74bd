/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The protocol sockets of a switch that runs in a process, carried over a Unix socket.
 *
 * Each socket of a daemon is a connection (SOCK_SEQPACKET) of its own, and its descriptor is the
 * daemon's: what the daemon does with it by dup, fork, fcntl and close is the kernel's to do. The
 * library tools/preload does the calls.
 *
 * A call is one packet, a tarn_carrier_request with its bytes behind it, and one descriptor beside it
 * (SCM_RIGHTS): an end of a socket pair. The answer, a tarn_carrier_reply with its bytes, comes by that
 * pair, so that any number of threads and processes may be in a call on one socket.
 *
 * What the switch sends on the connection itself is a mark, a packet of one byte: there is one while
 * the socket has something to read, and none else, so that poll, select and epoll see what they should.
 * A reply that says so takes it away again: the caller reads it before it returns.
 *
 * No call waits in the switch. Who has to wait polls the connection and asks again.
 */
#ifndef TARN_SOCKET_CARRIER_H
#define TARN_SOCKET_CARRIER_H

#include <stdint.h>

/* Where a switch serves it when nobody says otherwise, and a variable that says otherwise. */
#define TARN_SOCKETS_PATH "/run/tarn/sockets"
#define TARN_SOCKETS_VARIABLE "TARN_SOCKETS"

/* How the name of a connection's own end begins, in the abstract name space: by it a program knows the
 * sockets that it has inherited. */
#define TARN_CARRIER_NAME "tarn-carried/"

/* The most bytes behind a request or a reply, and the most of them that are an address. */
#define TARN_CARRIER_DATA_MAX 65536
#define TARN_CARRIER_NAME_MAX 128

enum tarn_carrier_call {
    TARN_CARRIER_OPEN,    /* a family, b type, c protocol; the first call, once */
    TARN_CARRIER_SEND,    /* a MSG_*; the address, then the data */
    TARN_CARRIER_RECEIVE, /* a MSG_*; size */
    TARN_CARRIER_SETOPT,  /* a level, b name; the value */
    TARN_CARRIER_GETOPT,  /* a level, b name; size. Its result is the length of the value */
    TARN_CARRIER_OTHER,   /* what no family has: bind, connect, ... */
};

struct tarn_carrier_request {
    uint32_t call;
    int32_t a, b, c;
    uint32_t name_length; /* of the address, which comes first */
    uint32_t nowhere;     /* the data cannot be read where the caller says it is */
    uint64_t size;        /* of the data; room for it */
};

struct tarn_carrier_reply {
    int64_t result;      /* of the call, or a negative errno */
    uint32_t msg_flags;  /* MSG_* */
    uint32_t empty;      /* there was nothing to read */
    uint32_t takes_mark; /* the caller has to read the mark */
    uint32_t name_length;
    uint8_t name[TARN_CARRIER_NAME_MAX];
};

#endif
