/* See busy.h. */
#define _GNU_SOURCE
#include "busy.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sched.h>
#include <signal.h>
#include <stdatomic.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "genl.h"
#include "tarn/skaddr.h"

#define CPUS 2
#define FROM "0200000000aa"
#define IPV4(protocol) "0800" "4500001c00000000" "40" protocol "0000" "c0000201" "c00002fe"
#define IPV6(next) "86dd" "60000000" "0010" next "ff" "fd000010000000000000000000000001" \
		   "fd0000100000000000000000000000fe"

/* --- frames ---------------------------------------------------------------------------------------- */

static const char *const frames[BUSY_FRAMES] = {
	"0180c2000002" FROM "8809" "0102",			      /* LACP */
	"0180c2000000" FROM "0007" "42420300",			      /* spanning tree */
	"0180c200000e" FROM "88cc" "0207",			      /* LLDP */
	"0180c2000021" FROM "0007" "42420300",			      /* GVRP */
	"01154e000001" FROM "88e3" "01",			      /* MRP */
	"010ecf000000" FROM "8892" "01",			      /* PROFINET */
	"ffffffffffff" FROM "0806" "0001080006040001" FROM "c0000201" "000000000000" "c00002fe",
	"0200000000fe" FROM IPV4("01") "0800f7ff00000000",	      /* a ping, to the switch */
	"0200000000fe" FROM IPV4("11") "0044004300080000",	      /* DHCP */
	"01005e000012" FROM IPV4("70") "0000",			      /* VRRP */
	"01005e7ffffa" FROM IPV4("11") "0000",			      /* unregistered multicast */
	"3333ff0000fe" FROM IPV6("3a") "8700000000000000" "fd0000100000000000000000000000fe",
	"0200000000fe" FROM IPV6("3a") "8000000000000000",	      /* a ping */
	"ffffffffffff" FROM "8100" "000b" "88b5",		      /* a tagged flood */
	"020000000bad" FROM "88b5" "00",			      /* nobody's */
	"0200000000fe" "ffffffffffff" "88b5" "00",		      /* from an address that cannot be */
};

static unsigned int frame_bytes(unsigned int which, unsigned char *bytes)
{
	const char *hex = frames[which % BUSY_FRAMES];
	unsigned int length = 0, byte;

	for (; sscanf(hex, "%2x", &byte) == 1; hex += 2)
		bytes[length++] = (unsigned char)byte;
	memset(bytes + length, (int)which, 60);
	return length < 60 ? 60 : length;
}

void busy_frame(unsigned int which)
{
	char line[512];
	int length = snprintf(line, sizeof(line), "frames 1 %d %d 0 %s", SWITCH_PORT(1),
			      10 + (int)(which / BUSY_FRAMES) % 2, frames[which % BUSY_FRAMES]);
	int file = open("/proc/tarn_lab", O_WRONLY | O_CLOEXEC);

	/* Where memory fails, none is delivered. */
	if (file >= 0 && write(file, line, (size_t)length) != length)
		errno = 0;
	close(file);
}

static int wire(int k)
{
	char name[8];
	struct sockaddr_ll to = { .sll_family = AF_PACKET, .sll_protocol = 0 };
	struct net_link link;
	int fd = net_socket(host[k], AF_PACKET, SOCK_RAW, 0);

	snprintf(name, sizeof(name), "h%d", k);
	if (fd < 0 || net_link(host[k], name, &link) != 0)
		return -1;
	to.sll_ifindex = link.index;
	return bind(fd, (struct sockaddr *)&to, sizeof(to)) == 0 ? fd : -1;
}

/* --- commands -------------------------------------------------------------------------------------- */

#define PORT 5301u
#define LAG 4601u
#define FIRST_VID 50
#define LAST_VID 53

static void put32(struct nl_message *message, unsigned int type, uint32_t value)
{
	nl_message_put(message, type, &value, sizeof(value));
}

static void put16(struct nl_message *message, unsigned int type, uint16_t value)
{
	nl_message_put(message, type, &value, sizeof(value));
}

static void put8(struct nl_message *message, unsigned int type, uint8_t value)
{
	nl_message_put(message, type, &value, sizeof(value));
}

static void put_mac(struct nl_message *message, uint8_t last)
{
	const uint8_t mac[6] = { 2, 0, 0, 0, 3, last };

	nl_message_put(message, TARNFWD_ATTR_MAC, mac, sizeof(mac));
}

static void new_link(struct nl_message *message, uint32_t ifindex, const char *name, uint8_t kind)
{
	put32(message, TARNFWD_ATTR_IFINDEX, ifindex);
	nl_message_put(message, TARNFWD_ATTR_IF_NAME, name, strlen(name) + 1);
	put8(message, TARNFWD_ATTR_IF_KIND, TARNFWD_IF_KIND_PORT);
	put32(message, TARNFWD_ATTR_FLAGS, 0x41);
	put_mac(message, (uint8_t)ifindex);
	put8(message, TARNFWD_ATTR_PORT_KIND, kind);
}

static void new_port(struct nl_message *message)
{
	new_link(message, PORT, "busyport", TARNFWD_PORT_KIND_SWITCHED);
}

static void new_lag(struct nl_message *message)
{
	new_link(message, LAG, "busylag", TARNFWD_PORT_KIND_AGG_STATIC);
}

static void both(struct nl_message *message)
{
	put32(message, TARNFWD_ATTR_IFINDEX, PORT);
	put32(message, TARNFWD_ATTR_AGG_IFINDEX, LAG);
}

static void new_vlans(struct nl_message *message)
{
	put16(message, TARNFWD_ATTR_VID_START, FIRST_VID);
	put16(message, TARNFWD_ATTR_VID_END, LAST_VID);
	put32(message, TARNFWD_ATTR_VLAN_OPTIONS, 0);
	put_mac(message, 0xfe);
}

static void memberships(struct nl_message *message)
{
	uint32_t vids[128] = { 0 };

	for (int vid = FIRST_VID; vid < LAST_VID; vid++)
		vids[vid / 32] |= 1u << (vid % 32);
	put32(message, TARNFWD_ATTR_IFINDEX, LAG);
	put8(message, TARNFWD_ATTR_TAGGED, 1);
	nl_message_put(message, TARNFWD_ATTR_VID_BITMAP, vids, sizeof(vids));
}

static void no_memberships(struct nl_message *message)
{
	uint32_t vids[128] = { [FIRST_VID / 32] = ~0u };

	put32(message, TARNFWD_ATTR_IFINDEX, LAG);
	nl_message_put(message, TARNFWD_ATTR_VID_BITMAP, vids, sizeof(vids));
}

static void state(struct nl_message *message)
{
	put32(message, TARNFWD_ATTR_IFINDEX, PORT);
	put32(message, TARNFWD_ATTR_STP_INSTANCE, 0);
	put8(message, TARNFWD_ATTR_STP_STATE, 3);
}

static void flags(struct nl_message *message)
{
	put32(message, TARNFWD_ATTR_IFINDEX, PORT);
	put32(message, TARNFWD_ATTR_FLAGS, 1);
}

static void no_port(struct nl_message *message)
{
	put32(message, TARNFWD_ATTR_IFINDEX, PORT);
}

static void no_lag(struct nl_message *message)
{
	put32(message, TARNFWD_ATTR_AGG_IFINDEX, LAG);
}

static void no_vlan_50(struct nl_message *message)
{
	put32(message, TARNFWD_ATTR_IFINDEX, SWITCH_VLAN(50));
}

static void no_vlan_51(struct nl_message *message)
{
	put32(message, TARNFWD_ATTR_IFINDEX, SWITCH_VLAN(51));
}

static void no_vlan_52(struct nl_message *message)
{
	put32(message, TARNFWD_ATTR_IFINDEX, SWITCH_VLAN(52));
}

static const struct {
	uint8_t command;
	void (*attributes)(struct nl_message *message);
} made[] = {
	{ TARNFWD_CMD_IF_NEWLINK, new_port },
	{ TARNFWD_CMD_IF_NEWLINK, new_lag },
	{ TARNFWD_CMD_LACP_ATTACH_MUX_TO_AGGREGATOR, both },
	{ TARNFWD_CMD_IF_CREATE_SVI_RANGE, new_vlans },
	{ TARNFWD_CMD_VLAN_ADD_VID_BMP_TO_PORT, memberships },
	{ TARNFWD_CMD_STP_SET_PORT_STATE, state },
	{ TARNFWD_CMD_IF_UPDATE, flags },
	{ TARNFWD_CMD_VLAN_DELETE_VID_BMP_FROM_PORT, no_memberships },
	{ TARNFWD_CMD_LACP_DETACH_MUX_FROM_AGGREGATOR, both },
	{ TARNFWD_CMD_IF_DELETE_SVI, no_vlan_50 },
	{ TARNFWD_CMD_IF_DELETE_SVI, no_vlan_51 },
	{ TARNFWD_CMD_IF_DELETE_SVI, no_vlan_52 },
	{ TARNFWD_CMD_LACP_DELETE_AGGREGATOR, no_lag },
	{ TARNFWD_CMD_IF_DELLINK, no_port },
};
#define MADE (sizeof(made) / sizeof(made[0]))

const unsigned int busy_commands = MADE + NL_CASES;

void busy_command(unsigned int which)
{
	struct nl_message message;

	which %= busy_commands;
	if (which < MADE) {
		nl_message_start(&message, genl_family, made[which].command, NLM_F_ACK, which);
		made[which].attributes(&message);
	} else {
		nl_case_build(&message, &nl_cases[which - MADE], NL_COMPLETE, 0, genl_family, which);
	}
	genl_ask(&message);
}

/* --- sockets --------------------------------------------------------------------------------------- */

void busy_socket(unsigned int which)
{
	static const int families[BUSY_SOCKETS] = { 46, 47, 48, 50, 51, 52, 53, 54, 55, 56, 57,
						    60, 61, 62, 63, 65, 66, 67, 68, 69, 70 };
	int family = families[which % BUSY_SOCKETS], size = 65536;
	int fd = socket(family, SOCK_RAW | SOCK_CLOEXEC, 0);
	struct vlan_skaddr to = { .dest_mac = { 1, 0x80, 0xc2, 0, 0, 2 }, .ifindex = SWITCH_PORT(1) };
	unsigned char data[64] = { 0 };

	if (fd < 0)
		return;
	setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
	if (family == TARN_AF_LACP || family == TARN_AF_BEFD || family == TARN_AF_ISIS)
		memcpy((unsigned char *)&to + 12, &(unsigned int){ SWITCH_PORT(1) }, 4);
	for (int i = 0; i < 4; i++)
		sendto(fd, data, sizeof(data), MSG_DONTWAIT, (struct sockaddr *)&to, sizeof(to));
	usleep(1000);
	for (int i = 0; i < 8; i++)
		recv(fd, data, sizeof(data), MSG_DONTWAIT);
	close(fd);
}

/* --- files ----------------------------------------------------------------------------------------- */

static const struct {
	const char *file, *text; /* null: it is read */
} files[] = {
	{ "ifdb", NULL },		 { "refcounts", NULL },
	{ "meminfo", NULL },		 { "subnetvlan", NULL },
	{ "pktcounts", NULL },		 { "rxmodifycounts", NULL },
	{ "txmodifycounts", NULL },	 { "clearpktcount", "1\n" },
	{ "hidecounter", "pppoe\n" },	 { "pktcounts", NULL },
	{ "hidecounter", "\n" },	 { "redirectprotocolenable", NULL },
	{ "redirectprotocoldisable", "pppoe\n" }, { "redirectprotocoldisable", NULL },
	{ "redirectprotocolenable", "pppoe\n" },  { "pktdebug", NULL },
	{ "pktdebugvlan", "4000\n" },	 { "pktdebugvlan", NULL },
	{ "pktdebugpostenable", "1\n" }, { "pktdebugpostinfo", NULL },
	{ "pktdebugpostenable", "0\n" }, { "authglobal", NULL },
	{ "arpsecdb", NULL },		 { "arpseccnt", NULL },
	{ "arpseccnt", "0\n" },		 { "p1/bridge", NULL },
	{ "p1/auth", NULL },		 { "p1/authfwd", NULL },
	{ "p1/authsupp", NULL },	 { "p2/openflow", "1\n" },
	{ "p2/openflow", NULL },	 { "p2/openflow", "0\n" },
	{ "p3/disablevlans", "1\n" },	 { "p3/disablevlans", NULL },
	{ "p3/disablevlans", "0\n" },	 { "busylag/members", NULL },
	{ "busyport/bridge", NULL },	 { "../net/tarn_sockets", NULL },
	{ "pktdebugvlan", "0\n" },
};

const unsigned int busy_files = sizeof(files) / sizeof(files[0]);

void busy_file(unsigned int which)
{
	static char text[1 << 16];
	const char *written = files[which % busy_files].text;
	char path[64];
	int file;

	snprintf(path, sizeof(path), "/proc/tarn/%s", files[which % busy_files].file);
	file = open(path, (written ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
	if (file < 0)
		return; /* it comes and goes */
	if (written && write(file, written, strlen(written)) < 0)
		errno = 0;
	while (!written && read(file, text, sizeof(text)) > 0)
		;
	close(file);
}

/* --- all of them ----------------------------------------------------------------------------------- */

static struct shared {
	atomic_long frames, commands, sockets, files;
	atomic_int stop;
} *shared;

static void stay_on(int cpu)
{
	cpu_set_t set;

	CPU_ZERO(&set);
	CPU_SET(cpu, &set);
	sched_setaffinity(0, sizeof(set), &set);
}

/* A host behind its port, in bursts. */
static void send_frames(int k)
{
	unsigned char bytes[256];
	int fd = wire(k);

	for (unsigned int i = (unsigned int)k; !shared->stop && fd >= 0; i++) {
		unsigned int length = frame_bytes(i, bytes);

		shared->frames += send(fd, bytes, length, 0) == (ssize_t)length;
		if (i % 8 == 0)
			usleep(1000);
	}
	close(fd);
}

static void deliver_frames(int k)
{
	for (unsigned int i = (unsigned int)k; !shared->stop; i++) {
		busy_frame(i);
		shared->frames++;
		if (i % 8 == 0)
			usleep(1000);
	}
}

static void send_commands(int k)
{
	for (unsigned int i = (unsigned int)k * 7; !shared->stop; i++) {
		busy_command(i);
		shared->commands++;
		usleep(2000);
	}
}

static void use_sockets(int k)
{
	for (unsigned int i = (unsigned int)k; !shared->stop; i++) {
		busy_socket(i);
		usleep(50000); /* what each leaves behind for good is not what is looked for */
		shared->sockets++;
		usleep(20000);
	}
}

static void use_files(int k)
{
	for (unsigned int i = (unsigned int)k * 11; !shared->stop; i++) {
		busy_file(i);
		shared->files++;
		usleep(1000);
	}
}

static const struct {
	void (*work)(int k);
	int how_many;
} workers[] = {
	{ send_frames, HOSTS }, { deliver_frames, 2 }, { send_commands, 2 },
	{ use_sockets, 2 },	{ use_files, 2 },
};

struct busy_work busy_run(int seconds, void (*begin)(void))
{
	int count = 0, good = 1, status;

	shared = mmap(NULL, sizeof(*shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
	for (size_t w = 0; w < sizeof(workers) / sizeof(workers[0]); w++)
		for (int k = 1; k <= workers[w].how_many; k++, count++) {
			if (fork() != 0)
				continue;
			stay_on(count % CPUS);
			if (begin)
				begin();
			workers[w].work(k);
			_exit(0);
		}
	sleep((unsigned int)seconds);
	shared->stop = 1;
	/* One that cannot get what it begins with may give up. */
	for (int i = 0; i < count; i++)
		good &= wait(&status) > 0 && WIFEXITED(status) && (begin || WEXITSTATUS(status) == 0);
	CHECK(good, "%d processes on %d CPUs came to their end", count, CPUS);
	return (struct busy_work){ shared->frames, shared->commands, shared->sockets, shared->files };
}

/* --- the switch ------------------------------------------------------------------------------------ */

void busy_start(void)
{
	genl_find();
	switch_start();
	switch_vlan(10, "02:00:00:00:00:fe");
	switch_vlan(11, "02:00:00:00:00:fe");
	for (int k = 1; k <= HOSTS; k++) {
		switch_member(10, k, "untagged");
		switch_member(11, k, "tagged");
	}
	CHECK(genl_family != 0 && net_address(NET_HERE, "vlan10", "192.0.2.254", 24) == 0 &&
		      net_address(NET_HERE, "vlan10", "fd00:10::fe", 64) == 0,
	      "commands are heard, the switch has addresses");
}

void busy_end(void)
{
	for (unsigned int i = 0; i < busy_commands; i++)
		busy_command(i);
	for (unsigned int i = 0; i < busy_files; i++)
		busy_file(i);
	switch_end();
}
