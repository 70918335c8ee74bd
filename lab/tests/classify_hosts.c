/*
 * What the IP stack of a host sends, and where it ends in the switch, by its counters: pings, ARP,
 * neighbour discovery, TCP, jumbo frames, fragments, hellos of routers, multicast, PTP.
 *
 *   host 1 -- p1     VLAN 10: port 1, the switch is 192.0.2.254, fd00:10::fe
 */
#include "switch.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#define OWN "192.0.2.254"
#define OWN6 "fd00:10::fe"
#define MOST 9216

static long stops_before;

/* Brackets of what is sent: how often a redirect stopped frames for a reason meanwhile. */
static void watch(const char *redirect, int reason)
{
	stops_before = lab_stops(redirect, reason);
}

static void ended(const char *what, const char *redirect, int reason, long least)
{
	long count = 0;

	for (int tries = 0; tries < 20 && count < least; tries++) {
		count = lab_stops(redirect, reason) - stops_before;
		net_pause(count < least ? 100 : 0);
	}
	CHECK(count >= least, "%s: \"%s\", reason %d (%ld)", what, redirect, reason, count);
}

static void make_switch(void)
{
	switch_start();
	switch_vlan(10, "02:00:00:00:00:fe");
	switch_member(10, 1, "untagged");
	switch_member(10, 2, "untagged");
	CHECK(net_address(host[1], "h1", "192.0.2.1", 24) == 0 &&
		      net_address(host[1], "h1", "fd00:10::1", 64) == 0 &&
		      net_address(NET_HERE, "vlan10", OWN, 24) == 0 &&
		      net_address(NET_HERE, "vlan10", OWN6, 64) == 0,
	      "host 1 and the switch have addresses");
}

/* --- to the switch itself -------------------------------------------------------------------------- */

static void pings_go_up(void)
{
	watch("arp", 12);
	CHECK(net_reaches(host[1], OWN, 56), "host 1 asks for the switch and pings it");
	ended("the request", "arp", 12, 1);
	watch("ipv4", 4);
	CHECK(net_reaches(host[1], OWN, 56), "it pings it again");
	ended("the pings", "ipv4", 4, 3);
	watch("ipv6", 6);
	CHECK(net_reaches(host[1], OWN6, 56), "and over IPv6, with neighbour discovery before it");
	ended("both", "ipv6", 6, 4);
}

static void jumbo_frames_go_up(void)
{
	CHECK(net_mtu(NET_HERE, "p1", MOST) == 0 && net_mtu(host[1], "h1", MOST) == 0 &&
		      net_mtu(NET_HERE, "vlan10", MOST) == 0,
	      "the wire and vlan10 carry %d bytes", MOST);
	watch("ipv4", 4);
	CHECK(net_reaches(host[1], OWN, MOST - 28), "host 1 pings the switch with as many");
	ended("jumbo frames", "ipv4", 4, 3);
	CHECK(net_mtu(NET_HERE, "vlan10", 1500) == 0 && net_mtu(host[1], "h1", 1500) == 0, "back to 1500");
}

static struct sockaddr_in ipv4(const char *address, int port)
{
	struct sockaddr_in to = { .sin_family = AF_INET, .sin_port = htons(port) };

	inet_pton(AF_INET, address, &to.sin_addr);
	return to;
}

/* From host 1, as its IP stack makes it. */
static int sends(int type, int protocol, const char *address, size_t length, int count)
{
	static char data[MOST];
	struct sockaddr_in to = ipv4(address, type == SOCK_RAW ? 0 : 5000);
	struct in_addr from = { htonl(0xC0000201) };
	int sock = net_socket(host[1], AF_INET, type, protocol), sent = 0;

	setsockopt(sock, IPPROTO_IP, IP_MULTICAST_IF, &from, sizeof(from));
	while (sent < count &&
	       sendto(sock, data, length, 0, (struct sockaddr *)&to, sizeof(to)) == (ssize_t)length)
		sent++;
	close(sock);
	return sent == count;
}

static void fragments_are_reported_and_go_up(void)
{
	long reports = lab_counter("dos_userspace");

	watch("ipv4", 4);
	CHECK(sends(SOCK_DGRAM, 0, OWN, 4000, 5), "host 1 sends datagrams of three fragments");
	ended("fragments", "ipv4", 4, 15);
	CHECK(lab_counter("dos_userspace") - reports == 15, "and each was reported (%ld)",
	      lab_counter("dos_userspace") - reports);
}

static void tcp_goes_up(void)
{
	static char data[256 * 1024];
	struct sockaddr_in at = ipv4(OWN, 5001);
	int listening = net_socket(NET_HERE, AF_INET, SOCK_STREAM, 0);
	int calling = net_socket(host[1], AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
	struct timeval patience = { .tv_sec = 10 };
	size_t sent = 0, received = 0;
	int called;

	setsockopt(listening, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
	watch("ipv4", 4);
	CHECK(bind(listening, (struct sockaddr *)&at, sizeof(at)) == 0 && listen(listening, 1) == 0,
	      "the switch listens");
	connect(calling, (struct sockaddr *)&at, sizeof(at));
	called = accept(listening, NULL, NULL);
	CHECK(called >= 0, "host 1 calls");
	for (int tries = 0; received < sizeof(data) && tries < 2000; tries++) {
		ssize_t part = send(calling, data + sent, sizeof(data) - sent, MSG_NOSIGNAL);

		sent += part > 0 ? part : 0;
		while ((part = recv(called, data, sizeof(data), MSG_DONTWAIT)) > 0)
			received += part;
		net_pause(5);
	}
	CHECK(received == sizeof(data), "and sends %zu bytes over TCP", received);
	ended("segments", "ipv4", 4, 100);
	close(called);
	close(calling);
	close(listening);
}

/* --- to many --------------------------------------------------------------------------------------- */

static void hellos_of_routers_are_replicated_and_go_up(void)
{
	static const struct {
		const char *redirect, *group;
		int protocol;
	} rows[] = { { "pim", "224.0.0.13", 103 }, { "vrrp", "224.0.0.18", 112 } };
	char counter[32];
	long before;

	for (int i = 0; i < 2; i++) {
		snprintf(counter, sizeof(counter), "%s_stack_rep", rows[i].redirect);
		before = lab_counter(counter);
		watch("ipv4", 4);
		CHECK(sends(SOCK_RAW, rows[i].protocol, rows[i].group, 20, 3), "host 1 says hello to %s",
		      rows[i].group);
		for (int tries = 0; tries < 20 && lab_counter(counter) - before < 3; tries++)
			net_pause(100);
		CHECK(lab_counter(counter) - before == 3, "\"%s\": for the stack, too", rows[i].redirect);
		ended(rows[i].redirect, "ipv4", 4, 3);
	}
}

static void a_multicast_stream_is_held_to_its_limit(void)
{
	long went_on, offered;

	net_pause(1000); /* for what else is under way */
	went_on = lab_stops("ipv4", 4);
	offered = chip_hits("multicast-ipv4");
	watch("mcdrop", 3);
	CHECK(sends(SOCK_DGRAM, 0, "239.1.2.3", 100, 100), "host 1 sends a stream that nobody joined");
	for (int tries = 0; tries < 20 && chip_hits("multicast-ipv4") - offered < 100; tries++)
		net_pause(100);
	ended("a stream", "mcdrop", 3, 90);
	went_on = lab_stops("ipv4", 4) - went_on;
	offered = chip_hits("multicast-ipv4") - offered;
	CHECK(offered == 100 && went_on >= 1 && went_on <= 10, "the chip offered %ld of it, %ld went on",
	      offered, went_on);
}

static void ptp_goes_to_its_port(void)
{
	/* An announcement, as far as the switch looks at it. */
	static const unsigned char frame[60] = { 0x01, 0x1B, 0x19, 0,	 0,    0,    0x02, 0,
						 0,    0,    0x77, 0x01, 0x88, 0xF7, 0x0B, 0x02 };
	int tap = net_tap(host[1], "h1", 0x88F7);

	CHECK(lab_command("enable ptp") == 0, "PTP is turned on");
	watch("ptp", 1);
	for (int i = 0; i < 3; i++)
		send(tap, frame, sizeof(frame), 0);
	ended("PTP", "ptp", 1, 3);
	CHECK(lab_command("disable ptp") == 0, "and off");
	close(tap);
}

int main(void)
{
	make_switch();
	pings_go_up();
	jumbo_frames_go_up();
	fragments_are_reported_and_go_up();
	tcp_goes_up();
	hellos_of_routers_are_replicated_and_go_up();
	a_multicast_stream_is_held_to_its_limit();
	ptp_goes_to_its_port();
	switch_end();
	return lab_result();
}
