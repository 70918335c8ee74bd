/* SPDX-License-Identifier: GPL-2.0 */
/*
 * How fast the control family is: commands a second, many VLANs on many ports, and the time from a
 * flag change to the end of the work that it puts off. Run it by bench/control-rates.
 *
 *   control_rates                      the switch of the kernel
 *   control_rates NETLINK CONTROL      one that is a process, by the paths of its two sockets
 *
 * Plain C without a library, so that it can be linked statically for any kernel. It declares ports
 * 6001 to 6064 and VLANs 1 to 4094, and takes them away again.
 */
#include <errno.h>
#include <fcntl.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <tarn/tarnfwd_nl.h>
#include <time.h>
#include <unistd.h>

#define FIRST_PORT 6001
#define PORTS 64
#define VLANS 4094
#define VLAN_IFINDEX_BASE 300
#define BITMAP_BYTES 512
#define UP 0x1u
#define RUNNING 0x40u
#define CHANGES 101
#define PATIENCE_SECONDS 120

static int netlink = -1;
static const char *control; /* path of the control socket; NULL: /proc/tarn is there */
static uint16_t family = GENL_ID_CTRL;

static void give_up(const char *what)
{
	fprintf(stderr, "control_rates: %s: %s\n", what, strerror(errno));
	exit(1);
}

static double now(void)
{
	struct timespec time;

	clock_gettime(CLOCK_MONOTONIC, &time);
	return (double)time.tv_sec + (double)time.tv_nsec * 1e-9;
}

/* --- messages ------------------------------------------------------------------------------------ */

static struct {
	union {
		struct nlmsghdr header;
		uint8_t bytes[2048];
	} u;
	unsigned int length;
} message;

static void start(uint8_t command)
{
	struct genlmsghdr head = { .cmd = command, .version = TARNFWD_NL_VERSION };

	message.u.header = (struct nlmsghdr){ .nlmsg_type = family,
					      .nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK };
	memcpy(message.u.bytes + NLMSG_HDRLEN, &head, sizeof(head));
	message.length = NLMSG_HDRLEN + GENL_HDRLEN;
}

static void put(uint16_t number, const void *value, uint16_t length)
{
	struct nlattr header = { .nla_len = (uint16_t)(NLA_HDRLEN + length), .nla_type = number };

	memcpy(message.u.bytes + message.length, &header, sizeof(header));
	memcpy(message.u.bytes + message.length + NLA_HDRLEN, value, length);
	message.length += NLA_ALIGN(NLA_HDRLEN + length);
}

static void put_u8(uint16_t number, uint8_t value)
{
	put(number, &value, sizeof(value));
}

static void put_u16(uint16_t number, uint16_t value)
{
	put(number, &value, sizeof(value));
}

static void put_u32(uint16_t number, uint32_t value)
{
	put(number, &value, sizeof(value));
}

static uint8_t answer[65536];
static ssize_t answer_length;

/* Sends the message and takes one datagram. */
static void exchange(void)
{
	message.u.header.nlmsg_len = message.length;
	if (send(netlink, message.u.bytes, message.length, 0) != (ssize_t)message.length)
		give_up("sending");
	answer_length = recv(netlink, answer, sizeof(answer), 0);
	if (answer_length <= 0)
		give_up("receiving");
}

/* The error of the acknowledgement. */
static int ask(void)
{
	struct nlmsghdr header;
	int error;

	exchange();
	memcpy(&header, answer, sizeof(header));
	if (header.nlmsg_type != NLMSG_ERROR || answer_length < NLMSG_HDRLEN + (int)sizeof(error)) {
		errno = EPROTO;
		give_up("an answer that is none");
	}
	memcpy(&error, answer + NLMSG_HDRLEN, sizeof(error));
	return error;
}

static void must(const char *what)
{
	int error = ask();

	if (error == 0)
		return;
	fprintf(stderr, "control_rates: %s: the switch answers %d\n", what, error);
	exit(1);
}

static void find_family(void)
{
	uint16_t found = 0;
	int at = NLMSG_HDRLEN + GENL_HDRLEN;

	start(CTRL_CMD_GETFAMILY);
	put(CTRL_ATTR_FAMILY_NAME, TARNFWD_NL_FAMILY, sizeof(TARNFWD_NL_FAMILY));
	exchange();
	while (at + NLA_HDRLEN + (int)sizeof(found) <= answer_length) {
		struct nlattr attribute;

		memcpy(&attribute, answer + at, sizeof(attribute));
		if (attribute.nla_len < NLA_HDRLEN)
			break;
		if (attribute.nla_type == CTRL_ATTR_FAMILY_ID)
			memcpy(&found, answer + at + NLA_HDRLEN, sizeof(found));
		at += NLA_ALIGN(attribute.nla_len);
	}
	if (found == 0) {
		errno = ENOENT;
		give_up("the family " TARNFWD_NL_FAMILY);
	}
	/* The acknowledgement, in a datagram of its own. */
	if (recv(netlink, answer, sizeof(answer), 0) <= 0)
		give_up("receiving");
	family = found;
}

static int unix_socket(int type, const char *path)
{
	struct sockaddr_un address = { .sun_family = AF_UNIX };
	int opened = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);

	snprintf(address.sun_path, sizeof(address.sun_path), "%s", path);
	if (opened < 0 || connect(opened, (struct sockaddr *)&address, sizeof(address)) != 0)
		give_up(path);
	return opened;
}

static void open_netlink(const char *path)
{
	struct timeval patience = { .tv_sec = PATIENCE_SECONDS };
	struct sockaddr_nl any = { .nl_family = AF_NETLINK };

	if (path) {
		netlink = unix_socket(SOCK_SEQPACKET, path);
	} else {
		netlink = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
		if (netlink < 0 || bind(netlink, (struct sockaddr *)&any, sizeof(any)) != 0)
			give_up("generic netlink");
	}
	setsockopt(netlink, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
	find_family();
}

/* --- what is declared ---------------------------------------------------------------------------- */

static const uint8_t mac[6] = { 2, 0, 0, 0, 0x60, 1 };

static void add_port(uint32_t ifindex)
{
	char name[16];

	snprintf(name, sizeof(name), "rate%u", ifindex);
	start(TARNFWD_CMD_IF_NEWLINK);
	put_u32(TARNFWD_ATTR_IFINDEX, ifindex);
	put(TARNFWD_ATTR_IF_NAME, name, (uint16_t)(strlen(name) + 1));
	put_u8(TARNFWD_ATTR_IF_KIND, TARNFWD_IF_KIND_PORT);
	put_u32(TARNFWD_ATTR_FLAGS, UP);
	put(TARNFWD_ATTR_MAC, mac, sizeof(mac));
	must("declaring a port");
}

static void add_vlans(uint16_t from, uint16_t end)
{
	start(TARNFWD_CMD_IF_CREATE_SVI_RANGE);
	put_u16(TARNFWD_ATTR_VID_START, from);
	put_u16(TARNFWD_ATTR_VID_END, end);
	put_u32(TARNFWD_ATTR_VLAN_OPTIONS, 0);
	put(TARNFWD_ATTR_MAC, mac, sizeof(mac));
	must("making VLANs");
}

static void delete_vlan(uint32_t vid)
{
	start(TARNFWD_CMD_IF_DELETE_SVI);
	put_u32(TARNFWD_ATTR_IFINDEX, VLAN_IFINDEX_BASE + vid);
	must("deleting a VLAN");
}

static void delete_port(uint32_t ifindex)
{
	start(TARNFWD_CMD_IF_DELLINK);
	put_u32(TARNFWD_ATTR_IFINDEX, ifindex);
	must("deleting a port");
}

static void members(uint32_t ifindex, int are, const uint8_t *bitmap)
{
	start(are ? TARNFWD_CMD_VLAN_ADD_VID_BMP_TO_PORT :
		    TARNFWD_CMD_VLAN_DELETE_VID_BMP_FROM_PORT);
	put_u32(TARNFWD_ATTR_IFINDEX, ifindex);
	if (are)
		put_u8(TARNFWD_ATTR_TAGGED, 1);
	put(TARNFWD_ATTR_VID_BITMAP, bitmap, BITMAP_BYTES);
	must("memberships");
}

static void set_flags(uint32_t ifindex, uint32_t flags)
{
	start(TARNFWD_CMD_IF_UPDATE);
	put_u32(TARNFWD_ATTR_IFINDEX, ifindex);
	put_u32(TARNFWD_ATTR_FLAGS, flags);
	must("flags");
}

/* --- what is seen -------------------------------------------------------------------------------- */

static char listing[1 << 20];

static void read_listing(void)
{
	static const char words[] = "proc read ifdb\n";
	size_t length = 0;
	ssize_t more;
	int file = control ? unix_socket(SOCK_STREAM, control) :
			     open("/proc/tarn/ifdb", O_RDONLY | O_CLOEXEC);

	if (file < 0 || (control && send(file, words, sizeof(words) - 1, 0) < 0))
		give_up("the interfaces");
	while ((more = read(file, listing + length, sizeof(listing) - 1 - length)) > 0)
		length += (size_t)more;
	listing[length] = '\0';
	close(file);
}

/* Whether the listing says that the VLAN runs. */
static int runs(unsigned int vid)
{
	unsigned int ifindex, flags;
	char name[16], *line;

	read_listing();
	snprintf(name, sizeof(name), "\nvlan%u ", vid);
	line = strstr(listing, name);
	if (!line || sscanf(line, " %*s %u %x", &ifindex, &flags) != 2) {
		errno = ENOENT;
		give_up("the VLAN in the listing");
	}
	return (flags & RUNNING) != 0;
}

/* --- what is measured ---------------------------------------------------------------------------- */

static void rate(const char *what, unsigned int count)
{
	double begin = now(), took;

	for (unsigned int i = 0; i < count; i++)
		must(what);
	took = now() - begin;
	printf("%-52s %10.0f /s\n", what, count / took);
}

static int by_size(const void *one, const void *other)
{
	double a = *(const double *)one, b = *(const double *)other;

	return (a > b) - (a < b);
}

static double median(double *all)
{
	qsort(all, CHANGES, sizeof(*all), by_size);
	return all[CHANGES / 2];
}

/* The port goes up and down; its VLAN runs, or does not, when the work has been done. */
static void flag_changes(const char *what)
{
	static double changes[CHANGES], looks[CHANGES];

	for (unsigned int i = 0; i < CHANGES; i++) {
		int up = !(i & 1);
		double begin = now();

		set_flags(FIRST_PORT, up ? UP | RUNNING : UP);
		while (runs(VLANS) != up)
			if (now() - begin > PATIENCE_SECONDS) {
				errno = ETIMEDOUT;
				give_up("a flag change");
			}
		changes[i] = now() - begin;
		begin = now();
		runs(VLANS);
		looks[i] = now() - begin;
	}
	set_flags(FIRST_PORT, UP);
	while (runs(VLANS))
		;
	printf("%-52s %10.3f ms (of that a look: %.3f)\n", what, median(changes) * 1e3,
	       median(looks) * 1e3);
}

static void report_ms(const char *what, double begin)
{
	printf("%-52s %10.1f ms\n", what, (now() - begin) * 1e3);
	fflush(stdout);
}

int main(int argc, char **argv)
{
	uint8_t all[BITMAP_BYTES], last[BITMAP_BYTES] = { [VLANS / 8] = 1u << VLANS % 8 };
	unsigned int count = argc > 1 ? 50000 : 5000;
	double begin;

	if (argc != 1 && argc != 3) {
		fprintf(stderr, "usage: control_rates [NETLINK CONTROL]\n");
		return 2;
	}
	control = argc > 1 ? argv[2] : NULL;
	open_netlink(argc > 1 ? argv[1] : NULL);
	/* VLAN v is bit v: 1 to 4094. */
	memset(all, 0xFF, sizeof(all));
	all[0] &= ~1u;
	all[BITMAP_BYTES - 1] &= 0x7F;

	begin = now();
	for (uint32_t k = 0; k < PORTS; k++)
		add_port(FIRST_PORT + k);
	report_ms("64 ports are declared", begin);

	start(TARNFWD_CMD_UDLD_ENABLED);
	put_u8(TARNFWD_ATTR_STATE, 0);
	rate("commands that set a word (udld_enabled)", count);
	start(TARNFWD_CMD_STP_SET_PORT_STATE);
	put_u32(TARNFWD_ATTR_IFINDEX, FIRST_PORT);
	put_u32(TARNFWD_ATTR_STP_INSTANCE, 0);
	put_u8(TARNFWD_ATTR_STP_STATE, TARNFWD_STP_FORWARDING);
	rate("commands on a port (stp_set_port_state)", count);

	add_vlans(VLANS, VLANS + 1);
	members(FIRST_PORT, 1, last);
	flag_changes("a flag change, until its one VLAN runs");

	begin = now();
	for (uint16_t vid = 1; vid < VLANS; vid += 256)
		add_vlans(vid, vid + 256 < VLANS ? vid + 256 : VLANS);
	report_ms("4093 VLANs are made, each with its interface", begin);
	members(FIRST_PORT, 1, all);
	flag_changes("a flag change, until the last of 4094 VLANs runs");
	members(FIRST_PORT, 0, all);
	begin = now();
	for (uint32_t k = 0; k < PORTS; k++)
		members(FIRST_PORT + k, 1, all);
	report_ms("4094 VLANs are added to 64 ports, by bitmap", begin);
	begin = now();
	for (uint32_t k = 0; k < PORTS; k++)
		members(FIRST_PORT + k, 0, all);
	report_ms("and taken away again", begin);

	begin = now();
	for (uint32_t vid = 1; vid <= VLANS; vid++)
		delete_vlan(vid);
	for (uint32_t k = 0; k < PORTS; k++)
		delete_port(FIRST_PORT + k);
	report_ms("VLANs and ports are deleted", begin);
	return 0;
}
