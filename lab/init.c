/*
 * The first process of the lab machine: mounts what programs expect, loads the module, runs the
 * programs it was given, reports how each ended, and restarts, which ends the machine.
 *
 * /lab/modules   modules to load, a path a line
 * /lab/programs  programs to run, one after another: a path a line, then its arguments, a line each,
 *                then an empty line
 *
 * The host listens on three ports: standard output and standard error of the programs, and reports
 * ("ready", "exit NAME STATUS", "done"). The console is left to the kernel log.
 */
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#define MOST_ARGUMENTS 64
#define LINE 4096

static int reports = -1;

static void report(const char *format, ...) __attribute__((format(printf, 1, 2)));
static void report(const char *format, ...)
{
	va_list arguments;

	va_start(arguments, format);
	vdprintf(reports, format, arguments);
	va_end(arguments);
}

/* For what goes wrong before the host can listen. */
static void complain(const char *what)
{
	int log = open("/dev/kmsg", O_WRONLY | O_CLOEXEC);

	dprintf(log, "lab: %s: %s\n", what, strerror(errno));
	if (log >= 0)
		close(log);
}

static int open_port(const char *path)
{
	/* The device appears when its driver has found it. */
	for (int tries = 0; tries < 200; tries++) {
		int port = open(path, O_WRONLY | O_CLOEXEC);

		if (port >= 0)
			return port;
		usleep(10000);
	}
	complain(path);
	return -1;
}

static void load(const char *path)
{
	int file = open(path, O_RDONLY | O_CLOEXEC);

	if (file < 0 || syscall(SYS_finit_module, file, "", 0) != 0)
		report("failed %s: %s\n", path, strerror(errno));
	if (file >= 0)
		close(file);
}

static void load_modules(void)
{
	FILE *list = fopen("/lab/modules", "r");
	char path[LINE];

	while (list && fgets(path, sizeof(path), list)) {
		path[strcspn(path, "\n")] = '\0';
		load(path);
	}
	if (list)
		fclose(list);
}

static int run(char **arguments, int output, int errors)
{
	int status;
	pid_t child = fork();

	if (child == 0) {
		dup2(output, STDOUT_FILENO);
		dup2(errors, STDERR_FILENO);
		execv(arguments[0], arguments);
		dprintf(STDERR_FILENO, "cannot run %s: %s\n", arguments[0], strerror(errno));
		_exit(127);
	}
	if (child < 0 || waitpid(child, &status, 0) != child)
		return 127;
	return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

static void run_programs(int output, int errors)
{
	FILE *list = fopen("/lab/programs", "r");
	char *arguments[MOST_ARGUMENTS + 1];
	char line[LINE];
	int count = 0;

	while (list && fgets(line, sizeof(line), list)) {
		line[strcspn(line, "\n")] = '\0';
		if (line[0] != '\0' && count < MOST_ARGUMENTS) {
			arguments[count++] = strdup(line);
			continue;
		}
		if (count == 0)
			continue;
		arguments[count] = NULL;
		report("exit %s %d\n", arguments[0], run(arguments, output, errors));
		while (count > 0)
			free(arguments[--count]);
	}
}

int main(void)
{
	int output, errors;

	mknod("/dev/kmsg", S_IFCHR | 0600, (1 << 8) | 11);
	if (mount("devtmpfs", "/dev", "devtmpfs", 0, NULL) != 0)
		complain("/dev");
	mount("proc", "/proc", "proc", 0, NULL);
	mount("sysfs", "/sys", "sysfs", 0, NULL);
	mount("tmpfs", "/tmp", "tmpfs", 0, NULL);

	output = open_port("/dev/vport0p1");
	errors = open_port("/dev/vport0p2");
	reports = open_port("/dev/vport0p3");
	if (output >= 0 && errors >= 0 && reports >= 0) {
		report("ready\n");
		load_modules();
		run_programs(output, errors);
		report("done\n");
	}
	sync();
	reboot(RB_AUTOBOOT);
	return 1;
}
