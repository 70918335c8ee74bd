/*
 * Daemons of the switch against what a kernel speaks by itself: a bond in 802.3ad mode over two ports and a
 * bridge with spanning tree on a third, each in a namespace of its own; and frames of the protocols that
 * no kernel speaks, by the same way: cable, chip, chain, socket.
 */
#define _GNU_SOURCE
#include "switch.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tarn/skaddr.h"

/* The examples, as they are. */
#define main lacp_listener
#define print_end lacp_print_end
#define word lacp_word
#include "../../examples/lacp_listener.c"
#undef main
#undef print_end
#undef word
#define main lldp_sender
#include "../../examples/lldp_sender.c"
#undef main

#define PORT(k) (5300u + (k)) /* on b<k>, whose other end is c<k> */
#define PATIENCE 40	      /* seconds */

/* --- ports ----------------------------------------------------------------------------------------- */

static void add_port(int k, int where)
{
	char near[8], far[8], words[128];

	snprintf(near, sizeof(near), "b%d", k);
	snprintf(far, sizeof(far), "c%d", k);
	snprintf(words, sizeof(words), "port %u %s\nvlan %u 1 untagged\npvid %u 1\n", PORT(k), near, PORT(k),
		 PORT(k));
	CHECK(net_pair(near, far, where) == 0 && net_up(NET_HERE, near, 1) == 0 && chip(words) == 0 &&
		      lab_command("port %u %s 02:00:00:00:53:%02x", PORT(k), near, k) == 0 &&
		      lab_command("member 1 %u untagged", PORT(k)) == 0 &&
		      lab_command("stp %u 3", PORT(k)) == 0 && lab_command("link %u up", PORT(k)) == 0,
	      "port %d has a cable", k);
}

static void remove_port(int k)
{
	char near[8], words[64];

	snprintf(near, sizeof(near), "b%d", k);
	snprintf(words, sizeof(words), "noport %u\n", PORT(k));
	CHECK(chip(words) == 0 && lab_command("nomember 1 %u", PORT(k)) == 0 &&
		      lab_command("delete %u", PORT(k)) == 0 && net_delete(NET_HERE, near) == 0,
	      "port %d is gone", k);
}

/* --- the other end, in a process of its own -------------------------------------------------------- */

#define SYS "/tmp/sys"

/* Its devices' settings as files. */
static int enter(int where)
{
	mkdir(SYS, 0755);
	return setns(where, CLONE_NEWNET) == 0 && unshare(CLONE_NEWNS) == 0 &&
		       mount("sysfs", SYS, "sysfs", 0, NULL) == 0;
}

static int set(const char *file, const char *value)
{
	char path[128];
	int fd, done;

	snprintf(path, sizeof(path), SYS "/class/net/%s", file);
	fd = open(path, O_WRONLY | O_CLOEXEC);
	done = write(fd, value, strlen(value)) == (ssize_t)strlen(value);
	if (!done)
		printf("       %s is not set to %s: %s\n", path, value, strerror(errno));
	close(fd);
	return done;
}

static int is_set(const char *file, const char *value)
{
	char path[128], text[64] = "";
	int fd;

	snprintf(path, sizeof(path), SYS "/class/net/%s", file);
	fd = open(path, O_RDONLY | O_CLOEXEC);
	if (read(fd, text, sizeof(text) - 1) < 0)
		text[0] = '\0';
	close(fd);
	text[strcspn(text, "\n")] = '\0';
	return strcmp(text, value) == 0;
}

/* 0 when the bond has taken both ports for ways to the same switch. */
static int bond(int where)
{
	if (!enter(where) || !set("bonding_masters", "+bond9") || !set("bond9/bonding/mode", "802.3ad") ||
	    !set("bond9/bonding/miimon", "100") || !set("bond9/bonding/lacp_rate", "fast") ||
	    !set("bond9/bonding/slaves", "+c1") || !set("bond9/bonding/slaves", "+c2") ||
	    net_up(NET_HERE, "bond9", 1) != 0)
		return 2;
	for (int i = 0; i < PATIENCE * 10; i++) {
		if (is_set("bond9/bonding/ad_partner_mac", "02:00:00:00:00:53") &&
		    is_set("bond9/bonding/ad_num_ports", "2") && is_set("bond9/carrier", "1") &&
		    is_set("c1/bonding_slave/ad_partner_oper_port_state", "63") &&
		    is_set("c2/bonding_slave/ad_partner_oper_port_state", "63"))
			return 0;
		net_pause(100);
	}
	return 1;
}

/* 0 when the bridge has taken our switch for the root. */
static int bridge(int where)
{
	struct ifreq request = { .ifr_name = "br9" };
	struct net_link link;
	int any, made;

	if (!enter(where))
		return 2;
	any = socket(AF_UNIX, SOCK_DGRAM, 0);
	made = ioctl(any, SIOCBRADDBR, "br9") == 0 && net_link(NET_HERE, "c3", &link) == 0;
	request.ifr_ifindex = link.index;
	if (!made || !set("br9/bridge/stp_state", "1") || ioctl(any, SIOCBRADDIF, &request) != 0 ||
	    net_up(NET_HERE, "c3", 1) != 0 || net_up(NET_HERE, "br9", 1) != 0)
		return 3;
	for (int i = 0; i < PATIENCE * 10; i++) {
		if (is_set("br9/bridge/root_id", "0000.020000000053") && is_set("br9/bridge/root_port", "1"))
			return 0;
		net_pause(100);
	}
	return 1;
}

static pid_t start(int (*peer)(int where), int where)
{
	pid_t child = fork();

	if (child == 0)
		_exit(peer(where));
	return child;
}

/* Whether it has ended, and how. */
static int has_ended(pid_t child, int *status)
{
	int ended = waitpid(child, status, WNOHANG) == child;

	*status = ended && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
	return ended;
}

/* --- a responder of LACP --------------------------------------------------------------------------- */

enum { LACPDU = LACPDU_LENGTH, END_OF_LINK = 15 };

/* We are one system, with a port number for each port, and in step with whatever the partner says. */
static void answer(int fd, const struct l2_skaddr *from, const unsigned char *pdu)
{
	static const unsigned char system[] = { 0x80, 0x00, 0x02, 0, 0, 0, 0, 0x53, 0x00, 0x01, 0x00, 0xff };
	static const unsigned char collector[] = { 3, 16, 0, 0 };
	struct l2_skaddr to = { .dest_mac = { 0x01, 0x80, 0xc2, 0, 0, 2 },
				.src_mac = { 2, 0, 0, 0, 0x53, (unsigned char)(from->ifindex - PORT(0)) },
				.ifindex = from->ifindex };
	unsigned char reply[LACPDU] = { 1, 1, 1, 20 };

	memcpy(reply + ACTOR, system, sizeof(system));
	reply[ACTOR + 13] = (unsigned char)(from->ifindex - PORT(0));
	reply[ACTOR + 14] = 0x3f; /* all is well, and short timeouts */
	reply[PARTNER - 2] = 2;
	reply[PARTNER - 1] = 20;
	memcpy(reply + PARTNER, pdu + ACTOR, END_OF_LINK);
	memcpy(reply + 42, collector, sizeof(collector));
	if (sendto(fd, reply, sizeof(reply), 0, (struct sockaddr *)&to, sizeof(to)) != LACPDU + 14)
		printf("       an answer was not sent: %s\n", strerror(errno));
}

/* Its output comes by a pipe. */
static FILE *start_listener(void)
{
	char *arguments[] = { "lacp_listener", "2", NULL };
	int ends[2];

	if (pipe(ends) != 0)
		return NULL;
	if (fork() == 0) {
		dup2(ends[1], STDOUT_FILENO);
		_exit(lacp_listener(2, arguments));
	}
	close(ends[1]);
	net_pause(200);
	return fdopen(ends[0], "r");
}

static int says(FILE *output, const char *text)
{
	char line[256];
	int found = 0;

	while (fgets(line, sizeof(line), output))
		found |= strstr(line, text) != NULL;
	return found;
}

static void a_bond_comes_up(void)
{
	FILE *listener = start_listener();
	int where = net_namespace(), fd = socket(TARN_AF_LACP, SOCK_RAW, 0), status = -1;
	unsigned heard[3] = { 0 }, strange = 0;
	pid_t child;

	add_port(1, where);
	add_port(2, where);
	child = start(bond, where);
	while (!has_ended(child, &status)) {
		struct pollfd one = { .fd = fd, .events = POLLIN };
		unsigned char pdu[1500];
		struct l2_skaddr from;
		socklen_t length = sizeof(from);

		if (poll(&one, 1, 100) != 1)
			continue;
		if (recvfrom(fd, pdu, sizeof(pdu), 0, (struct sockaddr *)&from, &length) != LACPDU ||
		    length != sizeof(from) || (from.ifindex != PORT(1) && from.ifindex != PORT(2))) {
			strange++;
			continue;
		}
		heard[from.ifindex - PORT(0)]++;
		answer(fd, &from, pdu);
	}
	CHECK(heard[1] > 0 && heard[2] > 0 && strange == 0,
	      "LACPDUs arrive from both ports, %u and %u, and nothing else (%u)", heard[1], heard[2], strange);
	CHECK(status == 0, "the bond comes up, with both ports, and knows us (%d)", status);
	CHECK(says(listener, "actor   "), "the example tells who is there");
	fclose(listener);
	close(fd);
	remove_port(1);
	remove_port(2);
	close(where);
}

/* --- a root of the spanning tree ------------------------------------------------------------------- */

static void a_bridge_takes_us_for_its_root(void)
{
	/* LLC, a configuration BPDU, the root, its cost, the bridge, its port, four times. */
	static const unsigned char bpdu[38] = { 0x42, 0x42, 3, 0, 0, 0, 0, 0,
						0, 0, 2, 0, 0, 0, 0, 0x53,
						0, 0, 0, 0,
						0, 0, 2, 0, 0, 0, 0, 0x53,
						0x80, 1, 0, 0, 20, 0, 2, 0, 15, 0 };
	struct vlan_skaddr to = { .dest_mac = { 0x01, 0x80, 0xc2, 0, 0, 0 },
				  .src_mac = { 2, 0, 0, 0, 0, 0x53 }, .ifindex = PORT(3) };
	int where = net_namespace(), fd = socket(TARN_AF_STP, SOCK_RAW, 0), status = -1;
	unsigned heard = 0, strange = 0;
	pid_t child;

	add_port(3, where);
	child = start(bridge, where);
	while (!has_ended(child, &status)) {
		struct pollfd one = { .fd = fd, .events = POLLIN };
		unsigned char data[1500];
		struct vlan_skaddr from;
		socklen_t length = sizeof(from);

		if (poll(&one, 1, 100) != 1)
			continue;
		if (recvfrom(fd, data, sizeof(data), 0, (struct sockaddr *)&from, &length) == sizeof(bpdu) &&
		    from.ifindex == PORT(3) && from.vid == 0 && memcmp(data, bpdu, 7) == 0)
			heard++;
		else
			strange++;
		sendto(fd, bpdu, sizeof(bpdu), 0, (struct sockaddr *)&to, sizeof(to));
	}
	CHECK(heard > 0 && strange == 0, "%u BPDUs arrive, without their padding", heard);
	CHECK(status == 0, "the bridge has us for its root (%d)", status);
	close(fd);
	remove_port(3);
	close(where);
}

/* --- protocols without a peer ---------------------------------------------------------------------- */

static const struct {
	int family;
	const char *name;
	unsigned char frame[24]; /* its beginning */
} built[] = {
	{ TARN_AF_GARP, "GARP", { 0x01, 0x80, 0xc2, 0, 0, 0x21, 2, 0, 0, 0, 0, 9, 0, 7, 0x42, 0x42, 3 } },
	{ TARN_AF_LLDP, "LLDP", { 0x01, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 9, 0x88, 0xcc, 2, 7 } },
	{ TARN_AF_RYKE, "ring protection", { 0, 0xe0, 0x2b, 0, 0, 4, 2, 0, 0, 0, 0, 9, 0x88, 0x99, 1 } },
	{ TARN_AF_UDLD, "UDLD", { 0x01, 0, 0x0c, 0xcc, 0xcc, 0xcc, 2, 0, 0, 0, 0, 9, 0, 0x20, 0xaa, 0xaa, 3,
				  0, 0, 0x0c, 1, 0x11 } },
	{ TARN_AF_CFM, "CFM", { 0x01, 0x80, 0xc2, 0, 0, 0x30, 2, 0, 0, 0, 0, 9, 0x89, 0x02, 0x60, 1 } },
	{ TARN_AF_BEFD, "fault detection", { 0, 0x0c, 0x25, 0x0a, 0x8c, 1, 2, 0, 0, 0, 0, 9, 0xaa, 0xaa } },
	{ TARN_AF_MRP, "MRP", { 0x01, 0x15, 0x4e, 0, 0, 1, 2, 0, 0, 0, 0, 9, 0x88, 0xe3 } },
	{ TARN_AF_PROFINET, "PROFINET", { 0x01, 0x0e, 0xcf, 0, 0, 0, 2, 0, 0, 0, 0, 9, 0x88, 0x92 } },
};

static int put_on_cable(int tap, const unsigned char *beginning, size_t length)
{
	unsigned char frame[60] = { 0 };

	memcpy(frame, beginning, length);
	return send(tap, frame, sizeof(frame), 0) == sizeof(frame);
}

static void the_example_is_heard(int where)
{
	char *arguments[] = { "lldp_sender", "5304", "02:00:00:00:00:53", "orvo-example", "1", NULL };
	int tap = net_tap(where, "c4", 0x88cc);
	struct pollfd one = { .fd = tap, .events = POLLIN };
	unsigned char frame[256] = { 0 };

	CHECK(lldp_sender(5, arguments) == 0 && poll(&one, 1, 5000) == 1 &&
		      recv(tap, frame, sizeof(frame), MSG_DONTWAIT) > 14 && frame[5] == 0x0e &&
		      memmem(frame, sizeof(frame), "orvo-example", 12),
	      "the example that sends LLDP is heard");
	close(tap);
}

static void frames_of_the_others_arrive(void)
{
	int where = net_namespace(), tap;
	long before;

	add_port(4, where);
	CHECK(net_up(where, "c4", 1) == 0 && lab_command("udld %u 1 1", PORT(4)) == 0 &&
		      lab_command("enable isis") == 0,
	      "UDLD and IS-IS are on");
	tap = net_tap(where, "c4", ETH_P_LOOPBACK);
	for (size_t i = 0; i < sizeof(built) / sizeof(built[0]); i++) {
		int fd = socket(built[i].family, SOCK_RAW, 0);
		struct pollfd one = { .fd = fd, .events = POLLIN };
		unsigned char data[256];
		union {
			struct l2_skaddr l2;
			struct vlan_skaddr vlan;
		} from;
		socklen_t length = sizeof(from);

		CHECK(put_on_cable(tap, built[i].frame, sizeof(built[i].frame)) && poll(&one, 1, 5000) == 1 &&
			      recvfrom(fd, data, sizeof(data), MSG_DONTWAIT, (struct sockaddr *)&from,
				       &length) > 0 &&
			      memcmp(&from, built[i].frame, 12) == 0 &&
			      (length == sizeof(from.l2) ? from.l2.ifindex : from.vlan.ifindex) == PORT(4),
		      "a frame of %s reaches its socket", built[i].name);
		close(fd);
	}
	the_example_is_heard(where);
	before = lab_stops("isis", 3);
	CHECK(put_on_cable(tap, (const unsigned char[]){ 0x01, 0x80, 0xc2, 0, 0, 0x14, 2, 0, 0, 0, 0, 9, 0, 20,
							 0xfe, 0xfe, 3 }, 17),
	      "a frame of IS-IS is sent");
	for (int i = 0; i < 50 && lab_stops("isis", 3) == before; i++)
		net_pause(100);
	CHECK(lab_stops("isis", 3) == before + 1, "it is for the IP stack");
	CHECK(lab_command("udld %u 0 0", PORT(4)) == 0 && lab_command("disable isis") == 0,
	      "UDLD and IS-IS are off");
	close(tap);
	remove_port(4);
	close(where);
}

int main(void)
{
	lab_setup();
	lab_load("tarn_chip");
	a_bond_comes_up();
	a_bridge_takes_us_for_its_root();
	frames_of_the_others_arrive();
	return lab_result();
}
