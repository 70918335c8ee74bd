/*
 * Prints what a protocol socket receives: "IFINDEX VID ADDRESS DATA", the last two in hexadecimal.
 *
 *     live-listen FAMILY COUNT
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "tarn/skaddr.h"

static void print_hex(const unsigned char *bytes, size_t count)
{
    for (size_t i = 0; i < count; i++)
        printf("%02x", bytes[i]);
}

int main(int argc, char **argv)
{
    int family = argc > 1 ? atoi(argv[1]) : 0, left = argc > 2 ? atoi(argv[2]) : 1;
    int fd = socket(family, SOCK_RAW, 0);

    if (fd < 0) {
        perror("listen");
        return 1;
    }
    for (; left > 0; left--) {
        unsigned char data[2048], name[64] = {0};
        socklen_t length = sizeof(name);
        struct l2_skaddr *l2 = (struct l2_skaddr *)name;
        struct vlan_skaddr *vlan = (struct vlan_skaddr *)name;
        ssize_t size = recvfrom(fd, data, sizeof(data), 0, (struct sockaddr *)name, &length);

        if (size < 0)
            return 1;
        if (length == sizeof(*l2))
            printf("%u - ", l2->ifindex);
        else
            printf("%u %u ", vlan->ifindex, vlan->vid);
        print_hex(name, 12);
        printf(" ");
        print_hex(data, (size_t)size);
        printf("\n");
        fflush(stdout);
    }
    return 0;
}
