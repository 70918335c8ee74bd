/*
 * Sends a frame that is told byte by byte: on a device that many times at once, or once by the protocol
 * socket of a family whose address is a vlan_skaddr. What stands behind the addresses is the socket's data.
 *
 *     live-send DEVICE COUNT HEX
 *     live-send --family FAMILY IFINDEX HEX
 */
#include <net/if.h>
#include <netpacket/packet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "tarn/skaddr.h"

enum { ADDRESSES = 12 };

static size_t parse_hex(const char *hex, unsigned char *bytes, size_t room)
{
    size_t count = 0;

    while (count < room && sscanf(hex, "%2hhx", &bytes[count]) == 1) {
        hex += 2;
        count++;
    }
    return count;
}

static int open_or_end(int family)
{
    int fd = socket(family, SOCK_RAW | SOCK_CLOEXEC, 0);

    if (fd < 0) {
        perror("live-send: socket");
        exit(1);
    }
    return fd;
}

static void send_or_end(int fd, const void *data, size_t length, const void *to, socklen_t size)
{
    if (sendto(fd, data, length, 0, (const struct sockaddr *)to, size) < 0) {
        perror("live-send: sendto");
        exit(1);
    }
}

static void send_on_device(const char *device, long count, const unsigned char *frame, size_t length)
{
    struct sockaddr_ll to = {.sll_family = AF_PACKET, .sll_ifindex = (int)if_nametoindex(device)};
    int fd = open_or_end(AF_PACKET);

    if (to.sll_ifindex == 0) {
        perror(device);
        exit(1);
    }
    for (; count > 0; count--)
        send_or_end(fd, frame, length, &to, sizeof(to));
}

static void send_by_family(int family, unsigned ifindex, const unsigned char *frame, size_t length)
{
    struct vlan_skaddr to = {.ifindex = ifindex};

    memcpy(to.dest_mac, frame, sizeof(to.dest_mac));
    memcpy(to.src_mac, frame + sizeof(to.dest_mac), sizeof(to.src_mac));
    send_or_end(open_or_end(family), frame + ADDRESSES, length - ADDRESSES, &to, sizeof(to));
}

int main(int argc, char **argv)
{
    unsigned char frame[10000];
    size_t length = argc > 3 ? parse_hex(argv[argc - 1], frame, sizeof(frame)) : 0;

    if (argc == 4) {
        send_on_device(argv[1], atol(argv[2]), frame, length);
        return 0;
    }
    if (argc == 5 && strcmp(argv[1], "--family") == 0 && length >= ADDRESSES) {
        send_by_family(atoi(argv[2]), (unsigned)atol(argv[3]), frame, length);
        return 0;
    }
    fprintf(stderr, "usage: live-send DEVICE COUNT HEX\n"
                    "       live-send --family FAMILY IFINDEX HEX\n");
    return 2;
}
