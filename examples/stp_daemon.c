/*
 * A daemon for the plain spanning tree of IEEE Std 802.1D-1998: it hears and sends BPDUs by the protocol
 * socket of family 48, tells the switch the states of its ports by the control family, and reads in
 * /proc/tarn/ifdb which of them have link. Where Blocking is told here, the chip forwards nothing.
 *
 *     stp_daemon [OPTION...] MAC PORT...
 *       -p PRIORITY   of the bridge: 32768 unless said otherwise; the least becomes the Root
 *       -h SECONDS    Hello Time, 2
 *       -m SECONDS    Max Age, 20
 *       -f SECONDS    Forward Delay, 15
 *       -c COST       Path Cost of each port, 4 (of 1 Gbit/s)
 *       -a COMMAND    is run with a number behind it: the seconds after which learned addresses are to be
 *                     forgotten (7.9.2): Forward Delay while the topology changes, else 300
 *
 * MAC is the bridge's address; the ports are those of one switch, by their names. VLANs are in instance 0
 * unless told otherwise. At SIGTERM all ports are left Disabled.
 *
 * On a switch whose kernel has the families, as root:
 *
 *     cc -Iinclude -o stp_daemon examples/stp_daemon.c examples/stp.c -lmnl && ./stp_daemon MAC p1 p2
 *
 * Beside one that runs in a process (tarn-switch --sockets S --netlink N --proc P):
 *
 *     TARN_SOCKETS=S TARN_NETLINK=N TARN_PROC=P LD_PRELOAD=build/release/lib/libtarn_preload.so \
 *         stp_daemon -a "tarnctl chip age" MAC p1 p2
 */
#include <errno.h>
#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "stp.h"
#include "tarn/skaddr.h"
#include "tarn/tarnfwd_nl.h"

enum { INSTANCE = 0, LLC_LENGTH = 3, AGEING_TIME = 300, LOOK_MS = 50, IFF_RUNNING_FLAG = 0x40 };

static const uint8_t LLC[LLC_LENGTH] = {0x42, 0x42, 0x03}; /* 7.12.3 */
static const uint8_t BRIDGE_GROUP[6] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x00};
static const char *const state_names[] = {"Disabled", "Listening", "Learning", "Forwarding", "Blocking"};

static struct stp_bridge bridge;
static uint8_t mac[6];
static const char *names[STP_PORTS_MAX];
static int bpdus = -1, control = -1;
static uint16_t family;
static const char *ageing_command;
static volatile sig_atomic_t is_ended;

static void die(const char *what)
{
    fprintf(stderr, "stp_daemon: %s: %s\n", what, strerror(errno));
    exit(1);
}

static stp_time now(void)
{
    struct timespec time;

    clock_gettime(CLOCK_MONOTONIC, &time);
    return (stp_time)time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

/* --- the control family: the same messages to a kernel and to a process ------------------------- */

static int open_control(void)
{
    const char *path = getenv("TARN_NETLINK");
    struct sockaddr_un to = {.sun_family = AF_UNIX};
    int fd = path ? socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)
                  : socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);

    if (fd < 0)
        die("the control family");
    if (path)
        strncpy(to.sun_path, path, sizeof(to.sun_path) - 1);
    if (path && connect(fd, (const struct sockaddr *)&to, sizeof(to)) != 0)
        die(path);
    return fd;
}

static struct nlmsghdr *begin(char *buffer, uint16_t type, uint8_t command, uint8_t version)
{
    struct nlmsghdr *message = mnl_nlmsg_put_header(buffer);
    struct genlmsghdr *generic;

    message->nlmsg_type = type;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    generic = mnl_nlmsg_put_extra_header(message, sizeof(*generic));
    generic->cmd = command;
    generic->version = version;
    return message;
}

static int take_family(const struct nlmsghdr *message, void *unused)
{
    const struct nlattr *attribute;

    (void)unused;
    mnl_attr_for_each(attribute, message, sizeof(struct genlmsghdr))
        if (mnl_attr_get_type(attribute) == CTRL_ATTR_FAMILY_ID)
            family = mnl_attr_get_u16(attribute);
    return MNL_CB_OK;
}

/* Sends it and waits for the acknowledgement: 0, or -1 and errno. */
static int carry_out(const struct nlmsghdr *message)
{
    char answer[8192];
    int more = send(control, message, message->nlmsg_len, MSG_NOSIGNAL) < 0 ? MNL_CB_ERROR : MNL_CB_OK;

    while (more == MNL_CB_OK) {
        ssize_t length = recv(control, answer, sizeof(answer), 0);

        if (length <= 0)
            return -1;
        more = mnl_cb_run(answer, (size_t)length, 0, 0, take_family, NULL);
    }
    return more;
}

static void find_family(void)
{
    char buffer[256];
    struct nlmsghdr *message = begin(buffer, GENL_ID_CTRL, CTRL_CMD_GETFAMILY, 1);

    mnl_attr_put_strz(message, CTRL_ATTR_FAMILY_NAME, TARNFWD_NL_FAMILY);
    if (carry_out(message) != 0 || family == 0)
        die("no switch has the control family");
}

/* The states of the protocol have the numbers of enum tarnfwd_stp_state. */
static void tell_state(const struct stp_port *port)
{
    char buffer[256];
    struct nlmsghdr *message = begin(buffer, family, TARNFWD_CMD_STP_SET_PORT_STATE, TARNFWD_NL_VERSION);

    mnl_attr_put_u32(message, TARNFWD_ATTR_IFINDEX, port->ifindex);
    mnl_attr_put_u32(message, TARNFWD_ATTR_STP_INSTANCE, INSTANCE);
    mnl_attr_put_u8(message, TARNFWD_ATTR_STP_STATE, (uint8_t)port->state);
    if (carry_out(message) != 0)
        die("the state of a port cannot be told");
    printf("%s %s\n", names[port - bridge.ports], state_names[port->state]);
    fflush(stdout);
}

/* --- BPDUs, by the protocol socket ------------------------------------------------------------------ */

static void send_bpdu(const struct stp_port *port, const uint8_t *bpdu, size_t length)
{
    struct vlan_skaddr to = {.ifindex = port->ifindex};
    uint8_t data[LLC_LENGTH + STP_CONFIG_LENGTH];

    memcpy(to.dest_mac, BRIDGE_GROUP, sizeof(to.dest_mac));
    memcpy(to.src_mac, mac, sizeof(to.src_mac));
    memcpy(data, LLC, LLC_LENGTH);
    memcpy(data + LLC_LENGTH, bpdu, length);
    /* What is lost on the way is said again at the next Hello Time. */
    sendto(bpdus, data, LLC_LENGTH + length, 0, (const struct sockaddr *)&to, sizeof(to));
}

static void receive_bpdu(void)
{
    uint8_t data[1500];
    struct vlan_skaddr from;
    socklen_t size = sizeof(from);
    ssize_t length = recvfrom(bpdus, data, sizeof(data), MSG_DONTWAIT, (struct sockaddr *)&from, &size);

    if (length < LLC_LENGTH || memcmp(data, LLC, LLC_LENGTH) != 0)
        return;
    for (size_t i = 0; i < bridge.port_count; i++)
        if (bridge.ports[i].ifindex == from.ifindex)
            stp_receive(&bridge, &bridge.ports[i], data + LLC_LENGTH, (size_t)length - LLC_LENGTH, now());
}

/* --- links ------------------------------------------------------------------------------------------ */

static FILE *open_interfaces(void)
{
    const char *folder = getenv("TARN_PROC");
    char path[256];
    FILE *file;

    snprintf(path, sizeof(path), "%s/ifdb", folder ? folder : "/proc/tarn");
    file = fopen(path, "re");
    if (!file)
        die(path);
    return file;
}

/* A port that has lost its link is Disabled, so that it cannot close a loop when it comes back. */
static void follow_links(void)
{
    FILE *file = open_interfaces();
    char line[256], name[32];
    unsigned ifindex, flags;

    while (fgets(line, sizeof(line), file)) {
        if (sscanf(line, "%31s %u %x", name, &ifindex, &flags) != 3)
            continue;
        for (size_t i = 0; i < bridge.port_count; i++) {
            struct stp_port *port = &bridge.ports[i];
            bool has_link = flags & IFF_RUNNING_FLAG;

            if (port->ifindex != ifindex || has_link == (port->state != STP_DISABLED))
                continue;
            if (has_link)
                stp_enable_port(&bridge, port, now());
            else
                stp_disable_port(&bridge, port, now());
        }
    }
    fclose(file);
}

static void find_ports(void)
{
    FILE *file = open_interfaces();
    char line[256], name[32];
    unsigned ifindex;

    while (fgets(line, sizeof(line), file))
        for (size_t i = 0; i < bridge.port_count; i++)
            if (sscanf(line, "%31s %u", name, &ifindex) == 2 && strcmp(name, names[i]) == 0)
                bridge.ports[i].ifindex = ifindex;
    fclose(file);
}

/* --- learned addresses ------------------------------------------------------------------------------ */

static void follow_topology(void)
{
    static bool is_changing;
    char command[256];

    if (bridge.topology_change == is_changing)
        return;
    is_changing = bridge.topology_change;
    printf("the topology %s\n", is_changing ? "changes" : "is at rest");
    fflush(stdout);
    if (!ageing_command)
        return;
    snprintf(command, sizeof(command), "%s %d", ageing_command,
             is_changing ? (int)(bridge.times.forward_delay / 1000) : AGEING_TIME);
    if (system(command) != 0)
        fprintf(stderr, "stp_daemon: '%s' failed\n", command);
}

/* --- the whole -------------------------------------------------------------------------------------- */

static void usage(void)
{
    fprintf(stderr, "usage: stp_daemon [-p PRIORITY] [-h HELLO] [-m MAX_AGE] [-f FORWARD_DELAY] [-c COST]\n"
                    "                  [-a COMMAND] MAC PORT...\n");
    exit(2);
}

static void read_arguments(int argc, char **argv)
{
    unsigned priority = 32768;
    uint32_t cost = 4;
    int option;

    bridge.own = (struct stp_times){.max_age = 20000, .hello_time = 2000, .forward_delay = 15000};
    while ((option = getopt(argc, argv, "p:h:m:f:c:a:")) != -1) {
        int number = atoi(optarg);

        switch (option) {
        case 'p': priority = (unsigned)number; break;
        case 'h': bridge.own.hello_time = number * 1000; break;
        case 'm': bridge.own.max_age = number * 1000; break;
        case 'f': bridge.own.forward_delay = number * 1000; break;
        case 'c': cost = (uint32_t)number; break;
        case 'a': ageing_command = optarg; break;
        default: usage();
        }
    }
    if (argc - optind < 2 || argc - optind - 1 > STP_PORTS_MAX ||
        sscanf(argv[optind], "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", mac, mac + 1, mac + 2, mac + 3, mac + 4,
               mac + 5) != 6)
        usage();
    bridge.id = priority & 0xFFFF;
    for (int i = 0; i < 6; i++)
        bridge.id = bridge.id << 8 | mac[i];
    for (int i = optind + 1; i < argc; i++) {
        struct stp_port *port = &bridge.ports[bridge.port_count];

        names[bridge.port_count++] = argv[i];
        *port = (struct stp_port){.id = (uint16_t)(0x8000 | bridge.port_count), .path_cost = cost};
    }
}

static void check_times(void) /* 8.10.2 */
{
    const struct stp_times *own = &bridge.own;

    if (2 * (own->forward_delay - 1000) >= own->max_age && own->max_age >= 2 * (own->hello_time + 1000))
        return;
    fprintf(stderr, "stp_daemon: 2 * (FORWARD_DELAY - 1) >= MAX_AGE >= 2 * (HELLO + 1) has to hold\n");
    exit(2);
}

static void end(int signal)
{
    (void)signal;
    is_ended = 1;
}

int main(int argc, char **argv)
{
    read_arguments(argc, argv);
    check_times();
    bpdus = socket(TARN_AF_STP, SOCK_RAW, 0);
    if (bpdus < 0)
        die("no socket (is tarnfwd loaded, or a tarn-switch running?)");
    control = open_control();
    find_family();
    find_ports();
    for (size_t i = 0; i < bridge.port_count; i++)
        if (bridge.ports[i].ifindex == 0) {
            fprintf(stderr, "stp_daemon: the switch has no port %s\n", names[i]);
            return 1;
        }
    signal(SIGTERM, end);
    signal(SIGINT, end);

    bridge.send = send_bpdu;
    bridge.set_state = tell_state;
    stp_start(&bridge, now());
    while (!is_ended) {
        struct pollfd readable = {.fd = bpdus, .events = POLLIN};
        int ready = poll(&readable, 1, LOOK_MS);

        if (ready > 0 && (readable.revents & ~POLLIN)) {
            fprintf(stderr, "stp_daemon: the switch has gone\n");
            return 1;
        }
        if (ready > 0)
            receive_bpdu();
        follow_links();
        stp_tick(&bridge, now());
        follow_topology();
    }
    for (size_t i = 0; i < bridge.port_count; i++)
        stp_disable_port(&bridge, &bridge.ports[i], now());
    return 0;
}
