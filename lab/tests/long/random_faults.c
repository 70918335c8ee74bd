/*
 * The tests named, one after another and over again for as long as is said, while an allocation of theirs
 * fails now and then. Most of them will not pass; but the kernel says nothing, and nothing is lost (which
 * the end of the run looks for). Each run is of another chance than the one before.
 */
#include "../failing.h"
#include "../lab.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#define MOST_SECONDS 120 /* of one test: it may wait for what will not come */

static const unsigned int chances[] = { 1000, 200, 5000, 50 };

static int seconds(void)
{
	FILE *file = fopen("/lab/soak_seconds", "r");
	int said = 600;

	if (file && fscanf(file, "%d", &said) != 1)
		said = 600;
	if (file)
		fclose(file);
	return said;
}

static time_t now(void)
{
	struct timespec time;

	clock_gettime(CLOCK_MONOTONIC, &time);
	return time.tv_sec;
}

static void begin(const char *name)
{
	char path[64];
	int nothing = open("/dev/null", O_RDWR);

	setpgid(0, 0);
	dup2(nothing, STDOUT_FILENO);
	dup2(nothing, STDERR_FILENO);
	snprintf(path, sizeof(path), "/lab/%s", name);
	failing_me(1);
	execl(path, path, NULL);
	_exit(127);
}

enum ending { PASSED, FAILED, STOPPED };

static enum ending run(const char *name)
{
	pid_t child = fork();
	time_t begun = now();
	int status;

	if (child == 0)
		begin(name);
	while (waitpid(child, &status, WNOHANG) == 0) {
		if (now() - begun > MOST_SECONDS) {
			kill(-child, SIGKILL);
			waitpid(child, &status, 0);
			return STOPPED;
		}
		usleep(100000);
	}
	kill(-child, SIGKILL); /* those that it left */
	return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? PASSED : FAILED;
}

int main(int argc, char **argv)
{
	time_t end = now() + seconds();
	long runs = 0, count[3] = { 0 };

	if (!failing_can()) {
		printf("       this kernel lets no allocation fail: -debug does\n");
		return 1;
	}
	for (; argc > 1 && now() < end; runs++) {
		unsigned int chance = chances[runs % (sizeof(chances) / sizeof(chances[0]))];
		const char *name = argv[1 + runs % (argc - 1)];
		enum ending how;

		if (!failing_one_in(chance))
			CHECK(0, "this kernel lets allocations fail");
		how = run(name);
		count[how]++;
		printf("       1 in %u: %s %s\n", chance, name,
		       how == PASSED ? "passed" : how == FAILED ? "failed" : "was stopped");
		fflush(stdout);
	}
	CHECK(failing_one_in(0), "no more");
	CHECK(runs > 0, "of %ld runs of %d tests %ld passed, %ld failed, %ld were stopped", runs, argc - 1,
	      count[PASSED], count[FAILED], count[STOPPED]);
	return lab_result();
}
