/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The module and the chip in software beside what Linux has itself, on the same pairs of devices in the
 * same kernel: floods beside a bridge, frames for daemons beside packet sockets with a filter. Run it by
 * bench/against-linux.
 *
 * p<k> is a port of the switch or of the bridge, h<k> the other end of its cable, elsewhere. Frames go in
 * by h1, BURST at a time, and the next burst waits until all that should come of this one has come, so
 * none is ever lost for lack of room; one that does not come ends the program with an error. All of it
 * runs on one processor, the chip's thread too, so that the time is that of the work. What the clock
 * counts, nanoseconds or instructions, is for who runs the machine; the argument is its name.
 *
 * Each measure has RUNS runs. Those of Linux are half before and half after those of the switch, which
 * cannot share its ports: should the machine become slower, both have their part of it.
 */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "net.h"
#include "switch.h"
#include "tarn/skaddr.h"

#define RUNS 10
#define BURST 32
#define PORTS 33
#define SOCKETS_MAX 10
#define COPIES 4096 /* that a run of floods makes, however many of each frame */
#define DELIVERIES 2048 /* of a run, to all sockets together */
#define PATIENCE_SECONDS 10
#define PORT(k) (5100 + (k))
#define MAC "02:00:00:00:00:fe"
#define TYPE 0x88B5 /* for experiments, which nobody here knows */
#define MIRROR_VLAN "1" /* an option: the module floods what comes on such a VLAN */

static int elsewhere; /* the namespace of h1 to h33 */
static int cable; /* a socket on h1 */

static void give_up(const char *what)
{
	fprintf(stderr, "against_linux: %s: %s\n", what, strerror(errno));
	exit(1);
}

static void must(int result, const char *what)
{
	if (result == 0)
		return;
	errno = result < 0 ? -result : result;
	give_up(what);
}

static double now(void)
{
	struct timespec time;

	clock_gettime(CLOCK_MONOTONIC, &time);
	return (double)time.tv_sec * 1e9 + (double)time.tv_nsec;
}

/* --- results --------------------------------------------------------------------------------------- */

#define MEASURES 32

static struct measure {
	char name[32];
	const struct measure *beside; /* what Linux took for the same */
	double ns[RUNS];
	int runs;
} measures[MEASURES];
static int measure_count;

static struct measure *measure(const char *what, int count, const char *who,
			       const struct measure *beside)
{
	struct measure *made = &measures[measure_count++];

	snprintf(made->name, sizeof(made->name), "%s-%d-%s", what, count, who);
	made->beside = beside ? beside : made;
	return made;
}

static int by_size(const void *one, const void *other)
{
	double a = *(const double *)one, b = *(const double *)other;

	return (a > b) - (a < b);
}

static double median(const struct measure *measure)
{
	double sorted[RUNS];

	memcpy(sorted, measure->ns, sizeof(sorted));
	qsort(sorted, RUNS, sizeof(*sorted), by_size);
	return (sorted[(RUNS - 1) / 2] + sorted[RUNS / 2]) / 2;
}

/* Of what is at least 1: there is no library for it. */
static double root_of(double square)
{
	double root = square;

	for (int i = 0; i < 60 && square >= 1; i++)
		root = (root + square / root) / 2;
	return root;
}

static double spread(const struct measure *measure)
{
	double sum = 0, squares = 0, mean;

	for (int i = 0; i < RUNS; i++)
		sum += measure->ns[i];
	mean = sum / RUNS;
	for (int i = 0; i < RUNS; i++)
		squares += (measure->ns[i] - mean) * (measure->ns[i] - mean);
	return 100 * root_of(squares / (RUNS - 1)) / mean;
}

static void print_table(const char *unit)
{
	printf("%-24s %14s %8s %8s\n", "name", unit, "spread", "ratio");
	for (const struct measure *at = measures; at < measures + measure_count; at++) {
		if (at->runs != RUNS) {
			fprintf(stderr, "against_linux: %s has %d runs of %d\n", at->name, at->runs, RUNS);
			exit(1);
		}
		printf("%-24s %14.0f %7.1f%% %8.2f\n", at->name, median(at), spread(at),
		       median(at) / median(at->beside));
	}
}

/* --- devices --------------------------------------------------------------------------------------- */

static void stay_on_first(pid_t process)
{
	cpu_set_t set;

	CPU_ZERO(&set);
	CPU_SET(0, &set);
	must(sched_setaffinity(process, sizeof(set), &set) == 0 ? 0 : errno, "one processor");
}

/* The first thread of that name. */
static pid_t thread_called(const char *name)
{
	DIR *processes = opendir("/proc");
	struct dirent *entry;
	pid_t found = 0;

	while (processes && !found && (entry = readdir(processes)) != NULL) {
		char path[300], is[32] = "";
		FILE *file;

		snprintf(path, sizeof(path), "/proc/%s/comm", entry->d_name);
		file = atoi(entry->d_name) > 0 ? fopen(path, "re") : NULL;
		if (!file)
			continue;
		if (fgets(is, sizeof(is), file) && strcspn(is, "\n") == strlen(name) &&
		    strncmp(is, name, strlen(name)) == 0)
			found = atoi(entry->d_name);
		fclose(file);
	}
	closedir(processes);
	errno = ESRCH;
	if (!found)
		give_up(name);
	return found;
}

/* New devices of this namespace speak no IPv6 of their own. */
static void be_silent(void)
{
	int file = open("/proc/sys/net/ipv6/conf/default/disable_ipv6", O_WRONLY | O_CLOEXEC);

	if (file < 0 || write(file, "1", 1) != 1)
		give_up("disable_ipv6");
	close(file);
}

static void be_silent_elsewhere(void)
{
	int here = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);

	if (here < 0 || setns(elsewhere, CLONE_NEWNET) != 0)
		give_up("the other namespace");
	be_silent();
	if (setns(here, CLONE_NEWNET) != 0)
		give_up("back from the other namespace");
	close(here);
}

static void make_cables(void)
{
	char near[8], far[8];

	elsewhere = net_namespace();
	must(elsewhere < 0 ? elsewhere : 0, "a namespace");
	be_silent();
	be_silent_elsewhere();
	for (int k = 1; k <= PORTS; k++) {
		snprintf(near, sizeof(near), "p%d", k);
		snprintf(far, sizeof(far), "h%d", k);
		must(net_pair(near, far, elsewhere), "a pair of devices");
		must(net_up(NET_HERE, near, 1), near);
		must(net_up(elsewhere, far, 1), far);
	}
	cable = net_tap(elsewhere, "h1", 0); /* of no type: it hears nothing */
	must(cable < 0 ? EIO : 0, "a socket on h1");
}

static void send_burst(const unsigned char *frame, int length)
{
	for (int i = 0; i < BURST; i++)
		if (send(cable, frame, length, 0) != length)
			give_up("sending");
}

/* --- the count at the other ends ------------------------------------------------------------------- */

/* One socket for all devices there. It has no room, so that a frame costs it next to nothing: it is
 * counted, with those for which there was room, and gone. */
static int counter;

static void open_counter(void)
{
	struct sockaddr_ll at = { .sll_family = AF_PACKET, .sll_protocol = htons(TYPE) };
	int none = 0;

	counter = net_socket(elsewhere, AF_PACKET, SOCK_RAW, 0);
	if (counter < 0 || setsockopt(counter, SOL_SOCKET, SO_RCVBUF, &none, sizeof(none)) != 0 ||
	    bind(counter, (struct sockaddr *)&at, sizeof(at)) != 0)
		give_up("a socket that counts");
}

/* Frames since the last look. */
static unsigned int counted(void)
{
	struct tpacket_stats since;
	socklen_t size = sizeof(since);

	if (getsockopt(counter, SOL_PACKET, PACKET_STATISTICS, &since, &size) != 0)
		give_up("counting");
	return since.tp_packets;
}

/* To the chip's thread while there are frames for it: looking again and again takes time too. */
static void give_way(int policy)
{
	static const struct sched_param none;
	static int now_has = SCHED_OTHER;

	if (policy != now_has && sched_setscheduler(0, policy, &none) != 0)
		give_up("another place in line");
	now_has = policy;
}

static void await_copies(unsigned int copies)
{
	double begin = now();
	unsigned int seen = counted();

	if (seen < copies)
		give_way(SCHED_IDLE);
	while (seen < copies && now() - begin < PATIENCE_SECONDS * 1e9) {
		sched_yield();
		seen += counted();
	}
	give_way(SCHED_OTHER);
	if (seen == copies)
		return;
	fprintf(stderr, "against_linux: %u copies of %u arrived\n", seen, copies);
	exit(1);
}

/* --- floods ---------------------------------------------------------------------------------------- */

static const unsigned char broadcast[60] = { 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0x00,
					     0x00, 0x00, 0x77, 0x01, TYPE >> 8, TYPE & 0xFF };

static unsigned long long received_by(int k)
{
	struct net_link link;
	char far[8];

	snprintf(far, sizeof(far), "h%d", k);
	must(net_link(elsewhere, far, &link), far);
	return link.stats.rx_packets;
}

/* That it is a flood: one of each for each of the others, and none back. */
static void check_flood(int others)
{
	unsigned long long before[PORTS + 1];

	for (int k = 1; k <= PORTS; k++)
		before[k] = received_by(k);
	send_burst(broadcast, sizeof(broadcast));
	await_copies(BURST * others);
	for (int k = 1; k <= PORTS; k++) {
		unsigned long long got = received_by(k) - before[k], should = k > 1 && k <= 1 + others;

		if (got == should * BURST)
			continue;
		fprintf(stderr, "against_linux: port %d sent %llu frames of %d\n", k, got, BURST);
		exit(1);
	}
}

static void flood(struct measure *measure, int others, int runs)
{
	int bursts = COPIES / others / BURST;

	counted();
	check_flood(others);
	for (int run = 0; run < runs; run++) {
		double begin = now();

		for (int i = 0; i < bursts; i++) {
			send_burst(broadcast, sizeof(broadcast));
			await_copies(BURST * others);
		}
		measure->ns[measure->runs++] = (now() - begin) / (bursts * BURST);
	}
}

/* --- frames for daemons ---------------------------------------------------------------------------- */

static const unsigned char lacpdu[124] = { 0x01, 0x80, 0xc2, 0x00, 0x00, 0x02, 0x02, 0x00,
					   0x00, 0x00, 0x77, 0x01, 0x88, 0x09, 0x01, 0x01 };

static int open_packet_socket(void)
{
	static struct sock_filter code[] = {
		BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),
		BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x0180c200, 0, 5),
		BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 4),
		BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x0002, 0, 3),
		BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 12),
		BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ETH_P_SLOW, 0, 1),
		BPF_STMT(BPF_RET | BPF_K, 0xffff),
		BPF_STMT(BPF_RET | BPF_K, 0),
	};
	struct sock_fprog filter = { sizeof(code) / sizeof(*code), code };
	int opened = net_tap(NET_HERE, "p1", ETH_P_SLOW);

	if (opened < 0 ||
	    setsockopt(opened, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter)) != 0)
		give_up("a packet socket");
	return opened;
}

static int open_family_socket(void)
{
	int opened = socket(TARN_AF_LACP, SOCK_RAW | SOCK_CLOEXEC, 0);

	if (opened < 0)
		give_up("a socket of family 46");
	return opened;
}

/* The data begins behind the header in one kind of socket, and with it in the other. */
static void take_one(int from, ssize_t length)
{
	struct sockaddr_storage name;
	unsigned char data[256];
	socklen_t name_length = sizeof(name);
	struct pollfd wait = { .fd = from, .events = POLLIN };
	ssize_t got;

	/* An empty queue is EAGAIN of one, and EINVAL of the other. */
	while ((got = recvfrom(from, data, sizeof(data), MSG_DONTWAIT, (struct sockaddr *)&name,
			       &name_length)) < 0) {
		if (poll(&wait, 1, PATIENCE_SECONDS * 1000) != 1)
			give_up("a frame is lost");
		name_length = sizeof(name);
	}
	if (got == length && memcmp(data, lacpdu + sizeof(lacpdu) - length, length) == 0)
		return;
	fprintf(stderr, "against_linux: a daemon had another frame, of %zd bytes\n", got);
	exit(1);
}

static void deliver_burst(const int *sockets, int count, ssize_t length)
{
	send_burst(lacpdu, sizeof(lacpdu));
	for (int k = 0; k < count; k++)
		for (int i = 0; i < BURST; i++)
			take_one(sockets[k], length);
}

static void deliver(struct measure *measure, int (*open_socket)(void), int count, int runs)
{
	int bursts = DELIVERIES / count / BURST, sockets[SOCKETS_MAX];
	ssize_t length = open_socket == open_packet_socket ? sizeof(lacpdu) : sizeof(lacpdu) - ETH_HLEN;

	for (int k = 0; k < count; k++)
		sockets[k] = open_socket();
	deliver_burst(sockets, count, length);
	for (int run = 0; run < runs; run++) {
		double begin = now();

		for (int i = 0; i < bursts; i++)
			deliver_burst(sockets, count, length);
		measure->ns[measure->runs++] = (now() - begin) / (bursts * BURST);
	}
	for (int k = 0; k < count; k++)
		close(sockets[k]);
}

/* --- the bridge ------------------------------------------------------------------------------------ */

static int asking; /* a socket for requests */

static void bridge_port(unsigned long request, int k)
{
	struct ifreq of_bridge = { .ifr_name = "br0" };
	struct net_link link;
	char near[8];

	snprintf(near, sizeof(near), "p%d", k);
	must(net_link(NET_HERE, near, &link), near);
	of_bridge.ifr_ifindex = link.index;
	must(ioctl(asking, request, &of_bridge) == 0 ? 0 : errno, "a port of the bridge");
}

static void make_bridge(void)
{
	asking = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
	if (asking < 0 || ioctl(asking, SIOCBRADDBR, "br0") != 0)
		give_up("a bridge");
	must(net_up(NET_HERE, "br0", 1), "br0");
}

/* A port without spanning tree forwards at once. */
static void bridge_of(int ports)
{
	static int has;

	while (has < ports)
		bridge_port(SIOCBRADDIF, ++has);
	while (has > ports)
		bridge_port(SIOCBRDELIF, has--);
}

/* --- the switch ------------------------------------------------------------------------------------ */

static void chip_word(const char *format, ...) __attribute__((format(printf, 1, 2)));
static void chip_word(const char *format, ...)
{
	char line[256];
	va_list arguments;

	va_start(arguments, format);
	vsnprintf(line, sizeof(line), format, arguments);
	va_end(arguments);
	must(chip(line), line);
}

/* A VLAN for each size, with so many ports beside the first. */
static unsigned int vlan_of(int others)
{
	return 100 + others;
}

static void make_port(int k)
{
	chip_word("port %d p%d\n", PORT(k), k);
	must(lab_command("port %d p%d 02:00:00:00:51:%02x", PORT(k), k, k), "a port of the switch");
	must(lab_command("stp %d 3", PORT(k)), "the port forwards");
	must(lab_command("link %d up", PORT(k)), "the port has link");
}

static void make_vlan(int others)
{
	unsigned int vid = vlan_of(others);

	must(lab_command("vlan %u " MAC " " MIRROR_VLAN, vid), "a VLAN");
	for (int k = 1; k <= 1 + others; k++) {
		must(lab_command("member %u %d untagged", vid, PORT(k)), "a member");
		chip_word("vlan %d %u untagged\n", PORT(k), vid);
	}
}

static void make_switch(void)
{
	lab_load("tarn_lab");
	lab_load("tarn_chip");
	stay_on_first(thread_called("tarn_chip"));
	for (int k = 1; k <= PORTS; k++)
		make_port(k);
}

static void remove_switch(void)
{
	for (int k = 1; k <= PORTS; k++)
		chip_word("noport %d\n", PORT(k));
}

/* --- the measures ---------------------------------------------------------------------------------- */

static const int sizes[] = { 2, 8, 32 }, daemons[] = { 1, 10 };
#define SIZES 3
#define DAEMONS 2

/* Who floods, and what the chip is told for it. */
static const struct {
	const char *name, *words;
} ways[] = {
	{ "chip", "flood hardware\ntrap broadcast off\n" },
	{ "core-and-chip", "flood hardware\ntrap broadcast only\n" },
	{ "core", "flood software\ntrap broadcast only\n" },
};
#define WAYS 3

static struct measure *by_bridge[SIZES], *by_switch[SIZES][WAYS], *to_packet[DAEMONS],
	*to_family[DAEMONS];

static void name_measures(void)
{
	for (int i = 0; i < SIZES; i++) {
		by_bridge[i] = measure("flood", sizes[i], "bridge", NULL);
		for (int way = 0; way < WAYS; way++)
			by_switch[i][way] = measure("flood", sizes[i], ways[way].name, by_bridge[i]);
	}
	for (int i = 0; i < DAEMONS; i++) {
		to_packet[i] = measure("lacpdu", daemons[i], "packet", NULL);
		to_family[i] = measure("lacpdu", daemons[i], "family-46", to_packet[i]);
	}
}

/* Half of its runs. */
static void linux_has_a_turn(void)
{
	for (int i = 0; i < DAEMONS; i++)
		deliver(to_packet[i], open_packet_socket, daemons[i], RUNS / 2);
	for (int i = 0; i < SIZES; i++) {
		bridge_of(1 + sizes[i]);
		flood(by_bridge[i], sizes[i], RUNS / 2);
	}
	bridge_of(0);
	fprintf(stderr, "against_linux: half of the bridge and packet sockets is done\n");
}

static void the_switch_has_its_turn(void)
{
	for (int i = 0; i < SIZES; i++)
		make_vlan(sizes[i]);
	for (int i = 0; i < DAEMONS; i++)
		deliver(to_family[i], open_family_socket, daemons[i], RUNS);
	for (int i = 0; i < SIZES; i++) {
		chip_word("pvid %d %u\n", PORT(1), vlan_of(sizes[i]));
		for (int way = 0; way < WAYS; way++) {
			chip_word("%s", ways[way].words);
			flood(by_switch[i][way], sizes[i], RUNS);
		}
	}
	fprintf(stderr, "against_linux: the switch is done\n");
}

int main(int argc, char **argv)
{
	if (argc != 2) {
		fprintf(stderr, "usage: against_linux UNIT\n");
		return 2;
	}
	stay_on_first(0);
	make_cables();
	open_counter();
	make_bridge();
	name_measures();
	linux_has_a_turn();
	make_switch();
	the_switch_has_its_turn();
	remove_switch();
	linux_has_a_turn();
	print_table(argv[1]);
	return 0;
}
