/* For lab/check-run: a program that does what it is told, so that lab/run can be seen to notice. */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "../module/core_functions.h"

/* Both streams, every word, and what the input holds. */
static int echo(int count, char **words)
{
	char byte;

	for (int i = 2; i < count; i++)
		printf("<%s>\n", words[i]);
	fprintf(stderr, "errors\n");
	printf("%zd bytes of input\n", read(STDIN_FILENO, &byte, 1));
	return 7;
}

static int fill(void)
{
	for (int i = 0; i < 100000; i++)
		printf("%06d %040d\n", i, i);
	return 0;
}

/* tarn_lab calls the addresses that it is given: these are of nothing. */
#define LAB_WRONG(name, symbol) #name "=8 "
static int load_lab(void)
{
	static const char wrong[] = LAB_CORE_FUNCTIONS(LAB_WRONG);
	int file = open("/lab/tarn_lab.ko", O_RDONLY | O_CLOEXEC);

	return syscall(SYS_finit_module, file, wrong, 0);
}

/* Jumps to an address that is not mapped. */
static int oops(void)
{
	char text[16];
	int file;

	printf("before\n");
	fflush(stdout);
	if (load_lab() != 0)
		return 1;
	file = open("/proc/tarn_lab", O_RDONLY | O_CLOEXEC);
	return read(file, text, sizeof(text)) < 0;
}

/* The stack may still point to one. */
static int leak(void)
{
	if (load_lab() != 0)
		return 1;
	for (int i = 0; i < 8; i++) {
		int file = open("/proc/tarn_lab", O_WRONLY | O_CLOEXEC);

		if (write(file, "leak 512", 8) != 8)
			return 1;
		close(file);
	}
	return 0;
}

/* A report that does not stop the kernel. */
static int warn(void)
{
	static const char text[] = "WARNING: said by a program\n";
	int log = open("/dev/kmsg", O_WRONLY | O_CLOEXEC);

	return write(log, text, strlen(text)) < 0;
}

int main(int count, char **words)
{
	const char *what = count > 1 ? words[1] : "";

	if (strcmp(what, "echo") == 0)
		return echo(count, words);
	if (strcmp(what, "fill") == 0)
		return fill();
	if (strcmp(what, "oops") == 0)
		return oops();
	if (strcmp(what, "leak") == 0)
		return leak();
	if (strcmp(what, "warn") == 0)
		return warn();
	if (strcmp(what, "signal") == 0)
		raise(SIGSEGV);
	if (strcmp(what, "hang") == 0)
		for (;;)
			pause();
	return 99;
}
