/*
 * A hundred thousand sockets, opened and closed on one CPU while frames arrive on the other. What stays is
 * the record of each, and no more.
 */
#define _GNU_SOURCE
#include "../lab.h"

#include <errno.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tarn/skaddr.h"

#define ROUNDS 100000
#define RECORD_MOST 4096 /* bytes, with what a kernel that checks itself puts around it */

static const int families[] = { TARN_AF_LACP, TARN_AF_LLDP, TARN_AF_STP };
#define FAMILIES (sizeof(families) / sizeof(families[0]))

static void stay_on(int cpu)
{
	cpu_set_t set;

	CPU_ZERO(&set);
	CPU_SET(cpu, &set);
	sched_setaffinity(0, sizeof(set), &set);
}

static pid_t start_traffic(void)
{
	pid_t child = fork();

	if (child != 0)
		return child;
	stay_on(1);
	for (;;) {
		lab_command("frames 100 5001 1 0 0180c2000002020000000009880901020304");
		lab_command("frames 100 5001 1 0 0180c200000e02000000000988cc02070400");
		lab_command("frames 100 5001 1 0 0180c20000000200000000090004424203aa");
	}
}

int main(void)
{
	long before, after, failed = 0, read_some = 0;
	int status;
	pid_t traffic;

	lab_setup();
	before = lab_meminfo("Slab");
	traffic = start_traffic();
	stay_on(0);
	for (int i = 0; i < ROUNDS; i++) {
		unsigned char data[64];
		int fd = socket(families[i % FAMILIES], SOCK_RAW, 0);

		failed += fd < 0;
		if (i % 64 == 0)
			sched_yield();
		read_some += recv(fd, data, sizeof(data), MSG_DONTWAIT) >= 0;
		close(fd);
	}
	kill(traffic, SIGKILL);
	waitpid(traffic, &status, 0);
	after = lab_meminfo("Slab");
	CHECK(failed == 0, "%d sockets were opened and closed, %ld of them had something to read", ROUNDS,
	      read_some);
	CHECK(after - before <= (long)ROUNDS * RECORD_MOST / 1024,
	      "%ld bytes stay of each, its record", (after - before) * 1024 / ROUNDS);
	return lab_result();
}
