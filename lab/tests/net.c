/* See net.h. */
#define _GNU_SOURCE
#include "net.h"

#include "lab.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/ethernet.h>
#include <netinet/icmp6.h>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#define ROOM 8192

/* --- namespaces ------------------------------------------------------------------------------------ */

static int home = -1;

static int enter(int where)
{
	if (home < 0)
		home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
	return where == NET_HERE || setns(where, CLONE_NEWNET) == 0 ? 0 : -errno;
}

static void leave(int where)
{
	int error = errno;

	if (where != NET_HERE && setns(home, CLONE_NEWNET) != 0)
		abort();
	errno = error;
}

int net_socket(int where, int family, int type, int protocol)
{
	int made = enter(where);

	if (made < 0)
		return made;
	made = socket(family, type | SOCK_CLOEXEC, protocol);
	leave(where);
	return made < 0 ? -errno : made;
}

int net_namespace(void)
{
	int made, where;

	enter(NET_HERE);
	if (unshare(CLONE_NEWNET) != 0)
		return -errno;
	where = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
	leave(where);
	made = net_up(where, "lo", 1);
	return made < 0 ? made : where;
}

void net_pause(int milliseconds)
{
	poll(NULL, 0, milliseconds);
}

/* --- netlink --------------------------------------------------------------------------------------- */

struct request {
	struct nlmsghdr header;
	char rest[1024];
};

static void *end_of(struct request *request)
{
	return (char *)request + NLMSG_ALIGN(request->header.nlmsg_len);
}

static void *start(struct request *request, int type, int flags, size_t length)
{
	memset(request, 0, sizeof(*request));
	request->header.nlmsg_len = NLMSG_LENGTH(length);
	request->header.nlmsg_type = type;
	request->header.nlmsg_flags = NLM_F_REQUEST | flags;
	return NLMSG_DATA(&request->header);
}

static struct rtattr *put(struct request *request, int type, const void *value, int length)
{
	struct rtattr *attribute = end_of(request);

	attribute->rta_type = type;
	attribute->rta_len = RTA_LENGTH(length);
	if (length)
		memcpy(RTA_DATA(attribute), value, length);
	request->header.nlmsg_len =
		NLMSG_ALIGN(request->header.nlmsg_len) + RTA_ALIGN(attribute->rta_len);
	return attribute;
}

static void put_name(struct request *request, const char *name)
{
	put(request, IFLA_IFNAME, name, strlen(name) + 1);
}

static void close_nest(struct request *request, struct rtattr *nest)
{
	nest->rta_len = (char *)end_of(request) - (char *)nest;
}

/* Its first answer, in `answer` (ROOM bytes); the error that it is. */
static int ask(int where, struct request *request, void *answer)
{
	int asking = net_socket(where, AF_NETLINK, SOCK_RAW, NETLINK_ROUTE), result = 0;
	struct nlmsghdr *header = answer;

	if (asking < 0)
		return asking;
	if (send(asking, request, request->header.nlmsg_len, 0) < 0 ||
	    recv(asking, answer, ROOM, 0) < (ssize_t)sizeof(*header))
		result = -errno;
	else if (header->nlmsg_type == NLMSG_ERROR)
		result = ((struct nlmsgerr *)NLMSG_DATA(header))->error;
	close(asking);
	return result;
}

static int tell(int where, struct request *request)
{
	char answer[ROOM];

	request->header.nlmsg_flags |= NLM_F_ACK;
	return ask(where, request, answer);
}

/* --- devices --------------------------------------------------------------------------------------- */

int net_pair(const char *near, const char *far, int where)
{
	struct rtattr *info, *kind_data, *peer;
	struct ifinfomsg peer_link = { 0 };
	struct request request;

	start(&request, RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, sizeof(struct ifinfomsg));
	put_name(&request, near);
	info = put(&request, IFLA_LINKINFO, NULL, 0);
	put(&request, IFLA_INFO_KIND, "veth", 5);
	kind_data = put(&request, IFLA_INFO_DATA, NULL, 0);
	peer = put(&request, VETH_INFO_PEER, &peer_link, sizeof(peer_link));
	put_name(&request, far);
	if (where != NET_HERE)
		put(&request, IFLA_NET_NS_FD, &where, sizeof(where));
	close_nest(&request, peer);
	close_nest(&request, kind_data);
	close_nest(&request, info);
	return tell(NET_HERE, &request);
}

int net_delete(int where, const char *name)
{
	struct request request;

	start(&request, RTM_DELLINK, 0, sizeof(struct ifinfomsg));
	put_name(&request, name);
	return tell(where, &request);
}

int net_up(int where, const char *name, int up)
{
	struct request request;
	struct ifinfomsg *link = start(&request, RTM_SETLINK, 0, sizeof(*link));

	link->ifi_change = IFF_UP;
	link->ifi_flags = up ? IFF_UP : 0;
	put_name(&request, name);
	return tell(where, &request);
}

int net_mtu(int where, const char *name, unsigned int mtu)
{
	struct request request;

	start(&request, RTM_SETLINK, 0, sizeof(struct ifinfomsg));
	put_name(&request, name);
	put(&request, IFLA_MTU, &mtu, sizeof(mtu));
	return tell(where, &request);
}

int net_hardware_address(int where, const char *name, const unsigned char *address)
{
	struct request request;

	start(&request, RTM_SETLINK, 0, sizeof(struct ifinfomsg));
	put_name(&request, name);
	put(&request, IFLA_ADDRESS, address, 6);
	return tell(where, &request);
}

int net_address(int where, const char *name, const char *address, int prefix)
{
	int family = strchr(address, ':') ? AF_INET6 : AF_INET;
	int length = family == AF_INET6 ? 16 : 4;
	struct net_link link;
	struct request request;
	struct ifaddrmsg *message =
		start(&request, RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, sizeof(*message));
	unsigned char bytes[16];
	int result = net_link(where, name, &link);

	if (result < 0 || inet_pton(family, address, bytes) != 1)
		return result < 0 ? result : -EINVAL;
	message->ifa_family = family;
	message->ifa_prefixlen = prefix;
	message->ifa_index = link.index;
	message->ifa_flags = IFA_F_NODAD;
	put(&request, IFA_LOCAL, bytes, length);
	put(&request, IFA_ADDRESS, bytes, length);
	return tell(where, &request);
}

static void read_link(const struct nlmsghdr *header, struct net_link *link)
{
	const struct ifinfomsg *message = NLMSG_DATA(header);
	const struct rtattr *attribute = IFLA_RTA(message);
	int left = IFLA_PAYLOAD(header);

	memset(link, 0, sizeof(*link));
	link->index = message->ifi_index;
	link->flags = message->ifi_flags;
	for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) {
		const void *value = RTA_DATA(attribute);

		if (attribute->rta_type == IFLA_MTU)
			memcpy(&link->mtu, value, sizeof(link->mtu));
		if (attribute->rta_type == IFLA_MIN_MTU)
			memcpy(&link->min_mtu, value, sizeof(link->min_mtu));
		if (attribute->rta_type == IFLA_MAX_MTU)
			memcpy(&link->max_mtu, value, sizeof(link->max_mtu));
		if (attribute->rta_type == IFLA_CARRIER)
			link->carrier = *(const unsigned char *)value;
		if (attribute->rta_type == IFLA_ADDRESS && RTA_PAYLOAD(attribute) == 6)
			memcpy(link->address, value, 6);
		if (attribute->rta_type == IFLA_STATS64)
			memcpy(&link->stats, value, sizeof(link->stats));
	}
}

int net_link(int where, const char *name, struct net_link *link)
{
	char answer[ROOM];
	struct request request;
	int result;

	start(&request, RTM_GETLINK, 0, sizeof(struct ifinfomsg));
	put_name(&request, name);
	result = ask(where, &request, answer);
	if (result == 0)
		read_link((struct nlmsghdr *)answer, link);
	return result;
}

/* Calls for each device of the namespace: how many there are. */
static int each_link(int where, void (*call)(const struct net_link *link, void *with), void *with)
{
	int asking = net_socket(where, AF_NETLINK, SOCK_RAW, NETLINK_ROUTE), count = 0, more = 1;
	static char answer[8 * ROOM];
	struct request request;
	struct net_link link;

	start(&request, RTM_GETLINK, NLM_F_DUMP, sizeof(struct ifinfomsg));
	if (asking < 0 || send(asking, &request, request.header.nlmsg_len, 0) < 0)
		return -1;
	while (more) {
		int left = recv(asking, answer, sizeof(answer), 0);
		struct nlmsghdr *header = (struct nlmsghdr *)answer;

		if (left <= 0)
			break;
		for (; NLMSG_OK(header, (unsigned int)left); header = NLMSG_NEXT(header, left)) {
			if (header->nlmsg_type != RTM_NEWLINK) {
				more = 0;
				break;
			}
			read_link(header, &link);
			if (call)
				call(&link, with);
			count++;
		}
	}
	close(asking);
	return count;
}

int net_count(int where)
{
	return each_link(where, NULL, NULL);
}

static void add_lost(const struct net_link *link, void *sum)
{
	*(long *)sum += link->stats.rx_dropped + link->stats.tx_dropped + link->stats.rx_errors +
			link->stats.tx_errors;
}

/* A counter of the IP stack, from a file of two lines for each protocol: names, and numbers. */
static long stack_counter(FILE *file, const char *protocol, const char *name)
{
	char names[2048], numbers[2048], *name_at, *number_at, *next_name, *next_number;
	size_t length = strlen(protocol);

	rewind(file);
	while (fgets(names, sizeof(names), file) && fgets(numbers, sizeof(numbers), file)) {
		if (strncmp(names, protocol, length) != 0 || names[length] != ':')
			continue;
		name_at = strtok_r(names, " \n", &next_name);
		number_at = strtok_r(numbers, " \n", &next_number);
		while (name_at && number_at && strcmp(name_at, name) != 0) {
			name_at = strtok_r(NULL, " \n", &next_name);
			number_at = strtok_r(NULL, " \n", &next_number);
		}
		return name_at && number_at ? atol(number_at) : 0;
	}
	return 0;
}

/* The same, from a file with a line for each. */
static long stack6_counter(FILE *file, const char *name)
{
	char line[128], found[64];
	long number;

	rewind(file);
	while (fgets(line, sizeof(line), file))
		if (sscanf(line, "%63s %ld", found, &number) == 2 && strcmp(found, name) == 0)
			return number;
	return 0;
}

/* A stack that cannot send what it should (an answer to a ping, when it has too many under way) counts
 * that, and no device sees it. */
static long lost_in_stack(int where)
{
	long sum = 0;
	FILE *file;

	if (enter(where) != 0)
		return 0;
	file = fopen("/proc/self/net/snmp", "re");
	if (file) {
		sum += stack_counter(file, "Ip", "InDiscards") + stack_counter(file, "Ip", "OutDiscards") +
		       stack_counter(file, "Icmp", "InErrors");
		fclose(file);
	}
	file = fopen("/proc/self/net/snmp6", "re");
	if (file) {
		sum += stack6_counter(file, "Ip6InDiscards") + stack6_counter(file, "Ip6OutDiscards") +
		       stack6_counter(file, "Icmp6InErrors");
		fclose(file);
	}
	leave(where);
	return sum;
}

long net_lost(int where)
{
	long sum = 0;

	each_link(where, add_lost, &sum);
	return sum + lost_in_stack(where);
}

int net_request(unsigned long command, struct ifreq *request)
{
	int asking = net_socket(NET_HERE, AF_INET, SOCK_DGRAM, 0), result;

	result = asking < 0 ? asking : ioctl(asking, command, request) < 0 ? -errno : 0;
	close(asking);
	return result;
}

/* --- frames ---------------------------------------------------------------------------------------- */

int net_tap(int where, const char *name, unsigned short type)
{
	struct sockaddr_ll at = { .sll_family = AF_PACKET, .sll_protocol = htons(type) };
	int tap = net_socket(where, AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, 0), on = 1;
	struct net_link link;

	if (tap < 0 || net_link(where, name, &link) < 0)
		return -1;
	at.sll_ifindex = link.index;
	setsockopt(tap, SOL_PACKET, PACKET_AUXDATA, &on, sizeof(on));
	return bind(tap, (struct sockaddr *)&at, sizeof(at)) == 0 ? tap : -1;
}

/* The receiving device takes the tag off and tells it beside the frame. */
static long put_tag_back(struct msghdr *msg, unsigned char *frame, long length)
{
	struct tpacket_auxdata aux;
	unsigned char tag[4] = { 0x81, 0x00 };

	for (struct cmsghdr *one = CMSG_FIRSTHDR(msg); one; one = CMSG_NXTHDR(msg, one)) {
		if (one->cmsg_level != SOL_PACKET || one->cmsg_type != PACKET_AUXDATA)
			continue;
		memcpy(&aux, CMSG_DATA(one), sizeof(aux));
		if (!(aux.tp_status & TP_STATUS_VLAN_VALID))
			return length;
		tag[2] = (unsigned char)(aux.tp_vlan_tci >> 8);
		tag[3] = (unsigned char)aux.tp_vlan_tci;
		memmove(frame + 16, frame + 12, (size_t)length - 12);
		memcpy(frame + 12, tag, sizeof(tag));
		return length + 4;
	}
	return length;
}

long net_read(int tap, unsigned char *frame, size_t size)
{
	char control[256];
	struct iovec buffer = { frame, size - 4 };
	struct msghdr msg = { .msg_iov = &buffer, .msg_iovlen = 1, .msg_control = control,
			      .msg_controllen = sizeof(control) };
	long length = recvmsg(tap, &msg, MSG_DONTWAIT);

	return length < 14 ? length : put_tag_back(&msg, frame, length);
}

int net_take(int tap)
{
	char frame[64];
	int count = 0;

	while (recv(tap, frame, sizeof(frame), 0) >= 0)
		count++;
	return count;
}

/* --- pings ----------------------------------------------------------------------------------------- */

#define PING_HEADER 8
#define PING_MOST (9216 - 28)

static void fill(unsigned char *data, unsigned int size, unsigned short sequence)
{
	for (unsigned int i = 0; i < size; i++)
		data[i] = i + sequence;
}

static unsigned short sum_of(const unsigned char *bytes, unsigned int length)
{
	unsigned int sum = 0;

	for (unsigned int i = 0; i + 1 < length; i += 2)
		sum += bytes[i] << 8 | bytes[i + 1];
	if (length & 1)
		sum += bytes[length - 1] << 8;
	while (sum >> 16)
		sum = (sum & 0xFFFF) + (sum >> 16);
	return htons(~sum);
}

/* Replies with this number are for this ping: others need not wake it. */
static int prepare(struct net_ping *ping, int where)
{
	int family = ping->is_v6 ? AF_INET6 : AF_INET, room = 8 << 20;
	int whole = ping->is_v6 ? IPV6_PMTUDISC_DO : IP_PMTUDISC_DO;
	struct icmp6_filter replies;

	ping->socket = net_socket(where, family, SOCK_RAW | SOCK_NONBLOCK,
				  ping->is_v6 ? IPPROTO_ICMPV6 : IPPROTO_ICMP);
	if (ping->socket < 0)
		return ping->socket;
	if (ping->is_v6) {
		ICMP6_FILTER_SETBLOCKALL(&replies);
		ICMP6_FILTER_SETPASS(ICMP6_ECHO_REPLY, &replies);
		setsockopt(ping->socket, IPPROTO_ICMPV6, ICMP6_FILTER, &replies, sizeof(replies));
		setsockopt(ping->socket, IPPROTO_IPV6, IPV6_MTU_DISCOVER, &whole, sizeof(whole));
	} else {
		unsigned int others = ~(1u << ICMP_ECHOREPLY);

		setsockopt(ping->socket, SOL_RAW, 1 /* ICMP_FILTER */, &others, sizeof(others));
		setsockopt(ping->socket, IPPROTO_IP, IP_MTU_DISCOVER, &whole, sizeof(whole));
	}
	setsockopt(ping->socket, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof(room));
	setsockopt(ping->socket, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room));
	return 0;
}

int net_ping_open(struct net_ping *ping, int where, const char *to, unsigned int size)
{
	struct sockaddr_in6 v6 = { .sin6_family = AF_INET6 };
	struct sockaddr_in v4 = { .sin_family = AF_INET };
	static unsigned short ids;

	memset(ping, 0, sizeof(*ping));
	ping->is_v6 = strchr(to, ':') != NULL;
	ping->id = ++ids;
	ping->size = size;
	if (size > PING_MOST ||
	    inet_pton(ping->is_v6 ? AF_INET6 : AF_INET, to,
		      ping->is_v6 ? (void *)&v6.sin6_addr : (void *)&v4.sin_addr) != 1)
		return -EINVAL;
	ping->to_length = ping->is_v6 ? sizeof(v6) : sizeof(v4);
	memcpy(ping->to, ping->is_v6 ? (void *)&v6 : (void *)&v4, ping->to_length);
	return prepare(ping, where);
}

int net_ping_send(struct net_ping *ping)
{
	unsigned char packet[PING_HEADER + PING_MOST] = { 0 };
	struct icmphdr header = { .type = ping->is_v6 ? ICMP6_ECHO_REQUEST : ICMP_ECHO,
				  .un.echo = { htons(ping->id), htons(ping->sent) } };
	unsigned int length = PING_HEADER + ping->size;

	memcpy(packet, &header, PING_HEADER);
	fill(packet + PING_HEADER, ping->size, ping->sent);
	if (!ping->is_v6) { /* elsewhere the kernel does it */
		header.checksum = sum_of(packet, length);
		memcpy(packet, &header, PING_HEADER);
	}
	if (sendto(ping->socket, packet, length, 0, (struct sockaddr *)ping->to, ping->to_length) < 0)
		return -errno;
	ping->sent++;
	return 0;
}

static int is_reply(struct net_ping *ping, const unsigned char *packet, unsigned int length)
{
	unsigned char expected[PING_MOST];
	struct icmphdr header;

	if (length < PING_HEADER)
		return 0;
	memcpy(&header, packet, PING_HEADER);
	if (header.un.echo.id != htons(ping->id))
		return 0;
	fill(expected, ping->size, ntohs(header.un.echo.sequence));
	if (length != PING_HEADER + ping->size ||
	    memcmp(packet + PING_HEADER, expected, ping->size) != 0)
		ping->wrong++;
	return 1;
}

int net_ping_take(struct net_ping *ping)
{
	unsigned char packet[64 + PING_HEADER + PING_MOST];
	int length, count = 0;

	while ((length = recv(ping->socket, packet, sizeof(packet), 0)) > 0) {
		int ip = ping->is_v6 ? 0 : (packet[0] & 15) * 4;

		if (length > ip)
			count += is_reply(ping, packet + ip, length - ip);
	}
	ping->received += count;
	return count;
}

void net_ping_close(struct net_ping *ping)
{
	if (ping->socket >= 0)
		close(ping->socket);
}

#define TRIES 8
#define PATIENCE_MS 2000

static int goes_and_comes(struct net_ping *ping)
{
	unsigned int before = ping->received;

	if (net_ping_send(ping) != 0)
		return 0;
	for (int waited = 0; waited < PATIENCE_MS; waited += 10) {
		struct pollfd wait = { .fd = ping->socket, .events = POLLIN };

		poll(&wait, 1, 10);
		if (net_ping_take(ping) > 0)
			return ping->received == before + 1 && ping->wrong == 0;
	}
	return 0;
}

int net_reaches(int where, const char *to, unsigned int size)
{
	struct net_ping ping;
	int good = 0;

	if (net_ping_open(&ping, where, to, size) < 0)
		return 0;
	for (int tries = 0; tries < TRIES && !good; tries++) {
		good = goes_and_comes(&ping);
		if (!good)
			net_pause(100);
	}
	good = good && goes_and_comes(&ping) && goes_and_comes(&ping);
	net_ping_close(&ping);
	return good;
}

int net_is_silent(int where, const char *to)
{
	struct net_ping ping;

	if (net_ping_open(&ping, where, to, 56) < 0)
		return 0;
	for (int i = 0; i < 3; i++)
		net_ping_send(&ping);
	net_pause(1000);
	net_ping_take(&ping);
	net_ping_close(&ping);
	return ping.sent > 0 && ping.received == 0;
}
