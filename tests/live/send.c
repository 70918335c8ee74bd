/*
 * Sends one frame by a protocol socket whose address is a vlan_skaddr.
 *
 *     send FAMILY IFINDEX DESTINATION SOURCE DATA       the last three in hexadecimal
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "tarn/skaddr.h"

static size_t parse_hex(const char *hex, unsigned char *bytes, size_t room)
{
    size_t count = 0;

    while (count < room && sscanf(hex, "%2hhx", &bytes[count]) == 1) {
        hex += 2;
        count++;
    }
    return count;
}

int main(int argc, char **argv)
{
    struct vlan_skaddr to = {.vid = 0};
    unsigned char data[1500];

    if (argc != 6)
        return 2;
    to.ifindex = (unsigned)atoi(argv[2]);
    parse_hex(argv[3], to.dest_mac, sizeof(to.dest_mac));
    parse_hex(argv[4], to.src_mac, sizeof(to.src_mac));
    size_t length = parse_hex(argv[5], data, sizeof(data));
    int fd = socket(atoi(argv[1]), SOCK_RAW, 0);
    if (fd < 0 || sendto(fd, data, length, 0, (struct sockaddr *)&to, sizeof(to)) < 0) {
        perror("send");
        return 1;
    }
    return 0;
}
