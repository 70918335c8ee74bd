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

/* Jumps to an address that is not mapped: tarn_lab calls the addresses that it is given. */
static int oops(void)
{
#define LAB_WRONG(name, symbol) #name "=8 "
	static const char wrong[] = LAB_CORE_FUNCTIONS(LAB_WRONG);
	int file = open("/lab/tarn_lab.ko", O_RDONLY | O_CLOEXEC);
	char text[16];

	printf("before\n");
	fflush(stdout);
	if (syscall(SYS_finit_module, file, wrong, 0) != 0)
		return 1;
	file = open("/proc/tarn_lab", O_RDONLY | O_CLOEXEC);
	return read(file, text, sizeof(text)) < 0;
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
	if (strcmp(what, "warn") == 0)
		return warn();
	if (strcmp(what, "signal") == 0)
		raise(SIGSEGV);
	if (strcmp(what, "hang") == 0)
		for (;;)
			pause();
	return 99;
}
