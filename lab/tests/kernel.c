/* The kernel is the one that the module is written for. */
#include "lab.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

int main(void)
{
	static const int nobodys[] = { 49, 58, 59, 64, 71 };
	struct utsname system;
	struct timespec tick;

	uname(&system);
	clock_getres(CLOCK_MONOTONIC_COARSE, &tick);
	CHECK(strncmp(system.release, "6.1.", 4) == 0, "release %s", system.release);
	CHECK(sysconf(_SC_NPROCESSORS_ONLN) == 2, "two CPUs");
	CHECK(strstr(system.version, "SMP PREEMPT"), "preemption: %s", system.version);
	CHECK(tick.tv_nsec == 10000000, "100 jiffies a second");
	/* The module's own families are the business of sockets.c. */
	for (unsigned i = 0; i < sizeof(nobodys) / sizeof(nobodys[0]); i++) {
		int made = socket(nobodys[i], SOCK_RAW, 0);

		CHECK(made < 0 && errno == EAFNOSUPPORT, "family %d is free", nobodys[i]);
		if (made >= 0)
			close(made);
	}
	return lab_result();
}
