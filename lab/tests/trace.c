/*
 * `tarnctl trace` of the module in this kernel: what it prints, what it leaves out, and that it looks away
 * again at its end. It is the program of the machine that builds, so it is here on that architecture alone.
 */
#include "lab.h"
#include "net.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#define TARNCTL "/lab/tarnctl"
#define EVENT "/sys/kernel/tracing/events/tarn/redirect/enable"
#define SAID "/tmp/said"

#define OWN "020000000001"
#define HOST "020000000099"
#define IPV4_UDP "0800" "450000280000" "0000" "40" "11" "0000" "c0000201" "c00002fe"
#define PADDING "00000000000000000000000000000000"

static int is_watched(void)
{
	char state = '?';
	int file = open(EVENT, O_RDONLY | O_CLOEXEC);

	if (read(file, &state, 1) != 1)
		state = '?';
	close(file);
	return state == '1';
}

static int comes_to(int watched)
{
	for (int tries = 0; tries < 100; tries++) {
		if (is_watched() == watched)
			return 1;
		net_pause(50);
	}
	return 0;
}

static pid_t start(char *const words[])
{
	pid_t child = fork();

	if (child != 0)
		return child;
	dup2(open(SAID, O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
	dup2(1, 2);
	execv(TARNCTL, words);
	_exit(127);
}

/* Its exit status; all that it said is in `said`. */
static char said[4096];
static int end_of(pid_t child)
{
	int status = 0, file;
	ssize_t length;

	waitpid(child, &status, 0);
	file = open(SAID, O_RDONLY | O_CLOEXEC);
	length = read(file, said, sizeof(said) - 1);
	said[length < 0 ? 0 : length] = '\0';
	close(file);
	return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

static int lines(void)
{
	int count = 0;

	for (const char *at = said; (at = strchr(at, '\n')); at++)
		count++;
	return count;
}

/* One that goes up to the IP stack, one that the gate drops. */
static void send_both(void)
{
	CHECK(lab_command("frames 1 5001 1 0 " OWN HOST IPV4_UDP PADDING) == 0 &&
		      lab_command("frames 1 5001 1 0 " OWN OWN IPV4_UDP PADDING) == 0,
	      "a frame for the switch arrives, and one from its own address");
}

static void a_trace(const char *what, char *const words[], int expected, const char *text)
{
	pid_t child = start(words);
	int status;

	CHECK(comes_to(1), "tarnctl watches: %s", what);
	send_both();
	status = end_of(child);
	CHECK(status == 0 && lines() == expected && strstr(said, text), "it says %d lines: %s", expected,
	      *text ? text : "nothing");
	if (lines() != expected || !strstr(said, text))
		printf("       (%d) %s\n", status, said);
	CHECK(comes_to(0), "and looks away");
}

#define WORDS(...) ((char *const[]){ (char *)TARNCTL, __VA_ARGS__, NULL })

static void it_prints_what_was_asked_for(void)
{
	a_trace("all, two events", WORDS("trace", "--count", "2"), 2,
		"ipv4: stop, post to the IP stack; reason 4: to the IP stack");
	a_trace("drops", WORDS("trace", "--drops", "--count", "1"), 1,
		"why: gate: the source MAC is the switch's own");
	a_trace("a port and a redirect",
		WORDS("trace", "--port", "if5001", "--redirect", "ipv4", "--count", "1"), 1, "if5001 vid 1 ");
	a_trace("JSON", WORDS("-j", "trace", "--drops", "--count", "1"), 1, "\"redirect\":\"ipv4\"");
	a_trace("another port", WORDS("trace", "--port", "if5002", "--seconds", "1"), 0, "");
	a_trace("another redirect", WORDS("trace", "--redirect", "arp", "--seconds", "1"), 0, "");
}

static void interrupted_it_looks_away(void)
{
	pid_t child = start(WORDS("trace"));

	CHECK(comes_to(1), "tarnctl watches");
	kill(child, SIGINT);
	end_of(child);
	CHECK(comes_to(0), "interrupted, it looks away");
}

int main(void)
{
	if (access(TARNCTL, X_OK) != 0) {
		printf("  NOT RUN  there is no tarnctl for this machine\n");
		return 0;
	}
	lab_setup();
	CHECK(lab_command("port 5002 if5002 02:00:00:00:50:02") == 0, "there is another port");
	CHECK(net_up(NET_HERE, "vlan1", 1) == 0, "vlan1 goes up");
	net_pause(300);
	mkdir("/sys", 0755);
	mount("sysfs", "/sys", "sysfs", 0, NULL);
	CHECK(mount("tracefs", "/sys/kernel/tracing", "tracefs", 0, NULL) == 0 || errno == EBUSY,
	      "there is a tracefs");
	it_prints_what_was_asked_for();
	interrupted_it_looks_away();
	return lab_result();
}
