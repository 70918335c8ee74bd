/*
 * Pings as fast as they come back, ten seconds long, between the hosts and with the switch, over both
 * protocols at once. What does not come back was counted where it was dropped.
 */
#include "switch.h"

#include <errno.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#define SECONDS 10
#define FLOWS 4
#define PING 56
#define AT_LEAST_EVERY_MS 10
#define BURST 2000

static const struct {
	int from;
	const char *to, *what;
} flows[FLOWS] = {
	{ 1, "192.0.2.254", "host 1 to the switch" },
	{ 2, "fd00:10::fe", "host 2 to the switch, IPv6" },
	{ 1, "192.0.2.2", "host 1 to host 2" },
	{ 2, "fd00:10::1", "host 2 to host 1, IPv6" },
};

static struct net_ping pings[FLOWS];

static long long now_ms(void)
{
	struct timespec now;

	clock_gettime(CLOCK_MONOTONIC, &now);
	return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

static void make_switch(void)
{
	switch_start();
	switch_vlan(10, "02:00:00:00:00:fe");
	switch_member(10, 1, "untagged");
	switch_member(10, 2, "untagged");
	CHECK(net_address(host[1], "h1", "192.0.2.1", 24) == 0 &&
		      net_address(host[1], "h1", "fd00:10::1", 64) == 0 &&
		      net_address(host[2], "h2", "192.0.2.2", 24) == 0 &&
		      net_address(host[2], "h2", "fd00:10::2", 64) == 0 &&
		      net_address(NET_HERE, "vlan10", "192.0.2.254", 24) == 0 &&
		      net_address(NET_HERE, "vlan10", "fd00:10::fe", 64) == 0,
	      "hosts and switch have addresses");
	for (int i = 0; i < FLOWS; i++)
		CHECK(net_reaches(host[flows[i].from], flows[i].to, PING) &&
			      net_ping_open(&pings[i], host[flows[i].from], flows[i].to, PING) == 0,
		      "%s is reached", flows[i].what);
}

static void take_all(int wait_ms)
{
	struct pollfd wait[FLOWS];

	for (int i = 0; i < FLOWS; i++)
		wait[i] = (struct pollfd){ .fd = pings[i].socket, .events = POLLIN };
	poll(wait, FLOWS, wait_ms);
	for (int i = 0; i < FLOWS; i++)
		net_ping_take(&pings[i]);
}

static unsigned int outstanding(void)
{
	unsigned int sum = 0;

	for (int i = 0; i < FLOWS; i++)
		sum += pings[i].sent - pings[i].received;
	return sum;
}

/* Until all are back, or none came for two seconds. */
static void wait_for_the_last(void)
{
	long long quiet_since = now_ms();

	for (unsigned int left = outstanding(); left && now_ms() - quiet_since < 2000;) {
		take_all(10);
		if (outstanding() != left)
			quiet_since = now_ms();
		left = outstanding();
	}
}

/* All that was dropped and counted, at any place. */
static long counted(void)
{
	return net_lost(NET_HERE) + net_lost(host[1]) + net_lost(host[2]) + chip_lost();
}

static void flood(void)
{
	long long end = now_ms() + SECONDS * 1000, last[FLOWS] = { 0 };

	while (now_ms() < end) {
		unsigned int before[FLOWS];

		for (int i = 0; i < FLOWS; i++)
			before[i] = pings[i].received;
		take_all(AT_LEAST_EVERY_MS);
		for (int i = 0; i < FLOWS; i++) {
			int due = pings[i].received - before[i];

			if (due == 0 && now_ms() - last[i] >= AT_LEAST_EVERY_MS)
				due = 1;
			if (due > 0)
				last[i] = now_ms();
			while (due-- > 0)
				net_ping_send(&pings[i]);
		}
	}
	wait_for_the_last();
}

/* More at once than the queues on the way hold. */
static void burst(void)
{
	for (int n = 0; n < BURST; n++)
		for (int i = 0; i < FLOWS; i++)
			net_ping_send(&pings[i]);
	wait_for_the_last();
}

static void check(const char *what, void (*send)(void))
{
	long dropped = counted(), memory = lab_meminfo("MemFree");
	unsigned int sent = 0, lost, wrong = 0;

	for (int i = 0; i < FLOWS; i++)
		pings[i].sent = pings[i].received = pings[i].wrong = 0;
	send();
	lost = outstanding();
	dropped = counted() - dropped;
	for (int i = 0; i < FLOWS; i++) {
		printf("       %s: %u sent, %u received\n", flows[i].what, pings[i].sent,
		       pings[i].received);
		sent += pings[i].sent;
		wrong += pings[i].wrong;
	}
	CHECK(wrong == 0, "%s: what came back was what was sent", what);
	CHECK((long)lost <= dropped, "%u of %u were lost, and %ld drops counted", lost, sent, dropped);
	usleep(200000);
	memory -= lab_meminfo("MemFree");
	CHECK(memory < 8192, "%ld kB less are free", memory);
}

int main(void)
{
	make_switch();
	burst(); /* warms the caches */
	check("ten seconds", flood);
	for (int i = 0; i < FLOWS; i++)
		CHECK(pings[i].sent >= SECONDS * 10, "%s was a flood", flows[i].what);
	check("a burst", burst);
	for (int i = 0; i < FLOWS; i++)
		net_ping_close(&pings[i]);
	switch_end();
	return lab_result();
}
