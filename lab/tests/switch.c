/* See switch.h. */
#include "switch.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

int host[MOST_HOSTS + 1];
int switch_hosts = HOSTS;
char chip_reply[1 << 20];

static int has_link[MOST_HOSTS + 1];

static unsigned int vlans[8], vlan_count;

/* --- the chip -------------------------------------------------------------------------------------- */

int chip(const char *lines)
{
	int file = open("/proc/tarn_chip", O_RDWR | O_CLOEXEC), result = 0;
	ssize_t length = 0, part;

	if (file < 0)
		return -errno;
	if (*lines && write(file, lines, strlen(lines)) < 0)
		result = -errno;
	while ((part = read(file, chip_reply + length, sizeof(chip_reply) - 1 - length)) > 0)
		length += part;
	chip_reply[length] = '\0';
	close(file);
	return result;
}

static int chip_word(const char *format, ...) __attribute__((format(printf, 1, 2)));
static int chip_word(const char *format, ...)
{
	char line[256];
	va_list arguments;

	va_start(arguments, format);
	vsnprintf(line, sizeof(line), format, arguments);
	va_end(arguments);
	return chip(line);
}

long chip_hits(const char *trap)
{
	char start[64];
	const char *line;

	snprintf(start, sizeof(start), "trap %s ", trap);
	if (chip("show traps") != 0 || !(line = strstr(chip_reply, start)) ||
	    !(line = strstr(line, "hits ")))
		return -1;
	return atol(line + 5);
}

long chip_lost(void)
{
	long sum = 0;

	if (chip("show ports") != 0)
		return -1;
	for (const char *at = chip_reply; (at = strstr(at, " drop-")) != NULL; at++)
		sum += atol(strchr(at + 1, ' '));
	return sum;
}

/* --- hosts and ports ------------------------------------------------------------------------------- */

static void make_host(int k)
{
	char near[8], far[8];

	snprintf(near, sizeof(near), "p%d", k);
	snprintf(far, sizeof(far), "h%d", k);
	host[k] = net_namespace();
	CHECK(host[k] >= 0 && net_pair(near, far, host[k]) == 0 &&
		      net_up(NET_HERE, near, 1) == 0 && net_up(host[k], far, 1) == 0,
	      "host %d has a device", k);
	CHECK(chip_word("port %d %s\n", SWITCH_PORT(k), near) == 0 &&
		      lab_command("port %d %s 02:00:00:00:01:%02x", SWITCH_PORT(k), near, k) == 0 &&
		      lab_command("stp %d 3", SWITCH_PORT(k)) == 0,
	      "%s is a port of the switch", near);
	has_link[k] = 0;
}

void switch_start(void)
{
	lab_load("tarn_lab");
	lab_load("tarn_chip");
	for (int k = 1; k <= switch_hosts; k++)
		make_host(k);
	switch_follow_links();
}

void switch_vlan(unsigned int vid, const char *mac)
{
	char name[16];

	snprintf(name, sizeof(name), "vlan%u", vid);
	CHECK(lab_command("vlan %u %s", vid, mac) == 0 && net_up(NET_HERE, name, 1) == 0,
	      "VLAN %u has an interface", vid);
	if (vlan_count < sizeof(vlans) / sizeof(vlans[0]))
		vlans[vlan_count++] = vid;
}

void switch_member(unsigned int vid, int k, const char *tagged)
{
	CHECK(lab_command("member %u %d %s", vid, SWITCH_PORT(k), tagged) == 0,
	      "VLAN %u has port %d, %s", vid, k, tagged);
}

void switch_follow_links(void)
{
	struct net_link link;
	char name[8];

	for (int k = 1; k <= switch_hosts; k++) {
		snprintf(name, sizeof(name), "p%d", k);
		if (net_link(NET_HERE, name, &link) != 0)
			link.carrier = 0;
		if (link.carrier == has_link[k])
			continue;
		has_link[k] = link.carrier;
		CHECK(lab_command("link %d %s", SWITCH_PORT(k), has_link[k] ? "up" : "down") == 0,
		      "the module hears that port %d is %s", k, has_link[k] ? "up" : "down");
	}
}

void switch_end(void)
{
	char near[8];

	while (vlan_count-- > 0)
		CHECK(lab_command("delete %u", SWITCH_VLAN(vlans[vlan_count])) == 0,
		      "VLAN %u is gone", vlans[vlan_count]);
	for (int k = 1; k <= switch_hosts; k++) {
		snprintf(near, sizeof(near), "p%d", k);
		CHECK(chip_word("noport %d\n", SWITCH_PORT(k)) == 0 &&
			      lab_command("delete %d", SWITCH_PORT(k)) == 0 &&
			      net_delete(NET_HERE, near) == 0,
		      "port %d is gone", k);
		close(host[k]);
	}
}
