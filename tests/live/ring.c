/*
 * Numbered broadcasts between hosts in network namespaces of their own, a hundred a second from each: ends
 * with 1 as soon as a host gets one twice, or its own back. A line that it reads names a change; it answers
 * when all have heard all for three seconds, with the longest that one of them heard nothing of another.
 *
 *     live-ring PROCESS:DEVICE...       a process of each namespace, and the device there
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <poll.h>
#include <sched.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum {
    HOSTS_MAX = 4, NUMBERS = 1 << 18,
    TYPE = 0x88B5, HEADER = 14, FRAME = 60,         /* of local experiments */
    EVERY_MS = 10, STEADY_MS = 3000, GAP_MS = 500,  /* a gap is what a change may be the reason of */
    PATIENCE_MS = 40000,
};

static int sockets[HOSTS_MAX], hosts;
static bool seen[HOSTS_MAX][HOSTS_MAX][NUMBERS]; /* at a host, of another */
static int64_t heard[HOSTS_MAX][HOSTS_MAX], longest, changed, last_gap;
static char change[100];

static int64_t now(void)
{
    struct timespec time;

    clock_gettime(CLOCK_MONOTONIC, &time);
    return (int64_t)time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

static void die(const char *what)
{
    perror(what);
    exit(1);
}

/* The socket stays in the namespace in which it is made. */
static int open_at(const char *host)
{
    struct sockaddr_ll to = {.sll_family = AF_PACKET, .sll_protocol = (uint16_t)(TYPE << 8 | TYPE >> 8)};
    char path[64], device[IFNAMSIZ];
    int process, namespace, fd;

    if (sscanf(host, "%d:%15s", &process, device) != 2)
        die(host);
    snprintf(path, sizeof(path), "/proc/%d/ns/net", process);
    namespace = open(path, O_RDONLY | O_CLOEXEC);
    if (namespace < 0 || setns(namespace, CLONE_NEWNET) != 0)
        die(path);
    close(namespace);
    to.sll_ifindex = (int)if_nametoindex(device);
    fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (to.sll_ifindex == 0 || fd < 0 || bind(fd, (const struct sockaddr *)&to, sizeof(to)) != 0)
        die(device);
    return fd;
}

static void send_all(uint32_t number)
{
    for (int host = 0; host < hosts; host++) {
        uint8_t frame[FRAME] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 0, 0, (uint8_t)(host + 1),
                                TYPE >> 8, TYPE & 0xFF, (uint8_t)host};

        memcpy(frame + HEADER + 1, &number, sizeof(number));
        (void)!write(sockets[host], frame, sizeof(frame));
    }
}

static void hear(int host, int64_t time)
{
    uint8_t frame[FRAME + 4];
    struct sockaddr_ll from;
    socklen_t size = sizeof(from);
    uint32_t number;
    ssize_t length = recvfrom(sockets[host], frame, sizeof(frame), 0, (struct sockaddr *)&from, &size);
    int sender = length >= FRAME ? frame[HEADER] : hosts;

    if (sender >= hosts || from.sll_pkttype == PACKET_OUTGOING)
        return;
    memcpy(&number, frame + HEADER + 1, sizeof(number));
    if (sender == host || seen[host][sender][number % NUMBERS]) {
        printf("host %d gets frame %u of host %d %s\n", host + 1, number, sender + 1,
               sender == host ? "back" : "twice");
        exit(1);
    }
    seen[host][sender][number % NUMBERS] = true;
    if (time - heard[host][sender] > longest)
        longest = time - heard[host][sender];
    if (time - heard[host][sender] > GAP_MS)
        last_gap = time;
    heard[host][sender] = time;
}

static bool is_whole(int64_t time)
{
    for (int host = 0; host < hosts; host++)
        for (int sender = 0; sender < hosts; sender++)
            if (host != sender && time - heard[host][sender] > GAP_MS)
                return false;
    return true;
}

static void begin_change(int64_t time)
{
    if (!fgets(change, sizeof(change), stdin))
        exit(0);
    change[strcspn(change, "\n")] = '\0';
    changed = last_gap = time;
    longest = 0;
}

static void tell(int64_t time)
{
    if (change[0] == '\0')
        return;
    if (!is_whole(time))
        last_gap = time;
    if (time - last_gap < STEADY_MS && time - changed < PATIENCE_MS)
        return;
    if (time - last_gap >= STEADY_MS)
        printf("%s: the longest silence was %.2f s\n", change, (double)longest / 1000);
    else
        printf("%s: some still do not hear each other\n", change);
    fflush(stdout);
    change[0] = '\0';
}

int main(int argc, char **argv)
{
    struct pollfd readable[HOSTS_MAX + 1] = {{.fd = STDIN_FILENO, .events = POLLIN}};
    uint32_t number = 0;
    int64_t next = now();

    for (hosts = 0; hosts < argc - 1 && hosts < HOSTS_MAX; hosts++) {
        sockets[hosts] = open_at(argv[hosts + 1]);
        readable[hosts + 1] = (struct pollfd){.fd = sockets[hosts], .events = POLLIN};
        for (int k = 0; k < HOSTS_MAX; k++)
            heard[hosts][k] = next;
    }
    while (number < NUMBERS) {
        int64_t time = now();

        if (time >= next) {
            send_all(number++);
            next = time + EVERY_MS;
        }
        if (poll(readable, (nfds_t)hosts + 1, (int)(next - time > 0 ? next - time : 0)) < 0 && errno != EINTR)
            die("poll");
        time = now();
        for (int host = 0; host < hosts; host++)
            if (readable[host + 1].revents & POLLIN)
                hear(host, time);
        if (readable[0].revents)
            begin_change(time);
        tell(time);
    }
    return 0;
}
