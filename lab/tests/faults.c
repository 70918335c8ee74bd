/*
 * Allocations that fail: each one of every command, frame, socket and file, one after another; then one in
 * twenty of everything at once on both CPUs. The switch goes on, and nothing is lost (which the end of the
 * run looks for). Without a kernel that lets them fail there is nothing to see.
 */
#define _GNU_SOURCE
#include "busy.h"
#include "failing.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tarn/skaddr.h"

#define NTH "/proc/thread-self/fail-nth"
#define MOST 200 /* allocations of one call */
#define SECONDS 20

/* Calls until no allocation is left that could fail; how many have. */
static long each_allocation(void (*call)(unsigned int), unsigned int which)
{
	long failed = 0;

	for (int nth = 1; nth <= MOST; nth++) {
		/* Opened first: to open takes memory, too. */
		int file = open(NTH, O_RDWR | O_CLOEXEC);
		char text[16] = "";
		int length = snprintf(text, sizeof(text), "%d", nth), left;

		if (file < 0 || pwrite(file, text, (size_t)length, 0) != length)
			return -1;
		call(which);
		memset(text, 0, sizeof(text));
		length = (int)pread(file, text, sizeof(text) - 1, 0);
		left = length > 0 ? atoi(text) : -1;
		if (pwrite(file, "0", 1, 0) != 1)
			return -1;
		close(file);
		if (left != 0)
			return failed;
		failed++;
	}
	return failed;
}

static void sweep(const char *what, void (*call)(unsigned int), unsigned int count)
{
	long failed = 0, least = 1 << 30;

	for (unsigned int which = 0; which < count; which++) {
		long now = each_allocation(call, which);

		least = now < least ? now : least;
		failed += now;
		call(which); /* as it was to be */
	}
	CHECK(least >= 0 && failed > (long)count, "%u %s: %ld allocations failed, one at a time", count, what,
	      failed);
}

static void hit_me(void)
{
	failing_me(1);
}

/* A daemon hears a frame, and the switch's own address answers. */
static void the_switch_works(void)
{
	int fd = socket(TARN_AF_LACP, SOCK_RAW | SOCK_CLOEXEC, 0);
	unsigned char data[64];

	busy_frame(0);
	CHECK(recv(fd, data, sizeof(data), MSG_DONTWAIT) > 0, "a daemon hears a frame");
	close(fd);
	CHECK(net_address(host[1], "h1", "192.0.2.1", 24) == 0 && net_reaches(host[1], "192.0.2.254", 56),
	      "a host reaches the switch");
}

int main(void)
{
	struct busy_work done;

	if (!failing_can() || access(NTH, W_OK) != 0) {
		printf("       this kernel lets no allocation fail: -debug does\n");
		return 0;
	}
	CHECK(failing_one_in(0), "this kernel lets allocations fail");
	busy_start();
	sweep("commands", busy_command, busy_commands);
	sweep("frames", busy_frame, BUSY_FRAMES);
	sweep("sockets", busy_socket, BUSY_SOCKETS);
	sweep("files", busy_file, busy_files);
	CHECK(failing_one_in(20), "one allocation in twenty fails");
	done = busy_run(SECONDS, hit_me);
	CHECK(done.frames > 0 && done.commands > 0 && done.sockets > 0 && done.files > 0,
	      "%ld frames, %ld commands, %ld sockets and %ld files were tried", done.frames, done.commands,
	      done.sockets, done.files);
	CHECK(failing_one_in(0), "no more");
	the_switch_works();
	busy_end();
	return lab_result();
}
