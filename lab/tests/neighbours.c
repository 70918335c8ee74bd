/*
 * The neighbours that the IP stack forgets, looked for in its tables before and after: by VLAN, device,
 * port and MAC address, these and no others. A port is known from ARP and neighbour discovery alone.
 *
 *   host 1, port 1 and host 2, port 2 on VLAN 10; host 3, port 3 on VLAN 20, with host 2's MAC address
 */
#include "switch.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include "../../tests/control/nl_cases.h"

#define ANY_VLAN 0xFFFFFFFFu
#define ECHO_REPLY 129 /* of ICMPv6 */
#define EVERY_DEVICE 0
#define BOTH 0

static const struct {
	const char *device, *address;
} entries[] = {
	{ "vlan10", "192.0.2.1" },    { "vlan10", "fd00:10::1" }, { "vlan10", "192.0.2.2" },
	{ "vlan10", "fd00:10::2" },   { "vlan20", "198.51.100.3" }, { "vlan20", "fd00:20::3" },
	{ "vlan10", "192.0.2.77" }, /* said by hand */
};
#define ENTRIES (sizeof(entries) / sizeof(entries[0]))

/* Bits of them. */
#define HOST1 0x1u
#define HOST1_6 0x2u
#define HOST2 0x4u
#define HOST2_6 0x8u
#define HOST3 0x10u
#define HOST3_6 0x20u
#define BY_HAND 0x40u

static const unsigned char mac1[6] = { 2, 0, 0, 0, 9, 1 }, mac2[6] = { 2, 0, 0, 0, 9, 2 };

static int sock = -1;
static uint16_t family;

/* --- the tables ------------------------------------------------------------------------------------ */

struct neighbour_request {
	struct nlmsghdr header;
	struct ndmsg about;
	char rest[128];
};

static void neighbour_put(struct neighbour_request *request, int type, const void *value, int length)
{
	struct rtattr *attribute = (struct rtattr *)((char *)request + request->header.nlmsg_len);

	attribute->rta_type = type;
	attribute->rta_len = RTA_LENGTH(length);
	memcpy(RTA_DATA(attribute), value, length);
	request->header.nlmsg_len += RTA_ALIGN(attribute->rta_len);
}

static struct neighbour_request neighbour_request(int type, const char *device, const char *address)
{
	struct neighbour_request request = {
		.header = { .nlmsg_type = type, .nlmsg_flags = NLM_F_REQUEST,
			    .nlmsg_len = NLMSG_LENGTH(sizeof(struct ndmsg)) },
		.about = { .ndm_ifindex = if_nametoindex(device) },
	};
	unsigned char bytes[16];

	request.about.ndm_family = strchr(address, ':') ? AF_INET6 : AF_INET;
	inet_pton(request.about.ndm_family, address, bytes);
	neighbour_put(&request, NDA_DST, bytes, request.about.ndm_family == AF_INET ? 4 : 16);
	return request;
}

/* The answer's type, with what it holds. */
static int neighbour_ask(struct neighbour_request *request, char *answer, size_t room)
{
	int asking = net_socket(NET_HERE, AF_NETLINK, SOCK_RAW, NETLINK_ROUTE), type = 0;

	if (send(asking, request, request->header.nlmsg_len, 0) > 0 &&
	    recv(asking, answer, room, 0) >= (ssize_t)NLMSG_HDRLEN)
		type = ((struct nlmsghdr *)answer)->nlmsg_type;
	close(asking);
	return type;
}

static int is_known(int entry)
{
	struct neighbour_request request =
		neighbour_request(RTM_GETNEIGH, entries[entry].device, entries[entry].address);
	char answer[4096] __attribute__((aligned(8)));
	const struct ndmsg *about = NLMSG_DATA((struct nlmsghdr *)answer);

	return neighbour_ask(&request, answer, sizeof(answer)) == RTM_NEWNEIGH &&
	       !(about->ndm_state & (NUD_INCOMPLETE | NUD_FAILED | NUD_NONE));
}

static void say_by_hand(void)
{
	struct neighbour_request request =
		neighbour_request(RTM_NEWNEIGH, entries[6].device, entries[6].address);
	char answer[4096] __attribute__((aligned(8)));

	request.header.nlmsg_flags |= NLM_F_CREATE | NLM_F_REPLACE | NLM_F_ACK;
	request.about.ndm_state = NUD_PERMANENT;
	neighbour_put(&request, NDA_LLADDR, mac1, sizeof(mac1));
	neighbour_ask(&request, answer, sizeof(answer));
}

static unsigned int unknown(void)
{
	unsigned int all = 0;

	for (unsigned int i = 0; i < ENTRIES; i++)
		all |= is_known(i) ? 0 : 1u << i;
	return all;
}

static void meet(void)
{
	struct net_ping ping;

	for (unsigned int i = 0; i < ENTRIES - 1; i++) {
		if (net_ping_open(&ping, NET_HERE, entries[i].address, 56) != 0)
			continue;
		for (int tries = 0; tries < 50 && !ping.received; tries++) {
			if (tries % 10 == 0)
				net_ping_send(&ping);
			net_pause(20);
			net_ping_take(&ping);
		}
		net_ping_close(&ping);
	}
	say_by_hand();
}

/* --- commands -------------------------------------------------------------------------------------- */

static int exchange(struct nl_message *message, uint8_t *answer, size_t room)
{
	message->u.header.nlmsg_len = message->length;
	if (send(sock, message->u.bytes, message->length, 0) < 0)
		return -1;
	return (int)recv(sock, answer, room, 0);
}

static void find_family(void)
{
	struct nl_message question;
	uint8_t answer[8192];
	struct nlattr header;
	int length, at = NLMSG_HDRLEN + GENL_HDRLEN;

	nl_message_start(&question, GENL_ID_CTRL, CTRL_CMD_GETFAMILY, 0, 1);
	nl_message_put(&question, CTRL_ATTR_FAMILY_NAME, TARNFWD_NL_FAMILY,
		       sizeof(TARNFWD_NL_FAMILY));
	length = exchange(&question, answer, sizeof(answer));
	while (at + (int)sizeof(header) <= length) {
		memcpy(&header, answer + at, sizeof(header));
		if (header.nla_type == CTRL_ATTR_FAMILY_ID)
			memcpy(&family, answer + at + NLA_HDRLEN, sizeof(family));
		if (header.nla_len < NLA_HDRLEN)
			break;
		at += NLA_ALIGN(header.nla_len);
	}
	CHECK(family != 0, "the family \"" TARNFWD_NL_FAMILY "\" is there");
}

static void put_u32(struct nl_message *message, unsigned int number, uint32_t value)
{
	nl_message_put(message, number, &value, sizeof(value));
}

static int ask(struct nl_message *message)
{
	uint8_t answer[8192];
	int error = -1;

	if (exchange(message, answer, sizeof(answer)) >= (int)(NLMSG_HDRLEN + sizeof(error)))
		memcpy(&error, answer + NLMSG_HDRLEN, sizeof(error));
	return error;
}

static int flush_port(uint8_t which, uint32_t vid, uint32_t port, uint32_t ifindex)
{
	struct nl_message message;

	nl_message_start(&message, family, TARNFWD_CMD_NBR_DEL_BY_VLAN_AND_PORT, NLM_F_ACK, 1);
	nl_message_put(&message, TARNFWD_ATTR_FAMILY, &which, sizeof(which));
	put_u32(&message, TARNFWD_ATTR_ID, vid);
	put_u32(&message, TARNFWD_ATTR_PORT_IFINDEX, port);
	put_u32(&message, TARNFWD_ATTR_IFINDEX, ifindex);
	return ask(&message);
}

static int flush_mac(uint32_t ifindex, uint32_t vid, const unsigned char *mac)
{
	struct nl_message message;

	nl_message_start(&message, family, TARNFWD_CMD_ARP_DEL_ALL_BY_MAC, NLM_F_ACK, 1);
	put_u32(&message, TARNFWD_ATTR_IFINDEX, ifindex);
	put_u32(&message, TARNFWD_ATTR_ID, vid);
	nl_message_put(&message, TARNFWD_ATTR_MAC, mac, 6);
	return ask(&message);
}

static int moved(uint32_t ifindex, const unsigned char *mac)
{
	struct nl_message message;

	nl_message_start(&message, family, TARNFWD_CMD_NBR_DEL_BY_VLAN_MAC, NLM_F_ACK, 1);
	put_u32(&message, TARNFWD_ATTR_IFINDEX, ifindex);
	nl_message_put(&message, TARNFWD_ATTR_MAC, mac, 6);
	return ask(&message);
}

static int no_member(uint32_t port, uint16_t vid)
{
	struct nl_message message;

	nl_message_start(&message, family, TARNFWD_CMD_VLAN_DELETE_PORT_DYNAMIC, NLM_F_ACK, 1);
	put_u32(&message, TARNFWD_ATTR_IFINDEX, port);
	nl_message_put(&message, TARNFWD_ATTR_VID, &vid, sizeof(vid));
	return ask(&message);
}

static int link_falls(int k)
{
	char name[8];

	snprintf(name, sizeof(name), "h%d", k);
	net_up(host[k], name, 0);
	net_pause(200);
	switch_follow_links();
	return 0;
}

/* ICMPv6 of that type from host 1's addresses to the switch, out of host k. */
static int say_as_host1(int k, unsigned char type)
{
	unsigned char frame[64] = {
		2, 0, 0, 0, 0, 0xfe, 2, 0, 0, 0, 9, 1, 0x86, 0xdd, 0x60, 0, 0, 0, 0, 8, 58, 255,
		0xfd, 0, 0, 0x10, [37] = 1, 0xfd, 0, 0, 0x10, [53] = 0xfe, type,
	};
	struct sockaddr_ll to = { .sll_family = AF_PACKET, .sll_halen = 6 };
	struct net_link link;
	char name[8];
	int fd = net_socket(host[k], AF_PACKET, SOCK_RAW, 0);
	long sent;

	snprintf(name, sizeof(name), "h%d", k);
	net_link(host[k], name, &link);
	to.sll_ifindex = link.index;
	sent = sendto(fd, frame, sizeof(frame), 0, (struct sockaddr *)&to, sizeof(to));
	close(fd);
	net_pause(50);
	return sent != sizeof(frame);
}

/* Host 1 seems to speak on port 2; then it does speak, so that the chip finds it again. */
static int flush_behind_impostor(unsigned char type)
{
	int failed = say_as_host1(2, type) ||
		     flush_port(BOTH, ANY_VLAN, SWITCH_PORT(2), EVERY_DEVICE) != 0;

	return say_as_host1(1, ECHO_REPLY) || failed;
}

/* A host that asks for the switch by itself is back at once, so there is a second try. */
#define FORGETS(wanted, command)                                                                   \
	do {                                                                                       \
		unsigned int before = 0, after = 0;                                                \
		int result = 0;                                                                    \
		for (int tries = 0; tries < 3; tries++) {                                          \
			meet();                                                                    \
			before = unknown();                                                        \
			result = (command);                                                        \
			after = unknown();                                                         \
			if (before == 0 && after == (wanted))                                      \
				break;                                                             \
		}                                                                                  \
		CHECK(before == 0 && result == 0 && after == (wanted),                             \
		      #command " forgets 0x%02x (%d, 0x%02x after 0x%02x)", (unsigned)(wanted),    \
		      result, after, before);                                                      \
	} while (0)

static void make_hosts(void)
{
	static const struct {
		int k;
		const unsigned char *mac;
		const char *ipv4, *ipv6;
	} rows[] = { { 1, mac1, "192.0.2.1", "fd00:10::1" },
		     { 2, mac2, "192.0.2.2", "fd00:10::2" },
		     { 3, mac2, "198.51.100.3", "fd00:20::3" } };
	char name[8];

	for (int i = 0; i < 3; i++) {
		snprintf(name, sizeof(name), "h%d", rows[i].k);
		CHECK(net_up(host[rows[i].k], name, 0) == 0 &&
			      net_hardware_address(host[rows[i].k], name, rows[i].mac) == 0 &&
			      net_up(host[rows[i].k], name, 1) == 0 &&
			      net_address(host[rows[i].k], name, rows[i].ipv4, 24) == 0 &&
			      net_address(host[rows[i].k], name, rows[i].ipv6, 64) == 0,
		      "host %d has addresses", rows[i].k);
	}
	net_pause(200);
	switch_follow_links();
}

static void make_switch(void)
{
	switch_start();
	switch_vlan(10, "02:00:00:00:00:fe");
	switch_vlan(20, "02:00:00:00:00:fd");
	switch_member(10, 1, "untagged");
	switch_member(10, 2, "untagged");
	switch_member(20, 3, "untagged");
	CHECK(net_address(NET_HERE, "vlan10", "192.0.2.254", 24) == 0 &&
		      net_address(NET_HERE, "vlan10", "fd00:10::fe", 64) == 0 &&
		      net_address(NET_HERE, "vlan20", "198.51.100.254", 24) == 0 &&
		      net_address(NET_HERE, "vlan20", "fd00:20::fe", 64) == 0,
	      "the switch has addresses on both VLANs");
}

int main(void)
{
	struct sockaddr_nl address = { .nl_family = AF_NETLINK };
	struct timeval patience = { .tv_sec = 20 };

	make_switch();
	make_hosts();
	sock = net_socket(NET_HERE, AF_NETLINK, SOCK_RAW, NETLINK_GENERIC);
	setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
	CHECK(bind(sock, (struct sockaddr *)&address, sizeof(address)) == 0, "a netlink socket");
	find_family();

	FORGETS(HOST1 | HOST1_6, flush_port(BOTH, ANY_VLAN, SWITCH_PORT(1), EVERY_DEVICE));
	FORGETS(HOST2, flush_port(AF_INET, ANY_VLAN, SWITCH_PORT(2), EVERY_DEVICE));
	FORGETS(HOST2_6, flush_port(AF_INET6, ANY_VLAN, SWITCH_PORT(2), EVERY_DEVICE));
	FORGETS(HOST3 | HOST3_6, flush_port(BOTH, 20, SWITCH_PORT(3), EVERY_DEVICE));
	FORGETS(0, flush_port(BOTH, 10, SWITCH_PORT(3), EVERY_DEVICE));
	FORGETS(HOST2 | HOST2_6, flush_port(BOTH, ANY_VLAN, SWITCH_PORT(2), SWITCH_VLAN(10)));
	FORGETS(0, flush_port(BOTH, ANY_VLAN, SWITCH_PORT(2), SWITCH_VLAN(20)));
	FORGETS(0, flush_port(BOTH, ANY_VLAN, 5999, EVERY_DEVICE));
	for (int type = 132; type <= 255; type += type < 138 ? 1 : 39) {
		int is_discovery = type >= 133 && type <= 137;

		FORGETS(HOST2 | HOST2_6 | (is_discovery ? HOST1 | HOST1_6 : 0),
			flush_behind_impostor(type));
	}
	FORGETS(HOST2, flush_mac(EVERY_DEVICE, 10, mac2));
	FORGETS(HOST3, flush_mac(SWITCH_VLAN(20), 20, mac2));
	FORGETS(HOST1 | HOST1_6 | BY_HAND, moved(SWITCH_VLAN(10), mac1));
	FORGETS(HOST3 | HOST3_6, moved(SWITCH_VLAN(20), mac2));
	FORGETS(HOST1 | HOST1_6, link_falls(1));
	net_up(host[1], "h1", 1);
	net_address(host[1], "h1", "fd00:10::1", 64); /* went with the link */
	net_pause(500);
	switch_follow_links();
	FORGETS(HOST3 | HOST3_6, no_member(SWITCH_PORT(3), 20));
	close(sock);
	switch_end();
	return lab_result();
}
