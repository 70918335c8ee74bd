/*
 * The daemon of the cases that both homes share, as a program that knows nothing of tarn-switch: it runs
 * with the preload library, and asks the test, its parent, for what is not a daemon's to do. Arguments: a
 * descriptor to ask by, and the case to run, or "of_a_program" for all that only a program can have. The
 * exit status is 0 when all held.
 */
#define _GNU_SOURCE
#include "../../lab/tests/socket_daemon.h"

#include <stdlib.h>

static int parent = -1;
static int failed;
static char reply[4200];

static const char *ask(const char *line)
{
	ssize_t length = -1;

	if (send(parent, line, strlen(line), 0) >= 0)
		length = recv(parent, reply, sizeof(reply) - 1, 0);
	if (length < 0) {
		fprintf(stderr, "the test does not answer\n");
		_exit(2);
	}
	reply[length] = '\0';
	return reply;
}

static void home_deliver(unsigned ifindex, unsigned vid, const struct case_meta *meta,
			 const unsigned char *frame, unsigned length)
{
	char line[1024];
	int at = snprintf(line, sizeof(line), "deliver %u %u %u %u %u ", ifindex, vid, meta->flags,
			  meta->code, meta->local);

	for (unsigned i = 0; i < length; i++)
		at += snprintf(line + at, 3, "%02x", frame[i]);
	ask(line);
}

/* "-", or the bytes. */
static long home_sent(unsigned port, unsigned char *frame, unsigned size, int milliseconds)
{
	char line[64];
	const char *hex;

	snprintf(line, sizeof(line), "sent %u", port);
	hex = ask(line);
	(void)size;
	(void)milliseconds;
	return *hex == '-' ? -1 : (long)case_bytes(hex, frame);
}

static long home_stops(const char *redirect, int reason)
{
	char line[64];

	snprintf(line, sizeof(line), "stops %s %d", redirect, reason);
	return atol(ask(line));
}

static void home_set(const char *what, unsigned value)
{
	char line[64];

	snprintf(line, sizeof(line), "set %s %u", what, value);
	ask(line);
}

static void home_udld(int on, int filter)
{
	char line[64];

	snprintf(line, sizeof(line), "udld %d %d", on, filter);
	ask(line);
}

static const char *home_said(void)
{
	return ask("said");
}

static void home_rights(int net_raw)
{
	ask(net_raw ? "rights 1" : "rights 0");
}

static const char *home_list(void)
{
	return ask("list");
}

static void home_check(int good, const char *what, const char *detail)
{
	if (good)
		return;
	failed++;
	printf("FAIL %s: %s\n", what, detail);
	fflush(stdout);
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

static int run(const struct socket_case *cases, size_t count, const char *wanted)
{
	int found = 0;

	for (size_t i = 0; i < count; i++) {
		int before = failed;

		if (wanted && strcmp(wanted, cases[i].name) != 0)
			continue;
		home_said();
		cases[i].run(&home);
		found++;
		if (failed != before)
			printf("FAIL %s\n", cases[i].name);
	}
	return found;
}

/* --- the switch itself ---------------------------------------------------------------------------- */

static void nobody_serves(const struct socket_home *home_)
{
	home_->check(home_->open(TARN_AF_LACP, SOCK_RAW, 0) == -EAFNOSUPPORT, "no switch, no families", "");
	home_->check(close(socket(AF_UNIX, SOCK_DGRAM, 0)) == 0, "others are there", "");
}

static void a_stranger(const struct socket_home *home_)
{
	home_->check(setresuid(65534, 65534, 65534) == 0, "a user without rights", "");
	home_->check(home_->open(TARN_AF_LACP, SOCK_RAW, 0) == -EPERM, "has no right to open", "");
}

static void the_switch_ends(const struct socket_home *home_)
{
	int fd = home_->open(TARN_AF_LACP, SOCK_RAW, 0);
	unsigned char name[16] = { 0 };
	struct pollfd one = { .fd = fd, .events = POLLIN };

	ask("end");
	home_->check(poll(&one, 1, 1000) == 1, "poll hears of it", "");
	home_->check(recv(fd, daemon_data, 100, 0) < 0 && errno == ENETDOWN, "a read does not wait", "");
	home_->check(home_->send(fd, name, sizeof(name), daemon_data, 46) == -ENETDOWN, "nor is sent", "");
	home_->check(home_->open(TARN_AF_LACP, SOCK_RAW, 0) == -EAFNOSUPPORT, "nor opened", "");
	close(fd);
}

/* Three processes read one socket while frames arrive. */
static void readers_beside_traffic(const struct socket_home *home_)
{
	struct timeval patience = { 1, 0 };
	int fd = home_->open(TARN_AF_MRP, SOCK_RAW, 0), results[2], numbers[4], all = 0, count;

	home_->check(setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) == 0 &&
			     pipe(results) == 0, "it can begin", "");
	for (int i = 0; i < 3; i++) {
		if (fork() != 0)
			continue;
		for (count = 0; recv(fd, daemon_data, sizeof(daemon_data), 0) == 46; count++) {
		}
		_exit(write(results[1], &count, sizeof(count)) != sizeof(count));
	}
	ask("flood");
	for (int i = 0; i < 3; i++) {
		if (read(results[0], &count, sizeof(count)) != sizeof(count))
			count = -100000;
		all += count;
	}
	home_->check(case_listed(home_, "MRP", numbers) && all > 0 && all + numbers[3] == 4000,
		     "every frame is read once, or lost", "");
	home_->check(!home_->readable(fd, 0), "no mark is left", "");
	close(fd);
}

static const struct socket_case switch_cases[] = {
	{ "nobody_serves", nobody_serves },
	{ "a_stranger", a_stranger },
	{ "the_switch_ends", the_switch_ends },
	{ "readers_beside_traffic", readers_beside_traffic },
};

int main(int argc, char **argv)
{
	int found;

	if (argc != 3)
		return 2;
	parent = atoi(argv[1]);
	if (strcmp(argv[2], "of_a_program") == 0)
		found = run(daemon_cases, DAEMON_CASES, NULL);
	else
		found = run(socket_cases, SOCKET_CASES, argv[2]) +
			run(switch_cases, sizeof(switch_cases) / sizeof(switch_cases[0]), argv[2]);
	return found == 0 ? 3 : failed != 0;
}
