/*
 * A hundred thousand sockets, opened and closed on one CPU while frames arrive on the other. What stays is
 * the record of each, and no more: one kind of object has become more by as many as were opened, and no
 * other by more than what a kernel keeps at hand.
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

/*
 * The most objects that count as used and are not: the caches of CPUs keep some at hand, and a kernel that
 * checks its memory keeps what was freed for a while, to see who still uses it.
 */
static long at_hand = ROUNDS / 50;
#define AT_HAND_CHECKED (ROUNDS / 10)
#define CHECKERS_OWN "kmemleak_object" /* such a kernel's, one for each object */

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

/* --- what is allocated ----------------------------------------------------------------------------- */

struct cache {
	char name[40];
	long objects, size;
};

static struct cache before[400], after[400];

static int read_caches(struct cache *caches, int room)
{
	FILE *file = fopen("/proc/slabinfo", "r");
	char line[512];
	int count = 0;

	while (file && count < room && fgets(line, sizeof(line), file)) {
		if (strncmp(line, CHECKERS_OWN, strlen(CHECKERS_OWN)) == 0)
			at_hand = AT_HAND_CHECKED;
		else
			count += sscanf(line, "%39[^ #] %ld %*d %ld", caches[count].name,
					&caches[count].objects, &caches[count].size) == 3;
	}
	if (file)
		fclose(file);
	return count;
}

static long growth(const struct cache *cache, int count)
{
	for (int i = 0; i < count; i++)
		if (strcmp(before[i].name, cache->name) == 0)
			return cache->objects - before[i].objects;
	return cache->objects;
}

/* Records of sockets, also of closed ones that stay. */
static long sockets_used(void)
{
	FILE *file = fopen("/proc/net/sockstat", "r");
	long used = -1;

	if (file && fscanf(file, "sockets: used %ld", &used) != 1)
		used = -1;
	if (file)
		fclose(file);
	return used;
}

/* What is freed a little later, some seconds at most. */
static void settle(int before_count)
{
	long others = ROUNDS;

	for (int tries = 0; tries < 100 && others > at_hand; tries++) {
		int count = read_caches(after, 400);

		others = 0;
		for (int i = 0; i < count; i++) {
			long more = growth(&after[i], before_count);

			if (more < ROUNDS - at_hand && more > others)
				others = more;
		}
		usleep(100000);
	}
}

static void only_records_stay(int before_count)
{
	int after_count = read_caches(after, 400), records = 0;

	CHECK(before_count > 0 && after_count >= before_count, "%d kinds of objects are known", after_count);
	for (int i = 0; i < after_count; i++) {
		long more = growth(&after[i], before_count);
		int is_record = more >= ROUNDS - at_hand && more <= ROUNDS + at_hand;

		records += is_record;
		if (more > at_hand)
			CHECK(is_record, "%ld more of %s, %ld bytes each", more, after[i].name, after[i].size);
	}
	CHECK(records == 1, "one kind of object is that of the records");
}

int main(void)
{
	long slab, used, failed = 0, read_some = 0;
	int known;
	int status;
	pid_t traffic;

	lab_setup();
	known = read_caches(before, 400);
	slab = lab_meminfo("Slab");
	used = sockets_used();
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
	slab = lab_meminfo("Slab") - slab;
	CHECK(failed == 0, "%d sockets were opened and closed, %ld of them had something to read", ROUNDS,
	      read_some);
	used = sockets_used() - used;
	CHECK(used == ROUNDS, "%ld records stay, as many as were closed", used);
	settle(known);
	only_records_stay(known);
	printf("       %ld bytes of memory are taken for each\n", slab * 1024 / ROUNDS);
	return lab_result();
}
