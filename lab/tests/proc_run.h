/*
 * Runs the cases over files of a mounted tree: /proc/tarn, or a mount of the process's own. Says each
 * that fails on standard output; the number of them.
 */
#ifndef TARN_TEST_PROC_RUN_H
#define TARN_TEST_PROC_RUN_H

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "proc_cases.h"

static inline long proc_read_file(const char *path, char *text, size_t size)
{
	int file = open(path, O_RDONLY | O_CLOEXEC);
	size_t length = 0;
	ssize_t got;

	if (file < 0)
		return -errno;
	while ((got = read(file, text + length, size - 1 - length)) > 0)
		length += (size_t)got;
	if (got < 0)
		got = -errno;
	close(file);
	text[length] = '\0';
	return got;
}

static inline long proc_write_file(const char *path, const char *text)
{
	int file = open(path, O_WRONLY | O_CLOEXEC);
	ssize_t written;

	if (file < 0)
		return -errno;
	written = write(file, text, strlen(text));
	if (written < 0)
		written = -errno;
	close(file);
	return written;
}

static inline int proc_holds(const struct proc_case *step, const char *text)
{
	switch (step->how) {
	case PROC_READS:
		return strcmp(text, step->text) == 0;
	case PROC_BEGINS:
		return strncmp(text, step->text, strlen(step->text)) == 0;
	case PROC_HAS:
		return strstr(text, step->text) != NULL;
	case PROC_HAS_NOT:
		return strstr(text, step->text) == NULL;
	default:
		return 1;
	}
}

static inline int proc_run_case(const char *root, const struct proc_case *step)
{
	static char text[1 << 16];
	char path[256];
	long result;

	text[0] = '\0';
	snprintf(path, sizeof(path), "%s/%s", root, step->file);
	result = step->how == PROC_WRITE ? proc_write_file(path, step->text) :
					   proc_read_file(path, text, sizeof(text));
	if (result == step->result && proc_holds(step, text))
		return 0;
	printf("%s: wanted %ld and '%s', got %ld and '%s'\n", path, step->result, step->text, result,
	       text);
	return 1;
}

static inline int proc_run_mode(const char *root, const struct proc_mode *wanted)
{
	struct stat status = { 0 };
	char path[256];

	snprintf(path, sizeof(path), "%s/%s", root, wanted->file);
	if (stat(path, &status) == 0 && status.st_mode == (S_IFREG | wanted->mode) &&
	    status.st_size == 0 && status.st_nlink == 1)
		return 0;
	printf("%s: mode %o, %ld bytes, %ld links\n", path, (unsigned int)status.st_mode,
	       (long)status.st_size, (long)status.st_nlink);
	return 1;
}

static inline int proc_run_all(const char *root)
{
	int failed = 0;

	for (size_t i = 0; i < sizeof(proc_modes) / sizeof(proc_modes[0]); i++)
		failed += proc_run_mode(root, &proc_modes[i]);
	for (size_t i = 0; i < sizeof(proc_cases) / sizeof(proc_cases[0]); i++)
		failed += proc_run_case(root, &proc_cases[i]);
	return failed;
}

#endif
