/*
 * Hosts for a program inside, and then the program:
 *
 *   /lab/hosts N PROGRAM ARG...
 *
 * Each host is a network namespace with the device h<k>, 192.0.2.<k>/24 and fd00:10::<k>/64, behind port p<k>
 * of the switch (ifindex 5100 + k), untagged on VLAN 10, where the switch is 192.0.2.254. The program runs beside
 * the switch, with busybox's tools in its PATH; "on K COMMAND..." runs one on host K.
 */
#include "tests/switch.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#define LOG "/tmp/hosts.log"
#define VLAN 10

/* The namespace by a name that outlives its descriptor: /run/netns/host<k>. */
static void name_host(int k)
{
	char from[32], path[32];

	snprintf(from, sizeof(from), "/proc/self/fd/%d", host[k]);
	snprintf(path, sizeof(path), "/run/netns/host%d", k);
	close(open(path, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
	CHECK(mount(from, path, NULL, MS_BIND, NULL) == 0, "host %d has a name", k);
}

static void give_addresses(int k)
{
	char device[8], address[16], address6[32];

	snprintf(device, sizeof(device), "h%d", k);
	snprintf(address, sizeof(address), "192.0.2.%d", k);
	snprintf(address6, sizeof(address6), "fd00:10::%d", k);
	CHECK(net_address(host[k], device, address, 24) == 0 &&
		      net_address(host[k], device, address6, 64) == 0,
	      "host %d has addresses", k);
}

static void make_hosts(void)
{
	mkdir("/run", 0755);
	mkdir("/run/netns", 0755);
	switch_start();
	switch_vlan(VLAN, "02:00:00:00:00:fe");
	CHECK(net_address(NET_HERE, "vlan10", "192.0.2.254", 24) == 0, "the switch has an address");
	for (int k = 1; k <= switch_hosts; k++) {
		switch_member(VLAN, k, "untagged");
		give_addresses(k);
		name_host(k);
	}
}

static void install_tools(void)
{
	FILE *on;

	if (system("/bin/busybox --install -s /bin") != 0)
		fprintf(stderr, "lab: no tools of busybox\n");
	on = fopen("/bin/on", "we");
	if (!on)
		return;
	fputs("#!/bin/sh\nhost=$1\nshift\nexec nsenter --net=/run/netns/host$host \"$@\"\n", on);
	fclose(on);
	chmod("/bin/on", 0755);
}

/* What the checks have said, where it is not what the program says. */
static int give_up(void)
{
	char line[256];
	FILE *said = fopen(LOG, "re");

	while (said && fgets(line, sizeof(line), said))
		fputs(line, stderr);
	return 125;
}

int main(int argc, char **argv)
{
	int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);

	switch_hosts = argc > 2 ? atoi(argv[1]) : 0;
	if (switch_hosts < 1 || switch_hosts > MOST_HOSTS || !freopen(LOG, "we", stdout))
		return 125;
	install_tools();
	make_hosts();
	if (lab_result() != 0)
		return give_up();
	fflush(stdout);
	dup2(output, STDOUT_FILENO);
	setenv("PATH", "/bin:/lab", 1);
	execv(argv[2], argv + 2);
	fprintf(stderr, "cannot run %s: %s\n", argv[2], strerror(errno));
	return 127;
}
