/* See vlan_rounds.h. */
#include "vlan_rounds.h"

#include "failing.h"
#include "lab.h"
#include "net.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <time.h>
#include <unistd.h>

#define PORT 5001
#define ADDRESSED 16 /* one VLAN in so many has addresses */

static long long now_ms(void)
{
	struct timespec now;

	clock_gettime(CLOCK_MONOTONIC, &now);
	return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

/* --- leaks ----------------------------------------------------------------------------------------- */

#define DEBUG "/sys/kernel/debug"
#define LEAKS DEBUG "/kmemleak"
#define PLANTED 16
/* What is not referred to counts as lost when it is this old. */
#define OLD_MS 6000

/*
 * Only a kernel that looks for leaks has the folder. Not while allocations fail: a test that stops halfway
 * leaves there what it lost on purpose.
 */
static int looks_for_leaks(void)
{
	return access(DEBUG, F_OK) == 0 && !failing_is_me();
}

static int tell_checker(const char *word)
{
	int file = open(LEAKS, O_WRONLY | O_CLOEXEC), good;

	good = file >= 0 && write(file, word, strlen(word)) == (ssize_t)strlen(word);
	if (file >= 0)
		close(file);
	return good;
}

/* Counts the reports: those of memory that was lost on purpose, which is full of 'Z', and the others,
 * which are shown. */
static void read_reports(int *planted, int *others)
{
	static char text[1 << 20];
	FILE *file = fopen(LEAKS, "re");
	char *report, *next;

	*planted = *others = 0;
	if (!file)
		return;
	text[fread(text, 1, sizeof(text) - 1, file)] = '\0';
	fclose(file);
	for (report = strstr(text, "unreferenced object"); report; report = next) {
		next = strstr(report + 1, "unreferenced object");
		if (next)
			next[-1] = '\0';
		if (strstr(report, "5a 5a 5a 5a 5a 5a 5a 5a"))
			++*planted;
		else if (++*others <= 3)
			printf("%s\n", report);
	}
}

void vlan_start(void)
{
	lab_setup();
	if (!looks_for_leaks()) {
		printf("       this kernel does not look for leaks: -debug does\n");
		return;
	}
	mount("debugfs", DEBUG, "debugfs", 0, NULL);
	CHECK(access(LEAKS, W_OK) == 0, "this kernel looks for leaks");
	/* Something to find. The stack may still point to one. */
	for (int i = 0; i < PLANTED; i++)
		lab_command("leak 512");
}

void vlan_end(void)
{
	int planted, others;
	long long start;

	if (!looks_for_leaks())
		return;
	net_pause(OLD_MS);
	start = now_ms();
	/* What changes between two looks is in use. */
	CHECK(tell_checker("scan") && tell_checker("scan"), "the kernel looks");
	read_reports(&planted, &others);
	CHECK(planted >= PLANTED / 2, "it finds what was lost on purpose (%d of %d)", planted, PLANTED);
	CHECK(others == 0, "and nothing else (%d)", others);
	tell_checker("clear");
	printf("       looked for %lld ms\n", now_ms() - start);
}

/* --- rounds ---------------------------------------------------------------------------------------- */

static int create(unsigned int vid)
{
	char name[16], address[24];
	int result = lab_command("vlan %u 02:00:00:00:%02x:%02x", vid, vid >> 8, vid & 255);

	if (result == 0)
		result = lab_command("member %u %d tagged", vid, PORT);
	if (result != 0 || vid % ADDRESSED != 0)
		return result;
	snprintf(name, sizeof(name), "vlan%u", vid);
	result = net_up(NET_HERE, name, 1);
	snprintf(address, sizeof(address), "10.%u.%u.1", vid >> 8, vid & 255);
	if (result == 0)
		result = net_address(NET_HERE, name, address, 24);
	snprintf(address, sizeof(address), "fd00:%x::1", vid);
	return result != 0 ? result : net_address(NET_HERE, name, address, 64);
}

static int delete(unsigned int vid)
{
	int result = lab_command("nomember %u %d", vid, PORT);

	return result != 0 ? result : lab_command("delete %u", 300 + vid);
}

/* How many of them the calls were good for; the first bad result is said. */
static unsigned int all(const char *what, int (*call)(unsigned int vid), unsigned int first,
			unsigned int last)
{
	unsigned int good = 0;

	for (unsigned int vid = first; vid <= last; vid++) {
		int result = call(vid);

		if (result != 0 && good == vid - first)
			printf("       %s VLAN %u: %d\n", what, vid, result);
		good += result == 0;
	}
	return good;
}

/* A work item holds an interface whose link has just changed, and tears it down. */
static int devices_become(int wanted, unsigned int vlans)
{
	for (unsigned int tries = 0; tries < 300 + 5 * vlans; tries++) {
		if (net_count(NET_HERE) == wanted)
			return 1;
		net_pause(100);
	}
	return 0;
}

static void one_round(int number, unsigned int first, unsigned int last)
{
	unsigned int vlans = last - first + 1, created, deleted;
	int devices = net_count(NET_HERE), between;
	long long start = now_ms(), half;

	created = all("create", create, first, last);
	between = net_count(NET_HERE);
	half = now_ms();
	deleted = all("delete", delete, first, last);
	CHECK(created == vlans && between == devices + (int)vlans,
	      "round %d: %u VLANs and their devices came in %lld ms", number, created, half - start);
	CHECK(deleted == vlans && devices_become(devices, vlans), "and went in %lld ms", now_ms() - half);
}

void vlan_rounds(int rounds, unsigned int first, unsigned int last)
{
	long before, after;

	one_round(1, first, last); /* records stay, for the next of their number */
	net_pause(1000);
	before = lab_meminfo("MemAvailable");
	for (int i = 2; i <= rounds; i++)
		one_round(i, first, last);
	net_pause(1000);
	after = lab_meminfo("MemAvailable");
	if (rounds > 1)
		CHECK(before - after < 8192, "%ld kB less are free after %d rounds more",
		      before - after, rounds - 1);
}

static int runs(unsigned int vid)
{
	struct net_link link;
	struct lab_if vlan;
	char name[16];

	snprintf(name, sizeof(name), "vlan%u", vid);
	for (int tries = 0; tries < 100; tries++) {
		if (lab_show(300 + vid, &vlan) == 0 && vlan.has_device && vlan.below == 1 &&
		    net_link(NET_HERE, name, &link) == 0 && link.index == 300 + (int)vid &&
		    link.carrier)
			return 0;
		net_pause(100);
	}
	return -1;
}

void vlan_returns(int times, unsigned int first, unsigned int last)
{
	unsigned int vlans = last - first + 1, created = 0;
	int devices = net_count(NET_HERE);

	for (int i = 0; i < times; i++)
		for (unsigned int vid = first; vid <= last; vid++) {
			int result;

			/* Half of them while they still have their port. */
			if (i > 0 && vid % 2)
				lab_command("delete %u", 300 + vid);
			else if (i > 0)
				delete(vid);
			result = lab_command("vlan %u 02:00:00:00:%02x:%02x", vid, vid >> 8, vid & 255);
			if (result == 0)
				result = lab_command("member %u %d tagged", vid, PORT);
			created += result == 0;
		}
	CHECK(created == vlans * times, "%u VLANs came, and came back %d times (%u)", vlans, times - 1,
	      created);
	CHECK(all("run", runs, first, last) == vlans, "each has its device, and its port runs");
	CHECK(devices_become(devices + vlans, vlans), "no other device is left");
	CHECK(all("delete", delete, first, last) == vlans && devices_become(devices, vlans),
	      "and all can go");
}
