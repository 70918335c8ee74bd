/* The sockets of the protocols, as any program opens them: the cases that the tests in a process run too. */
#define _GNU_SOURCE
#include "switch.h"

#include <sched.h>
#include <sys/syscall.h>

#include <linux/capability.h>
#include <linux/if_ether.h>

#include "socket_daemon.h"

/* --- the home ----------------------------------------------------------------------------------- */

static int kernel_log = -1;

static void home_deliver(unsigned ifindex, unsigned vid, const struct case_meta *meta,
			 const unsigned char *frame, unsigned length)
{
	char hex[1024];

	for (unsigned i = 0; i < length; i++)
		snprintf(hex + 2 * i, 3, "%02x", frame[i]);
	if (lab_command("meta %u 0 0", meta->code) != 0 ||
	    lab_command("frames 1 %u %u %u %u %s", ifindex, vid, meta->local, meta->flags, hex) != 0 ||
	    lab_command("meta 0 0 0") != 0)
		lab_failures++;
}

static int taps[3] = { -1, -1, -1 }; /* at the other ends of the cables of ports 5001 and 5002 */

static int is_from_a_daemon(const unsigned char *frame)
{
	static const unsigned char from[6] = { 2, 0, 0, 0, 0, 7 };

	return memcmp(frame + 6, from, sizeof(from)) == 0;
}

static long home_sent(unsigned port, unsigned char *frame, unsigned size, int milliseconds)
{
	int tap = taps[port - 5000];
	struct pollfd one = { .fd = tap, .events = POLLIN };
	unsigned char bytes[2048];
	long found = -1;

	while (poll(&one, 1, found < 0 ? milliseconds : 0) == 1) {
		long length = net_read(tap, bytes, sizeof(bytes));

		if (length < 14 || length > (long)size || !is_from_a_daemon(bytes))
			continue;
		found = length;
		memcpy(frame, bytes, (size_t)found);
	}
	return found;
}

static long home_stops(const char *redirect, int reason)
{
	return lab_stops(redirect, reason);
}

static void home_set(const char *what, unsigned value)
{
	int result;

	if (strcmp(what, "flags") == 0 || strcmp(what, "filter") == 0)
		result = lab_command("%s %u %u", what, CASE_PORT, value);
	else if (strcmp(what, "shut") == 0)
		result = lab_command("shut %u 1 %u", CASE_PORT, value);
	else if (strcmp(what, "aggregator") == 0)
		result = lab_command("aggregator %u lag2 02:00:00:00:02:02 3", value) == 0 ?
				 lab_command("flags %u 65", value) :
				 -1;
	else
		result = lab_command("%s %s", value ? "enable" : "disable", what);
	if (result != 0)
		CHECK(result == 0, "%s is set to %u", what, value);
}

static void home_udld(int on, int filter)
{
	if (lab_command("udld %u %d %d", CASE_PORT, on, filter) != 0)
		lab_failures++;
}

#define LOG_MARK "sockets: mark"

/*
 * A record of the log is "<priority>,...;<text>\n", and more lines that tell where it comes from. One
 * that does not end in a newline can be read when the next one begins: the mark.
 */
static const char *home_said(void)
{
	static char last[256];
	char record[2048];
	ssize_t length;

	last[0] = '\0';
	if (write(kernel_log, LOG_MARK, strlen(LOG_MARK)) < 0)
		lab_failures++;
	while ((length = read(kernel_log, record, sizeof(record) - 1)) > 0 || errno == EPIPE) {
		char *text, *end;

		if (length <= 0)
			continue;
		record[length] = '\0';
		text = strchr(record, ';');
		end = strchr(record, '\n');
		if (!text || !end || strncmp(text + 1, LOG_MARK, strlen(LOG_MARK)) == 0)
			continue;
		*end = '\0';
		snprintf(last, sizeof(last), "%d %.200s", atoi(record) & 7, text + 1);
	}
	return last;
}

static void home_rights(int net_raw)
{
	struct __user_cap_header_struct header = { .version = _LINUX_CAPABILITY_VERSION_3 };
	struct __user_cap_data_struct data[2];

	if (syscall(SYS_capget, &header, data) != 0)
		lab_failures++;
	if (net_raw)
		data[0].effective |= 1u << CAP_NET_RAW;
	else
		data[0].effective &= ~(1u << CAP_NET_RAW);
	if (syscall(SYS_capset, &header, data) != 0)
		lab_failures++;
}

static const char *home_list(void)
{
	static char text[1 << 16];
	int file = open("/proc/net/tarn_sockets", O_RDONLY | O_CLOEXEC);
	size_t at = 0;
	ssize_t part;

	while ((part = read(file, text + at, sizeof(text) - 1 - at)) > 0)
		at += (size_t)part;
	text[at] = '\0';
	close(file);
	return text;
}

static int checks;

/* The many good ones are only counted. */
static void home_check(int good, const char *what, const char *detail)
{
	checks++;
	if (!good)
		CHECK(good, "%s: %s", what, detail);
}

static const struct socket_home home = {
	.open = daemon_open,
	.close = daemon_close,
	.send = daemon_send,
	.receive = daemon_receive,
	.readable = daemon_readable,
	.deliver = home_deliver,
	.sent = home_sent,
	.stops = home_stops,
	.set = home_set,
	.udld = home_udld,
	.said = home_said,
	.rights = home_rights,
	.list = home_list,
	.check = home_check,
};

/* --- what only a kernel has --------------------------------------------------------------------- */

static void another_namespace_has_none(void)
{
	int status = -1;
	pid_t child = fork();

	if (child == 0) {
		if (unshare(CLONE_NEWNET) != 0)
			_exit(errno == EINVAL ? 2 : 3); /* a kernel without namespaces */
		_exit(socket(TARN_AF_LACP, SOCK_RAW, 0) < 0 && errno == EAFNOSUPPORT ? 0 : 1);
	}
	waitpid(child, &status, 0);
	CHECK(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 2),
	      "no socket opens in another network namespace (%d)", WEXITSTATUS(status));
}

/* A port gets a cable, whose other end is in a namespace that says little itself. */
static void plug_in(int k, int far)
{
	char near[8], there[8], words[64];

	snprintf(near, sizeof(near), "s%d", k);
	snprintf(there, sizeof(there), "t%d", k);
	snprintf(words, sizeof(words), "port %d %s\nvlan %d 1 untagged\n", 5000 + k, near, 5000 + k);
	CHECK(net_pair(near, there, far) == 0 && net_up(NET_HERE, near, 1) == 0 && net_up(far, there, 1) == 0 &&
		      chip(words) == 0 && lab_command("stp %d 3", 5000 + k) == 0,
	      "port %d has a cable", k);
	taps[k] = net_tap(far, there, ETH_P_ALL);
	CHECK(taps[k] >= 0, "which is listened to");
}

static void unplug(int k)
{
	char near[8], words[32];

	snprintf(near, sizeof(near), "s%d", k);
	snprintf(words, sizeof(words), "noport %d\n", 5000 + k);
	CHECK(chip(words) == 0 && lab_command("stp %d 0", 5000 + k) == 0 && net_delete(NET_HERE, near) == 0,
	      "the cable is gone");
	close(taps[k]);
}

static int start_switch(void)
{
	int far;

	lab_setup();
	lab_load("tarn_chip");
	far = net_namespace();
	plug_in(1, far);
	CHECK(lab_command("port 5002 if5002 02:00:00:00:50:02") == 0 &&
		      lab_command("member 1 5002 untagged") == 0 && lab_command("link 5002 up") == 0,
	      "there is a second port");
	plug_in(2, far);
	CHECK(net_up(NET_HERE, "vlan1", 1) == 0, "the VLAN's interface is up");
	return far;
}

/* Others may look for what was there before: the first port and its VLAN. */
static void end_switch(int far)
{
	CHECK(net_up(NET_HERE, "vlan1", 0) == 0, "the VLAN's interface is down");
	unplug(2);
	CHECK(lab_command("nomember 1 5002") == 0 && lab_command("delete 5002") == 0 &&
		      lab_command("delete %u", CASE_AGGREGATOR) == 0,
	      "what was declared is gone");
	unplug(1);
	close(far);
}

static void run(const struct socket_case *cases, size_t count)
{
	for (size_t i = 0; i < count; i++) {
		int failed = lab_failures, before = checks;

		home_said();
		cases[i].run(&home);
		CHECK(lab_failures == failed, "%s, %d checks", cases[i].name, checks - before);
	}
}

/* Nothing but ring protection leaves by a control VLAN: a frame that is sent through its device. */
static void control_vlans_are_kept_free(void)
{
	struct vlan_skaddr name = { .ifindex = CASE_VLAN_INTERFACE };
	unsigned char frame[60] = { 0x03, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 7, 0x90, 0x00 };
	static const unsigned char ring[6] = { 0, 0xe0, 0x2b, 0, 0, 4 };
	int fd = socket(TARN_AF_TESTD, SOCK_RAW, 0);
	unsigned char seen[2048];

	CHECK(daemon_send(fd, &name, sizeof(name), frame, 60) == 60 &&
		      home_sent(CASE_PORT, seen, sizeof(seen), 2000) == 60 && memcmp(seen, frame, 60) == 0,
	      "a frame leaves through the device of a VLAN");
	CHECK(lab_command("ring 1 1") == 0 && daemon_send(fd, &name, sizeof(name), frame, 60) == 60 &&
		      home_sent(CASE_PORT, seen, sizeof(seen), 200) == -1,
	      "but not of a control VLAN");
	memcpy(frame, ring, sizeof(ring));
	CHECK(daemon_send(fd, &name, sizeof(name), frame, 60) == 60 &&
		      home_sent(CASE_PORT, seen, sizeof(seen), 2000) == 60,
	      "except to ring protection");
	CHECK(lab_command("ring 1 0") == 0, "it is no control VLAN any more");
	close(fd);
}

int main(void)
{
	int limit, far;

	far = start_switch();
	limit = open("/proc/sys/kernel/printk_devkmsg", O_WRONLY | O_CLOEXEC);
	CHECK(write(limit, "on\n", 3) == 3, "the log takes any number of marks");
	close(limit);
	kernel_log = open("/dev/kmsg", O_RDWR | O_NONBLOCK | O_CLOEXEC);
	CHECK(kernel_log >= 0, "the kernel log can be read");
	home_said();
	run(socket_cases, SOCKET_CASES);
	run(daemon_cases, DAEMON_CASES);
	another_namespace_has_none();
	control_vlans_are_kept_free();
	end_switch(far);
	return lab_result();
}
