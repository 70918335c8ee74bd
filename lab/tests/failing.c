/* See failing.h. */
#include "failing.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

static int put(const char *path, const char *text)
{
	int file = open(path, O_WRONLY | O_CLOEXEC);
	int good = file >= 0 && write(file, text, strlen(text)) == (ssize_t)strlen(text);

	close(file);
	return good;
}

int failing_can(void)
{
	mount("debugfs", FAIL_DEBUG, "debugfs", 0, NULL);
	return access(FAIL_DEBUG "/failslab/probability", W_OK) == 0;
}

static int set(const char *kind, const char *name, const char *text)
{
	char path[96];

	snprintf(path, sizeof(path), FAIL_DEBUG "/%s/%s", kind, name);
	return put(path, text);
}

int failing_one_in(unsigned int how_many)
{
	/* Without words; for ever. Chance is a matter of percent, drawn at every so manyth. */
	static const char *const all[][2] = {
		{ "verbose", "0" },
		{ "ignore-gfp-wait", "N" },
		{ "task-filter", "Y" },
		{ "times", "-1" },
	};
	static const char *const kinds[] = { "failslab", "fail_page_alloc" };
	char interval[16];
	int good = set("fail_page_alloc", "min-order", "0");

	snprintf(interval, sizeof(interval), "%u", how_many < 20 ? 1 : how_many / 20);
	for (int k = 0; k < 2; k++) {
		for (size_t i = 0; i < sizeof(all) / sizeof(all[0]); i++)
			good &= set(kinds[k], all[i][0], all[i][1]);
		good &= set(kinds[k], "interval", interval);
		good &= set(kinds[k], "probability", how_many == 0 ? "0" : "5");
	}
	return good;
}

void failing_me(int on)
{
	put("/proc/self/make-it-fail", on ? "1" : "0");
}

int failing_is_me(void)
{
	int file = open("/proc/self/make-it-fail", O_RDONLY | O_CLOEXEC);
	char on = '0';

	if (file >= 0 && read(file, &on, 1) != 1)
		on = '0';
	close(file);
	return on == '1';
}
