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
#define MOST_KB 1024 /* of growth: what is on its way, and free objects that a CPU keeps at hand */

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

/* --- what the kernel holds and cannot give back ---------------------------------------------------- */

#define CACHES 512

struct cache {
	char name[40];
	long used, kept; /* bytes of its objects, and of its pages */
};

struct holdings {
	struct cache caches[CACHES];
	int count;
	long used, kept; /* of all caches */
	long other;	 /* stacks, page tables, vmalloc, per CPU */
};

static void read_caches(struct holdings *all)
{
	FILE *file = fopen("/proc/slabinfo", "r");
	char line[512];
	long active, size, pages, slabs;

	while (file && all->count < CACHES && fgets(line, sizeof(line), file)) {
		struct cache *one = &all->caches[all->count];

		if (sscanf(line, "%39s %ld %*d %ld %*d %ld : tunables %*d %*d %*d : slabdata %*d %ld", one->name,
			   &active, &size, &pages, &slabs) != 5)
			continue;
		one->used = active * size;
		one->kept = slabs * pages * sysconf(_SC_PAGESIZE);
		all->used += one->used;
		all->kept += one->kept;
		all->count++;
	}
	if (file)
		fclose(file);
}

static void take_stock(struct holdings *all)
{
	int file = open("/proc/sys/vm/drop_caches", O_WRONLY | O_CLOEXEC);

	if (write(file, "3", 1) != 1)
		printf("       caches cannot be dropped\n");
	close(file);
	net_pause(2000); /* what is freed late */
	shrink_caches();
	net_pause(1000);
	memset(all, 0, sizeof(*all));
	read_caches(all);
	all->other = 1024 * (lab_meminfo("KernelStack") + lab_meminfo("PageTables") +
			     lab_meminfo("VmallocUsed") + lab_meminfo("Percpu"));
}

/* Which caches have grown, by what is used and by what is kept for it. */
static void tell(const struct holdings *before, const struct holdings *after)
{
	for (int i = 0; i < after->count; i++) {
		const struct cache *now = &after->caches[i];
		struct cache then = { .used = 0 };

		for (int k = 0; k < before->count; k++)
			if (strcmp(before->caches[k].name, now->name) == 0)
				then = before->caches[k];
		if (labs(now->kept - then.kept) >= 65536 || labs(now->used - then.used) >= 65536)
			printf("       %-24s %+8ld kB used, %+8ld kB kept\n", now->name,
			       (now->used - then.used) / 1024, (now->kept - then.kept) / 1024);
	}
	printf("       %-24s %+8ld kB used, %+8ld kB kept\n", "all caches", (after->used - before->used) / 1024,
	       (after->kept - before->kept) / 1024);
	printf("       %-24s %+8ld kB\n", "all else", (after->other - before->other) / 1024);
}

/* What one closed socket leaves, in bytes. */
static long record(void)
{
	static struct holdings before, after;

	take_stock(&before);
	for (int i = 0; i < RECORDS; i++)
		close(socket(TARN_AF_LACP, SOCK_RAW | SOCK_CLOEXEC, 0));
	take_stock(&after);
	tell(&before, &after);
	return (after.used - before.used) / RECORDS;
}

int main(void)
{
	static struct holdings before, after;
	int total = seconds(), warm = total / 10 + 5;
	struct busy_work first, done;
	long each, records, more;

	busy_start();
	first = busy_run(warm, NULL);
	each = record();
	take_stock(&before);
	done = busy_run(total, NULL);
	take_stock(&after);
	tell(&before, &after);
	records = done.sockets * each;
	more = after.used + after.other - before.used - before.other - records;
	CHECK(first.frames > 0 && done.frames > 0 && done.commands > 0 && done.sockets > 0 && done.files > 0,
	      "in %d s: %ld frames sent, %ld commands, %ld sockets, %ld files", total, done.frames,
	      done.commands, done.sockets, done.files);
	CHECK(each > 0 && each < 8192, "a closed socket leaves its record, %ld bytes", each);
	CHECK(more < MOST_KB * 1024,
	      "the kernel held %ld kB before and %ld kB after, of it %ld kB records of sockets: %ld kB more",
	      (before.used + before.other) / 1024, (after.used + after.other) / 1024, records / 1024, more / 1024);
	busy_end();
	return lab_result();
}
