/*
 * What becomes of IP, ARP and the rest, by the counters of a kernel; the taps, by the bytes that come
 * out of the raw netlink groups; and the event tarn:redirect, by what it says.
 */
#include "lab.h"
#include "net.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "../../tests/control/nl_cases.h"

#define OWN "020000000001"
#define HOST "020000000099"
#define ALL "ffffffffffff"
#define ZEROS8 "0000000000000000"
#define ZEROS16 ZEROS8 ZEROS8

/* Headers up to their payload: protocol, source, destination; next header, hop limit. */
#define IPV4(ttl, protocol, to) "0800" "450000280000" "0000" ttl protocol "0000" "c0000201" to
#define IPV6(next, limit, to) "86dd" "60000000" "0020" next limit "fe80" "0000" ZEROS8 "00000099" to
#define TO4 "c00002fe"
#define GROUP4 "ef010203"
#define TO6 "fe80" "0000" ZEROS8 "000000fe"
#define ARP(operation, sender) "0806" "0001080006040" operation sender "c0000201" "000000000000" "c00002fe"

static void frame(const char *what, const char *hex, const char *redirect, int reason)
{
	long before = lab_stops(redirect, reason);

	CHECK(lab_command("frames 1 5001 1 0 %s%s", hex, ZEROS16 ZEROS16) == 0 &&
		      lab_stops(redirect, reason) == before + 1,
	      "%s: \"%s\", reason %d", what, redirect, reason);
}

static void each_kind_of_frame_ends_where_it_belongs(void)
{
	frame("IPv4 for the switch", OWN HOST IPV4("40", "11", TO4), "ipv4", 4);
	frame("IPv4 from the switch's own address", OWN OWN IPV4("40", "11", TO4), "ipv4", 1);
	frame("IPv6 for the switch", OWN HOST IPV6("11", "40", TO6), "ipv6", 6);
	frame("IPv6 whose headers cannot be walked", OWN HOST IPV6("00", "40", TO6) "11ff",
	      "ipv6_precheck", 5);
	frame("an ARP request to a port that is blocked", ALL HOST ARP("001", HOST), "arp", 11);
	CHECK(lab_command("stp 5001 3") == 0, "spanning tree forwards on the port");
	frame("an ARP request", ALL HOST ARP("001", HOST), "arp", 12);
	frame("an ARP reply from a group", ALL HOST ARP("002", "030000000099"), "arp", 10);
	frame("one from all", ALL HOST ARP("002", ALL), "arp", 12);
	frame("a gratuitous one", ALL HOST "0806" "0001080006040001" HOST "c0000201" "000000000000" "c0000201",
	      "arp", 12);
	frame("a probe", ALL HOST "0806" "0001080006040001" HOST "00000000" "000000000000" "c00002fe", "arp",
	      12);
	frame("RARP", ALL HOST "8035", "rarp", 3);
	frame("PPPoE", OWN HOST "8863", "pppoe", 2);
	frame("multicast of no IP family", "01005f000001" HOST "88b5", "mcdrop", 1);
	CHECK(lab_command("frames 1 5001 9 0 " OWN HOST IPV4("40", "11", TO4)) == 0 &&
		      lab_stops("ipv4", 5) >= 1,
	      "IPv4 of a VLAN without an interface: \"ipv4\", reason 5");
	CHECK(lab_command("frames 1 5001 9 0 " ALL HOST ARP("001", HOST)) == 0 &&
		      lab_stops("arp", 6) >= 1,
	      "ARP of such a VLAN: \"arp\", reason 6");
}

static void neighbour_discovery_is_held_to_its_limit(void)
{
	long passed = lab_stops("ipv6", 6), held = lab_stops("ipv6", 2);

	/* Far more than a second's, in far less than one. */
	net_pause(1100);
	CHECK(lab_command("frames 150 5001 1 0 " OWN HOST IPV6("3a", "ff", TO6) "87" ZEROS16) == 0,
	      "150 neighbour solicitations arrive");
	passed = lab_stops("ipv6", 6) - passed;
	held = lab_stops("ipv6", 2) - held;
	CHECK(passed == 101 && held == 49, "101 pass (%ld), 49 are stopped (%ld)", passed, held);
}

static void write_file(const char *path, const char *text)
{
	int file = open(path, O_WRONLY | O_CLOEXEC);

	CHECK(file >= 0 && write(file, text, strlen(text)) == (ssize_t)strlen(text),
	      "%.*s is written to %s", (int)strcspn(text, "\n"), text, path);
	close(file);
}

static long milliseconds(void)
{
	struct timespec now;

	clock_gettime(CLOCK_MONOTONIC, &now);
	return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

static void a_stream_is_held(const char *what, const char *hex, const char *redirect, int on, int reason)
{
	long passed, held, most, began;

	net_pause(500); /* for a token, and so that the flow is forgotten */
	passed = lab_stops(redirect, on);
	held = lab_stops("mcdrop", reason);
	began = milliseconds();
	CHECK(lab_command("frames 50 5001 1 0 %s" ZEROS16, hex) == 0, "50 frames of %s arrive", what);
	/* A flow goes on every 200 ms; a kernel that checks itself is slow. */
	most = 1 + (milliseconds() - began + 20) / 200;
	passed = lab_stops(redirect, on) - passed;
	held = lab_stops("mcdrop", reason) - held;
	CHECK(passed >= 1 && passed <= most && passed + held == 50,
	      "%ld go on of at most %ld, %ld are dropped", passed, most, held);
}

static void multicast_that_nobody_joined_is_held_to_its_limit(void)
{
	a_stream_is_held("an IPv4 stream", "01005e010204" HOST IPV4("40", "11", "ef010204"), "ipv4", 4, 3);
	a_stream_is_held("an IPv6 stream", "3333000000fb" HOST IPV6("11", "40", "ff02" "0000" ZEROS8 "000000fb"),
			 "ipv6", 6, 4);
}

static void what_is_for_the_master_is_throttled(void)
{
	long sent = lab_stops("ipv4", 3), held = lab_stops("ipv4", 2);

	write_file("/proc/tarn/pktdebugslaveonly", "1\n");
	CHECK(lab_command("frames 20 5001 1 0 " OWN HOST IPV4("01", "11", TO4)) == 0,
	      "20 frames of one flow arrive whose TTL has run out");
	sent = lab_stops("ipv4", 3) - sent;
	held = lab_stops("ipv4", 2) - held;
	CHECK(sent == 1 && held == 19, "1 goes on (%ld), 19 are held back (%ld)", sent, held);
	write_file("/proc/tarn/pktdebugslaveonly", "0\n");
}

/* --- commands -------------------------------------------------------------------------------------- */

static int family_socket = -1;

static int answer_of(struct nl_message *message)
{
	uint8_t answer[8192];
	int error = 1;

	message->u.header.nlmsg_len = message->length;
	if (send(family_socket, message->u.bytes, message->length, 0) < 0 ||
	    recv(family_socket, answer, sizeof(answer), 0) < (ssize_t)(NLMSG_HDRLEN + sizeof(error)))
		return 1;
	memcpy(&error, answer + NLMSG_HDRLEN, sizeof(error));
	return error;
}

static uint16_t family_id(void)
{
	struct nl_message question;
	uint8_t answer[8192];
	struct nlattr header;
	uint16_t id = 0;
	ssize_t length;

	nl_message_start(&question, GENL_ID_CTRL, CTRL_CMD_GETFAMILY, 0, 1);
	nl_message_put(&question, CTRL_ATTR_FAMILY_NAME, TARNFWD_NL_FAMILY,
		       sizeof(TARNFWD_NL_FAMILY));
	question.u.header.nlmsg_len = question.length;
	send(family_socket, question.u.bytes, question.length, 0);
	length = recv(family_socket, answer, sizeof(answer), 0);
	for (ssize_t at = NLMSG_HDRLEN + GENL_HDRLEN; at + NLA_HDRLEN < length;
	     at += NLA_ALIGN(header.nla_len)) {
		memcpy(&header, answer + at, sizeof(header));
		if (header.nla_type == CTRL_ATTR_FAMILY_ID)
			memcpy(&id, answer + at + NLA_HDRLEN, sizeof(id));
		if (header.nla_len < NLA_HDRLEN)
			break;
	}
	return id;
}

static int group_command(uint16_t family, uint8_t command)
{
	static const uint8_t group[4] = { 239, 1, 2, 3 };
	struct nl_message message;
	uint32_t fib = 0;
	uint16_t vid = 1;

	nl_message_start(&message, family, command, NLM_F_ACK, 1);
	nl_message_put(&message, TARNFWD_ATTR_ID, &fib, sizeof(fib));
	nl_message_put(&message, TARNFWD_ATTR_VID, &vid, sizeof(vid));
	nl_message_put(&message, TARNFWD_ATTR_IPV4_ADDR, group, sizeof(group));
	return answer_of(&message);
}

static int host_command(uint16_t family, uint8_t command)
{
	static const uint8_t address[4] = { 192, 0, 2, 1 };
	struct nl_message message;

	nl_message_start(&message, family, command, NLM_F_ACK, 1);
	nl_message_put(&message, TARNFWD_ATTR_IPV4_ADDR, address, sizeof(address));
	return answer_of(&message);
}

static void commands_take_effect(void)
{
	struct timeval patience = { .tv_sec = 5 };
	struct nl_message flush;
	uint16_t family;
	int i;

	family_socket = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
	setsockopt(family_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
	family = family_id();
	CHECK(family != 0, "the control family is there");
	for (i = 0; i < 2; i++) {
		CHECK(group_command(family, TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_ADD) == 0,
		      "a flooding group is added");
		frame("a frame to it", "01005e010203" HOST IPV4("40", "11", GROUP4), "mcdrop", 2);
		nl_message_start(&flush, family, TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_FLUSH, NLM_F_ACK, 1);
		CHECK(answer_of(&flush) == 0, "the groups are flushed");
		net_pause(300); /* longer ago than a flow is remembered */
		frame("a frame to it", "01005e010203" HOST IPV4("40", "11", GROUP4), "ipv4", 4);
	}
	CHECK(group_command(family, TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_REMOVE) == -1,
	      "what is not there cannot be removed");
	CHECK(host_command(family, TARNFWD_CMD_VORNAPPSD_REDIRECT_ADD_IP_ADDRESS) == 0,
	      "a host is listed");
	frame("its Web traffic", "020000000055" HOST IPV4("40", "06", "c6336407") "30390050",
	      "vornappsd", 1);
	frame("and over TLS", "020000000055" HOST IPV4("40", "06", "c6336407") "303901bb",
	      "vornappsd", 2);
	CHECK(host_command(family, TARNFWD_CMD_VORNAPPSD_REDIRECT_REMOVE_IP_ADDRESS) == 0,
	      "it is taken off the list");
	frame("its Web traffic", OWN HOST IPV4("40", "06", "c6336407") "30390050", "ipv4", 4);
	close(family_socket);
}

/* --- taps ------------------------------------------------------------------------------------------ */

static int group_socket(int group)
{
	struct sockaddr_nl address = { .nl_family = AF_NETLINK };
	struct timeval patience = { .tv_sec = 2 };
	int sock = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK);

	setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
	CHECK(sock >= 0 && bind(sock, (struct sockaddr *)&address, sizeof(address)) == 0 &&
		      setsockopt(sock, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group,
				 sizeof(group)) == 0,
	      "a socket joins group %d of the raw netlink socket", group);
	return sock;
}

static void a_tap(int group, const char *meta, const char *redirect, int reason, uint32_t more,
		  uint32_t length_word, int has_kind)
{
	/* 14 bytes of Ethernet, a tag, and 32 bytes of data. */
	static const char tagged[] = OWN HOST "81006005" "9000" "0102030405060708" ZEROS8 ZEROS16;
	const uint32_t length = (sizeof(tagged) - 1) / 2;
	uint8_t got[512];
	uint32_t words[7];
	int sock = group_socket(group);
	ssize_t read_bytes;

	CHECK(lab_command("%s", meta) == 0, "the chip says: %s", meta);
	CHECK(lab_command("frames 1 5001 1 0 %s", tagged) == 0, "a tagged frame arrives");
	read_bytes = recv(sock, got, sizeof(got), 0);
	CHECK(read_bytes == (ssize_t)(more + length), "%zd bytes come out", read_bytes);
	memcpy(words, got, sizeof(words));
	CHECK(words[0] == length_word + length && words[1] == 0 && words[2] == 0 && words[3] == 0 &&
		      words[4] == 5001 && words[has_kind ? 6 : 5] == length,
	      "with a message before the frame");
	CHECK(read_bytes > (ssize_t)more + 20 &&
		      memcmp(got + more + 12, "\x81\x00\x60\x05\x90\x00\x01\x02\x03", 9) == 0,
	      "which has its tag again");
	CHECK(lab_stops(redirect, reason) >= 1, "and is stopped: \"%s\", reason %d", redirect, reason);
	CHECK(lab_command("meta 0 0 0") == 0, "the chip says nothing more");
	close(sock);
}

/* --- the event ------------------------------------------------------------------------------------- */

#define TRACING "/sys/kernel/tracing/"

static int trace_has(const char *a, const char *b)
{
	FILE *trace = fopen(TRACING "trace", "r");
	char line[1024];
	int found = 0;

	while (trace && !found && fgets(line, sizeof(line), trace))
		found = strstr(line, a) && strstr(line, b);
	if (trace)
		fclose(trace);
	return found;
}

static void decisions_are_traced(void)
{
	mkdir("/sys", 0755);
	mount("sysfs", "/sys", "sysfs", 0, NULL);
	CHECK(mount("tracefs", "/sys/kernel/tracing", "tracefs", 0, NULL) == 0 || errno == EBUSY,
	      "there is a tracefs");
	frame("a frame before", OWN HOST IPV4("40", "11", TO4), "ipv4", 4);
	CHECK(!trace_has("redirect=ipv4", ""), "leaves no trace");
	write_file(TRACING "events/tarn/redirect/enable", "1\n");
	frame("a frame from the switch's own address", OWN OWN IPV4("40", "11", TO4), "ipv4", 1);
	CHECK(trace_has("redirect=ipv4 slot=41 flags=0x04 reason=1",
			"rule=\"gate: the source MAC is the switch's own\""),
	      "is traced with the rule that stopped it");
	CHECK(trace_has("port=if5001 ifindex=5001 vid=1 type=0x0800",
			"dst=02:00:00:00:00:01 src=02:00:00:00:00:01"),
	      "and as what it was");
	net_pause(1100);
	lab_command("frames 150 5001 1 0 " OWN HOST IPV6("3a", "ff", TO6) "87" ZEROS16);
	CHECK(trace_has("number=\"frames in this second\"", "measured=101 limit=100"),
	      "a limit is traced with its number");
	write_file(TRACING "events/tarn/redirect/enable", "0\n");
	close(open(TRACING "trace", O_WRONLY | O_TRUNC | O_CLOEXEC)); /* which empties it */
	frame("a frame after", OWN HOST IPV4("40", "11", TO4), "ipv4", 4);
	CHECK(!trace_has("redirect=", ""), "leaves none again");
}

int main(void)
{
	lab_setup();
	CHECK(net_up(NET_HERE, "vlan1", 1) == 0, "vlan1 goes up");
	net_pause(300);
	each_kind_of_frame_ends_where_it_belongs();
	neighbour_discovery_is_held_to_its_limit();
	multicast_that_nobody_joined_is_held_to_its_limit();
	what_is_for_the_master_is_throttled();
	commands_take_effect();
	a_tap(1, "meta 8 0 0", "sflow", 3, 28, -16u, 1);
	CHECK(lab_command("enable flowd") == 0, "flowd is turned on");
	a_tap(2, "meta 0 0x100 0", "flowd", 2, 24, 8, 0);
	CHECK(lab_command("disable flowd") == 0, "and off");
	decisions_are_traced();
	return lab_result();
}
