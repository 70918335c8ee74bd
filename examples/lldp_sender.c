/*
 * A LLDP sender: tells the neighbour at a port who is here, every 30 seconds.
 *
 *     lldp_sender IFINDEX MAC NAME [COUNT [SECONDS]]
 *
 * IFINDEX is that of the port, MAC the address of the switch, NAME what it is called; `tarnctl show
 * interfaces` lists the ports. It ends with 0 when the last frame was sent. How to run it in either home:
 * see lacp_listener.c.
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tarn/skaddr.h"

enum {
    TLV_END = 0, TLV_CHASSIS = 1, TLV_PORT = 2, TLV_TTL = 3, TLV_SYSTEM_NAME = 5, /* types of TLVs */
    BY_MAC = 4, BY_LOCAL_NAME = 7,                                                /* kinds of IDs */
    TTL_SECONDS = 120,
    NAME_MAX_LENGTH = 64,
    ETHERNET_HEADER = 14,
};

/* One TLV: 7 bits of type, 9 of length, and the value behind a byte of its kind, if it has one. */
static size_t put(unsigned char *at, int type, int kind, const void *value, size_t length)
{
    size_t front = kind >= 0 ? 3 : 2;
    size_t whole = length + front - 2;

    at[0] = (unsigned char)(type << 1 | (int)(whole >> 8));
    at[1] = (unsigned char)whole;
    if (kind >= 0)
        at[2] = (unsigned char)kind;
    memcpy(at + front, value, length);
    return front + length;
}

static size_t make_lldpdu(unsigned char *pdu, const unsigned char mac[6], unsigned ifindex,
                          const char *name)
{
    const unsigned char ttl[2] = {TTL_SECONDS >> 8, TTL_SECONDS & 0xFF};
    char port[16];
    size_t at = 0;

    snprintf(port, sizeof(port), "port%u", ifindex);
    at += put(pdu + at, TLV_CHASSIS, BY_MAC, mac, 6);
    at += put(pdu + at, TLV_PORT, BY_LOCAL_NAME, port, strlen(port));
    at += put(pdu + at, TLV_TTL, -1, ttl, sizeof(ttl));
    at += put(pdu + at, TLV_SYSTEM_NAME, -1, name, strnlen(name, NAME_MAX_LENGTH));
    at += put(pdu + at, TLV_END, -1, "", 0);
    return at;
}

static int parse_mac(const char *text, unsigned char mac[6])
{
    return sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", mac, mac + 1, mac + 2, mac + 3,
                  mac + 4, mac + 5) == 6;
}

int main(int argc, char **argv)
{
    struct vlan_skaddr to = {.dest_mac = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E}};
    unsigned char pdu[200];

    if (argc < 4 || !parse_mac(argv[2], to.src_mac)) {
        fprintf(stderr, "usage: lldp_sender IFINDEX MAC NAME [COUNT [SECONDS]]\n");
        return 2;
    }
    to.ifindex = (unsigned)atoi(argv[1]);
    size_t length = make_lldpdu(pdu, to.src_mac, to.ifindex, argv[3]);
    long left = argc > 4 ? atol(argv[4]) : -1;
    unsigned seconds = argc > 5 ? (unsigned)atoi(argv[5]) : 30;

    int fd = socket(TARN_AF_LLDP, SOCK_RAW, 0);
    if (fd < 0) {
        fprintf(stderr, "lldp_sender: no socket: %s\n", strerror(errno));
        return 1;
    }
    int status = 0;
    for (; left != 0; left -= left > 0) {
        ssize_t sent = sendto(fd, pdu, length, 0, (struct sockaddr *)&to, sizeof(to));

        /* the answer is the length of the frame; a port that is down may come up again */
        status = sent < 0 || (size_t)sent != length + ETHERNET_HEADER;
        if (sent < 0)
            fprintf(stderr, "lldp_sender: port %u: %s\n", to.ifindex, strerror(errno));
        if (left != 1)
            sleep(seconds);
    }
    close(fd);
    return status;
}
