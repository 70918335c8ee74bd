/*
 * Everything at once on both CPUs, for ten minutes or as long as is said: nothing grows but by the records
 * that closed sockets leave behind on purpose.
 */
#include "../busy.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tarn/skaddr.h"

#define RECORDS 2000
#define MOST_KB 6144 /* of growth: caches that a kernel which checks itself fills slowly */

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

/* A kernel that checks itself keeps what was freed for a while, until a cache is asked to shrink. */
static void shrink_caches(void)
{
	DIR *caches = opendir("/sys/kernel/slab");
	char path[300];

	for (struct dirent *one; caches && (one = readdir(caches));) {
		int file;

		snprintf(path, sizeof(path), "/sys/kernel/slab/%s/shrink", one->d_name);
		file = open(path, O_WRONLY | O_CLOEXEC);
		if (file >= 0 && write(file, "1", 1) != 1)
			printf("       %s cannot be shrunk\n", one->d_name);
		close(file);
	}
	if (caches)
		closedir(caches);
}

/* What the kernel holds and cannot give back. */
static long held_kb(void)
{
	int file = open("/proc/sys/vm/drop_caches", O_WRONLY | O_CLOEXEC);

	if (write(file, "3", 1) != 1)
		printf("       caches cannot be dropped\n");
	close(file);
	net_pause(2000); /* what is freed late */
	shrink_caches();
	net_pause(1000);
	return lab_meminfo("SUnreclaim") + lab_meminfo("KernelStack") + lab_meminfo("PageTables") +
	       lab_meminfo("VmallocUsed") + lab_meminfo("Percpu");
}

/* What one closed socket leaves, in bytes. */
static long record(void)
{
	long before = held_kb();

	for (int i = 0; i < RECORDS; i++)
		close(socket(TARN_AF_LACP, SOCK_RAW | SOCK_CLOEXEC, 0));
	return (held_kb() - before) * 1024 / RECORDS;
}

int main(void)
{
	int total = seconds(), warm = total / 10 + 5;
	struct busy_work first, done;
	long before, after, each, sockets;

	busy_start();
	first = busy_run(warm, NULL);
	each = record();
	before = held_kb();
	done = busy_run(total, NULL);
	after = held_kb();
	sockets = done.sockets * each / 1024;
	CHECK(first.frames > 0 && done.frames > 0 && done.commands > 0 && done.sockets > 0 && done.files > 0,
	      "in %d s: %ld frames sent, %ld commands, %ld sockets, %ld files", total, done.frames,
	      done.commands, done.sockets, done.files);
	CHECK(each > 0 && each < 8192, "a closed socket leaves its record, %ld bytes", each);
	CHECK(after - before - sockets < MOST_KB,
	      "the kernel held %ld kB before and %ld kB after, of it %ld kB records of sockets: %ld kB more",
	      before, after, sockets, after - before - sockets);
	busy_end();
	return lab_result();
}
