/*
 * What every command of the control family does in a kernel: the steps that the test in a process makes
 * too, looked at through /proc/tarn, the devices of the machine and what leaves by a cable.
 */
#include "genl.h"
#include "switch.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/if_ether.h>
#include <linux/sockios.h>
#include <net/if_arp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "proc_run.h"
#include "tarn/skaddr.h"

#include "../../tests/control/nl_step_run.h"

#define PORTS 2 /* with a cable: 5201 and 5202 */
#define PATIENCE 150 /* milliseconds, for a frame to come out */

static int taps[PORTS]; /* at the other ends of the cables */

static const unsigned char frame[60] = { 3, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 7, 0x88, 0xb5 };

/* --- the home ------------------------------------------------------------------------------------- */

static char text[NL_TEXT_BYTES];

static int home_command(struct nl_message *message)
{
	message->u.header.nlmsg_type = genl_family;
	return genl_ask(message);
}

static const char *home_file(const char *name)
{
	char path[64];

	snprintf(path, sizeof(path), "/proc/tarn/%s", name);
	if (proc_read_file(path, text, sizeof(text)) < 0)
		text[0] = '\0';
	return text;
}

static void home_arrive(unsigned port, unsigned vid, int subnet, const uint8_t *bytes, unsigned length)
{
	char hex[1024];

	for (unsigned i = 0; i < length; i++)
		snprintf(hex + 2 * i, 3, "%02x", bytes[i]);
	if (lab_command("frames 1 %u %u 0 %u %s", port, vid, subnet ? 0x20 : 0, hex) != 0)
		CHECK(0, "a frame arrives on port %u", port);
}

static void home_wait(void)
{
	net_pause(100);
}

/* Frames of others are there too. */
static int takes_ours(int tap, int *tagged)
{
	unsigned char bytes[256];
	int found = 0;
	long length;

	while ((length = net_read(tap, bytes, sizeof(bytes))) >= 0)
		if (length >= 16 && memcmp(bytes, frame, 12) == 0) {
			*tagged = bytes[12] == 0x81;
			found = 1;
		}
	return found;
}

static void wait_for_frames(void)
{
	struct pollfd all[PORTS];

	for (int k = 0; k < PORTS; k++)
		all[k] = (struct pollfd){ .fd = taps[k], .events = POLLIN };
	if (poll(all, PORTS, PATIENCE) > 0)
		net_pause(20); /* for a second one */
}

static const char *what_left(void)
{
	int tagged;

	text[0] = '\0';
	wait_for_frames();
	for (int k = 0; k < PORTS; k++)
		if (takes_ours(taps[k], &tagged))
			sprintf(text + strlen(text), "%d-%s ", 5201 + k, tagged ? "tagged" : "untagged");
	return text;
}

static const char *look_sends(const char *rest)
{
	struct vlan_skaddr name = { .ifindex = (unsigned)atoi(rest),
				    .vid = (unsigned short)atoi(strchr(rest, ' ')) };
	int fd = socket(TARN_AF_FRAME, SOCK_RAW | SOCK_CLOEXEC, 0), tagged;

	for (int k = 0; k < PORTS; k++)
		takes_ours(taps[k], &tagged);
	sendto(fd, frame, sizeof(frame), 0, (void *)&name, sizeof(name));
	close(fd);
	return what_left();
}

static const char *look_stack(const char *device)
{
	int tap = net_tap(NET_HERE, device, 0), tagged;

	for (int k = 0; k < PORTS; k++)
		takes_ours(taps[k], &tagged);
	if (send(tap, frame, sizeof(frame), 0) < 0)
		CHECK(0, "%s takes a frame", device);
	close(tap);
	return *what_left() ? "leaves" : "";
}

static int link_settings(const char *device, struct ethtool_link_settings *found)
{
	struct {
		struct ethtool_link_settings base;
		__u32 masks[3 * 127];
	} link = { .base = { .cmd = ETHTOOL_GLINKSETTINGS } };
	struct ifreq request = { .ifr_data = (void *)&link };

	strncpy(request.ifr_name, device, IFNAMSIZ - 1);
	if (net_request(SIOCETHTOOL, &request) != 0)
		return -1;
	/* The first answer says how long the masks are. */
	link.base.link_mode_masks_nwords = -link.base.link_mode_masks_nwords;
	if (net_request(SIOCETHTOOL, &request) != 0)
		return -1;
	*found = link.base;
	return 0;
}

static const char *look_device(const char *device)
{
	struct ethtool_link_settings settings;
	struct net_link link;
	const unsigned char *at = link.address;

	text[0] = '\0';
	if (net_link(NET_HERE, device, &link) != 0)
		return text;
	sprintf(text, "%02x:%02x:%02x:%02x:%02x:%02x", at[0], at[1], at[2], at[3], at[4], at[5]);
	if (link_settings(device, &settings) == 0)
		sprintf(text + strlen(text), " speed %u duplex %u", settings.speed, settings.duplex);
	return text;
}

static const char *look_meets(const char *rest)
{
	static const char request[] = NL_ARP;
	uint8_t bytes[60] = { 0 };
	unsigned port, vid;
	char device[16];

	if (sscanf(rest, "%15s %u %u", device, &port, &vid) != 3)
		return "fails";
	net_address(NET_HERE, device, "192.0.2.1", 24); /* may have it already */
	nl_hex(request, strlen(request), bytes);
	home_arrive(port, vid, 0, bytes, sizeof(bytes));
	return "";
}

static const char *look_knows(const char *device)
{
	char line[256], address[64], flags[16], on[16];
	FILE *table = fopen("/proc/net/arp", "re");

	text[0] = '\0';
	while (table && fgets(line, sizeof(line), table))
		if (sscanf(line, "%63s %*s %15s %*s %*s %15s", address, flags, on) == 3 &&
		    strcmp(on, device) == 0 && strtoul(flags, NULL, 16) & ATF_COM)
			sprintf(text + strlen(text), "%s ", address);
	if (table)
		fclose(table);
	return text;
}

/* Of all that it says, the one line. */
static const char *look_chip(void)
{
	char *line = chip("show") == 0 ? strstr(chip_reply, "unknown-multicast") : NULL;

	if (!line)
		return "";
	line[strcspn(line, "\n")] = '\0';
	return line;
}

static const char *home_look(const char *what, const char *rest)
{
	if (strcmp(what, "up") == 0)
		return net_up(NET_HERE, rest, 1) == 0 ? "" : "fails";
	if (strcmp(what, "device") == 0)
		return look_device(rest);
	if (strcmp(what, "sends") == 0)
		return look_sends(rest);
	if (strcmp(what, "stack") == 0)
		return look_stack(rest);
	if (strcmp(what, "meets") == 0)
		return look_meets(rest);
	if (strcmp(what, "knows") == 0)
		return look_knows(rest);
	return look_chip();
}

static const struct nl_home home = { .command = home_command, .file = home_file, .arrive = home_arrive,
				     .look = home_look, .tries = 30, .wait = home_wait };

/* --- the machine around it ------------------------------------------------------------------------- */

static void plug_in(int k, int far)
{
	char near[8], there[8], words[32];

	snprintf(near, sizeof(near), "x%d", k);
	snprintf(there, sizeof(there), "y%d", k);
	snprintf(words, sizeof(words), "port %d %s\n", 5201 + k, near);
	CHECK(net_pair(near, there, far) == 0 && net_up(NET_HERE, near, 1) == 0 && net_up(far, there, 1) == 0 &&
		      chip(words) == 0,
	      "the chip has port %d, with a cable", 5201 + k);
	taps[k] = net_tap(far, there, ETH_P_ALL);
	CHECK(taps[k] >= 0, "which is listened to");
}

static void unplug(int k)
{
	char near[8], words[32];

	snprintf(near, sizeof(near), "x%d", k);
	snprintf(words, sizeof(words), "noport %d\n", 5201 + k);
	CHECK(chip(words) == 0 && net_delete(NET_HERE, near) == 0, "the cable is gone");
	close(taps[k]);
}

static void make_steps(void)
{
	unsigned int wrong = 0;

	for (size_t i = 0; i < NL_STEPS; i++) {
		const char *why = nl_step_send(&nl_steps[i], &home);

		if (!why)
			why = nl_step_sights(&nl_steps[i], &home);
		if (!why)
			continue;
		wrong++;
		printf("  FAIL command %u, %s: %s\n", nl_steps[i].command, nl_steps[i].with, why);
	}
	CHECK(wrong == 0, "%zu steps, %u wrong", NL_STEPS, wrong);
}

int main(void)
{
	int far;

	lab_setup();
	lab_load("tarn_chip");
	genl_find();
	CHECK(genl_family != 0, "the control family is there");
	far = net_namespace();
	for (int k = 0; k < PORTS; k++)
		plug_in(k, far);
	make_steps();
	for (int k = 0; k < PORTS; k++)
		unplug(k);
	close(far);
	return lab_result();
}
