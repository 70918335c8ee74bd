/*
 * A LACP listener: prints who is at the other end of each port that speaks link aggregation control.
 *
 *     lacp_listener [COUNT]        ends after that many LACPDUs
 *
 * On a switch whose kernel has the families, as root:
 *
 *     cc -Iinclude -o lacp_listener examples/lacp_listener.c && ./lacp_listener
 *
 * Beside a switch that runs in a process (tarn-switch --sockets PATH ...):
 *
 *     TARN_SOCKETS=PATH LD_PRELOAD=build/release/lib/libtarn_preload.so ./lacp_listener
 */
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tarn/skaddr.h"

enum { SUBTYPE_LACP = 1, LACPDU_LENGTH = 110, ACTOR = 4, PARTNER = 24 }; /* behind the Ethernet header */

static unsigned word(const unsigned char *bytes)
{
    return (unsigned)bytes[0] << 8 | bytes[1];
}

/* Actor and partner are told alike: system priority, system, key, port priority, port, state. */
static void print_end(const char *who, const unsigned char *end)
{
    static const char *const bits[] = {"active", "short-timeout", "aggregates", "in-sync",
                                       "collects", "distributes", "defaulted", "expired"};

    printf("  %s %02x:%02x:%02x:%02x:%02x:%02x key %u port %u", who, end[2], end[3], end[4], end[5],
           end[6], end[7], word(end + 8), word(end + 12));
    for (int i = 0; i < 8; i++)
        if (end[14] >> i & 1)
            printf(" %s", bits[i]);
    printf("\n");
}

static void print_lacpdu(const struct l2_skaddr *from, const unsigned char *pdu, ssize_t length)
{
    if (length < LACPDU_LENGTH || pdu[0] != SUBTYPE_LACP)
        return; /* the marker protocol has the same address */
    printf("port %u, from %02x:%02x:%02x:%02x:%02x:%02x\n", from->ifindex, from->src_mac[0],
           from->src_mac[1], from->src_mac[2], from->src_mac[3], from->src_mac[4], from->src_mac[5]);
    print_end("actor  ", pdu + ACTOR);
    print_end("partner", pdu + PARTNER);
    fflush(stdout);
}

int main(int argc, char **argv)
{
    long left = argc > 1 ? atol(argv[1]) : -1;
    int fd = socket(TARN_AF_LACP, SOCK_RAW, 0);

    if (fd < 0) {
        fprintf(stderr, "lacp_listener: no socket: %s%s\n", strerror(errno),
                errno == EAFNOSUPPORT ? " (is tarnfwd loaded, or a tarn-switch running?)" : "");
        return 1;
    }
    while (left != 0) {
        unsigned char pdu[1500];
        struct l2_skaddr from;
        struct iovec data = {pdu, sizeof(pdu)};
        struct msghdr msg = {.msg_name = &from, .msg_namelen = sizeof(from), .msg_iov = &data,
                             .msg_iovlen = 1};
        struct pollfd readable = {.fd = fd, .events = POLLIN};

        if (poll(&readable, 1, -1) < 0 || !(readable.revents & POLLIN))
            return 1;
        ssize_t length = recvmsg(fd, &msg, MSG_DONTWAIT);
        if (length < 0)
            continue; /* another reader was faster */
        print_lacpdu(&from, pdu, length);
        left -= left > 0;
    }
    close(fd);
    return 0;
}
