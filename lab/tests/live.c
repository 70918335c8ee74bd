/*
 * The switch at work between hosts:
 *
 *   host 1 -- p1 \         VLAN 10: ports 1, 2 and 4, the switch is 192.0.2.254, fd00:10::fe
 *   host 2 -- p2  |        VLAN 20: port 3, and port 4 with a tag
 *   host 3 -- p3  |
 *   host 4 -- p4 /         host 4 has no address: it listens
 */
#include "switch.h"

#include <errno.h>
#include <linux/sockios.h>
#include <sys/socket.h>
#include <unistd.h>

#define OWN "192.0.2.254"
#define OWN6 "fd00:10::fe"
#define PING 56
#define MOST 9216

/* A type for experiments, which nobody here knows. */
#define TYPE 0x88B5
#define FLOOD 20

static void make_switch(void)
{
	char address[16], address6[32], device[8];

	switch_start();
	switch_vlan(10, "02:00:00:00:00:fe");
	switch_vlan(20, "02:00:00:00:00:fd");
	switch_member(10, 1, "untagged");
	switch_member(10, 2, "untagged");
	switch_member(10, 4, "untagged");
	switch_member(20, 3, "untagged");
	switch_member(20, 4, "tagged");
	for (int k = 1; k <= 3; k++) {
		snprintf(device, sizeof(device), "h%d", k);
		snprintf(address, sizeof(address), "192.0.2.%d", k);
		snprintf(address6, sizeof(address6), "fd00:10::%d", k);
		CHECK(net_address(host[k], device, address, 24) == 0 &&
			      net_address(host[k], device, address6, 64) == 0,
		      "host %d has addresses", k);
	}
	CHECK(net_address(NET_HERE, "vlan10", OWN, 24) == 0 &&
		      net_address(NET_HERE, "vlan10", OWN6, 64) == 0,
	      "the switch has addresses on VLAN 10");
}

static void hosts_of_one_vlan_reach_each_other_and_no_others(void)
{
	CHECK(net_reaches(host[1], "192.0.2.2", PING), "host 1 reaches host 2, both on VLAN 10");
	CHECK(net_reaches(host[2], "fd00:10::1", PING), "and host 2 host 1 over IPv6");
	CHECK(net_is_silent(host[1], "192.0.2.3"), "host 1 does not reach host 3, on VLAN 20");
	CHECK(net_is_silent(host[3], "fd00:10::2"), "nor host 3 host 2, over IPv6");
}

static void a_host_pings_the_switch(void)
{
	struct net_link link;

	CHECK(net_reaches(host[1], OWN, PING), "host 1 pings the switch's own address on vlan10");
	CHECK(net_reaches(host[2], OWN6, PING), "and host 2 over IPv6");
	CHECK(net_is_silent(host[3], OWN), "host 3 does not: it is on VLAN 20");
	CHECK(net_reaches(NET_HERE, "192.0.2.1", PING), "the switch pings host 1");
	CHECK(net_reaches(NET_HERE, "fd00:10::2", PING), "and host 2 over IPv6");
	CHECK(net_link(NET_HERE, "vlan10", &link) == 0 && link.stats.rx_packets >= 12,
	      "vlan10 counts what it received: %llu", (unsigned long long)link.stats.rx_packets);
}

/* --- floods ---------------------------------------------------------------------------------------- */

static void send_frames(int tap, const char *to)
{
	unsigned char frame[60] = { 0 };

	memcpy(frame, to, 6);
	memcpy(frame + 6, "\x02\x00\x00\x00\x77\x01", 6);
	frame[12] = TYPE >> 8;
	frame[13] = TYPE & 0xFF;
	for (int i = 0; i < FLOOD; i++)
		send(tap, frame, sizeof(frame), 0);
}

/* Floods from a device, and how many frames each host had of it. */
static void flood(int where, const char *device, const char *to, int *got)
{
	int from = net_tap(where, device, TYPE), taps[HOSTS + 1];
	char name[8];

	for (int k = 1; k <= HOSTS; k++) {
		snprintf(name, sizeof(name), "h%d", k);
		taps[k] = net_tap(host[k], name, TYPE);
	}
	send_frames(from, to);
	net_pause(500);
	for (int k = 1; k <= HOSTS; k++) {
		got[k] = net_take(taps[k]);
		close(taps[k]);
	}
	close(from);
}

static void a_flood_leaves_on_every_port_but_its_source(void)
{
	static const struct {
		const char *to, *what;
	} rows[] = { { "\xff\xff\xff\xff\xff\xff", "a broadcast" },
		     { "\x01\x00\x5e\x7f\x00\x01", "a frame to a group" },
		     { "\x02\x00\x00\x00\x66\x66", "a frame to nobody known" } };
	int got[HOSTS + 1];

	for (int i = 0; i < 3; i++) {
		flood(host[1], "h1", rows[i].to, got);
		CHECK(got[2] == FLOOD && got[4] == FLOOD,
		      "%s leaves on ports 2 and 4 (%d, %d of %d)", rows[i].what, got[2], got[4], FLOOD);
		CHECK(got[1] == 0, "not on port 1, where it came from (%d)", got[1]);
		CHECK(got[3] == 0, "nor on port 3, of another VLAN (%d)", got[3]);
	}
}

static void what_the_switch_sends_to_all_leaves_everywhere(void)
{
	int got[HOSTS + 1];

	flood(NET_HERE, "vlan10", "\xff\xff\xff\xff\xff\xff", got);
	CHECK(got[1] == FLOOD && got[2] == FLOOD && got[4] == FLOOD,
	      "a broadcast of the switch leaves on all ports of its VLAN (%d, %d, %d)", got[1], got[2],
	      got[4]);
	CHECK(got[3] == 0, "and on no other (%d)", got[3]);
}

/* --- large frames ---------------------------------------------------------------------------------- */

static int set_mtu_by_request(const char *device, int mtu)
{
	struct ifreq request = { .ifr_mtu = mtu };

	strcpy(request.ifr_name, device);
	return net_request(SIOCSIFMTU, &request);
}

static void frames_of_9216_bytes_pass_and_no_larger(void)
{
	char near[8], far[8];
	struct net_link link;

	for (int k = 1; k <= HOSTS; k++) {
		snprintf(near, sizeof(near), "p%d", k);
		snprintf(far, sizeof(far), "h%d", k);
		CHECK(net_mtu(NET_HERE, near, MOST) == 0 && net_mtu(host[k], far, MOST) == 0,
		      "the wire of host %d carries %d bytes", k, MOST);
	}
	CHECK(!net_reaches(NET_HERE, "192.0.2.1", MOST - 28), "vlan10 does not, at first");
	CHECK(net_mtu(NET_HERE, "vlan10", MOST) == 0, "vlan10 takes an MTU of %d", MOST);
	CHECK(net_mtu(NET_HERE, "vlan10", MOST + 1) == -EINVAL, "and not of %d", MOST + 1);
	CHECK(set_mtu_by_request("vlan10", MOST + 1) == -EINVAL, "however it is asked");
	CHECK(net_link(NET_HERE, "vlan10", &link) == 0 && link.mtu == MOST, "it stays at %u", link.mtu);

	CHECK(net_reaches(host[1], "192.0.2.2", MOST - 28), "host 1 reaches host 2 with %d bytes", MOST);
	CHECK(net_reaches(host[2], "fd00:10::1", MOST - 48), "and over IPv6");
	CHECK(net_reaches(host[1], OWN, MOST - 28), "it reaches the switch with %d bytes", MOST);
	CHECK(net_reaches(host[2], OWN6, MOST - 48), "and over IPv6");
	CHECK(net_mtu(NET_HERE, "vlan10", 1500) == 0, "vlan10 goes back to 1500");
}

/* --- links ----------------------------------------------------------------------------------------- */

/* Whether VLAN 10 runs: the core's record and the device say the same. The device hears of it a little
 * later. */
static int runs(int yes)
{
	struct net_link link;
	struct lab_if vlan;

	for (int tries = 0; tries < 50; tries++) {
		if (lab_show(SWITCH_VLAN(10), &vlan) == 0 && net_link(NET_HERE, "vlan10", &link) == 0 &&
		    !(vlan.flags & IFF_RUNNING) == !yes && !(link.flags & IFF_RUNNING) == !yes &&
		    link.carrier == yes)
			return 1;
		net_pause(100);
	}
	printf("       record 0x%x, device 0x%x, carrier %d\n", vlan.flags, link.flags, link.carrier);
	return 0;
}

static void set_link(int k, int up)
{
	char device[8];

	snprintf(device, sizeof(device), "h%d", k);
	CHECK(net_up(host[k], device, up) == 0, "host %d goes %s", k, up ? "up" : "down");
	switch_follow_links();
}

static void a_vlan_runs_while_a_port_of_it_has_link(void)
{
	struct lab_if vlan;

	CHECK(runs(1), "VLAN 10 runs");
	CHECK(lab_show(SWITCH_VLAN(10), &vlan) == 0 && vlan.below == 3, "with %d ports", vlan.below);
	set_link(1, 0);
	set_link(2, 0);
	CHECK(runs(1), "it runs on while port 4 has link");
	set_link(4, 0);
	CHECK(runs(0), "and no longer when that goes down");
	CHECK(lab_show(SWITCH_VLAN(10), &vlan) == 0 && vlan.below == 0, "with %d ports", vlan.below);
	set_link(4, 1);
	CHECK(runs(1), "it runs again when a port comes back");
	set_link(1, 1);
	set_link(2, 1);
	CHECK(net_reaches(host[1], OWN, PING), "host 1 reaches the switch again");
	CHECK(net_reaches(host[1], "192.0.2.2", PING), "and host 2");
}

int main(void)
{
	make_switch();
	hosts_of_one_vlan_reach_each_other_and_no_others();
	a_host_pings_the_switch();
	a_flood_leaves_on_every_port_but_its_source();
	what_the_switch_sends_to_all_leaves_everywhere();
	frames_of_9216_bytes_pass_and_no_larger();
	a_vlan_runs_while_a_port_of_it_has_link();
	switch_end();
	return lab_result();
}
