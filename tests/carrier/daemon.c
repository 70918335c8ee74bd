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

static void home_deliver(unsigned ifindex, unsigned vid, unsigned flags, const unsigned char *frame,
			 unsigned length)
{
	char line[1024];
	int at = snprintf(line, sizeof(line), "deliver %u %u %u ", ifindex, vid, flags);

	for (unsigned i = 0; i < length; i++)
		at += snprintf(line + at, 3, "%02x", frame[i]);
	ask(line);
}

/* "-", or the bytes. */
static long home_sent(unsigned char *frame, unsigned size, int milliseconds)
{
	const char *hex = ask("sent");

	(void)size;
	(void)milliseconds;
	return *hex == '-' ? -1 : (long)case_bytes(hex, frame);
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

int main(int argc, char **argv)
{
	int found;

	if (argc != 3)
		return 2;
	parent = atoi(argv[1]);
	if (strcmp(argv[2], "of_a_program") == 0)
		found = run(daemon_cases, DAEMON_CASES, NULL);
	else
		found = run(socket_cases, SOCKET_CASES, argv[2]);
	return found == 0 ? 3 : failed != 0;
}
