/*
 * The first process of the lab machine: mounts what programs expect, loads the module, runs the
 * programs it was given, reports how each ended, and restarts, which ends the machine.
 *
 * /lab/modules   modules to load, a path a line
 * /lab/programs  programs to run, one after another: how many words, the path, its arguments, each
 *                ended by a zero byte, so that any word can be one
 * /lab/busybox   where it is: a shell on /dev/hvc0 instead of the programs
 *
 * The host listens on three ports: standard output and standard error of the programs, and reports
 * ("ready", "exit NAME STATUS", "lost OBJECTS" of a kernel that looks for such, "done"). Their standard input is empty. The console is left to the
 * kernel log.
 */
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

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

/* For what goes wrong before the host can listen. No dprintf: it seeks, which /dev/kmsg refuses. */
static void complain(const char *what)
{
	char text[LINE];
	int length = snprintf(text, sizeof(text), "lab: %s: %s\n", what, strerror(errno));
	int log = open("/dev/kmsg", O_WRONLY | O_CLOEXEC);

	if (log >= 0 && write(log, text, length) == length)
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
	FILE *list = fopen("/lab/modules", "re");
	char path[LINE];

	while (list && fgets(path, sizeof(path), list)) {
		path[strcspn(path, "\n")] = '\0';
		load(path);
	}
	if (list)
		fclose(list);
}

static int wait_for(pid_t child)
{
	int status;

	if (child < 0 || waitpid(child, &status, 0) != child)
		return 127;
	return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

static int run(char **arguments, int output, int errors)
{
	pid_t child = fork();

	if (child == 0) {
		/* Nobody writes to the console: a program that reads it would wait for ever. */
		dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
		dup2(output, STDOUT_FILENO);
		dup2(errors, STDERR_FILENO);
		execv(arguments[0], arguments);
		dprintf(STDERR_FILENO, "cannot run %s: %s\n", arguments[0], strerror(errno));
		_exit(127);
	}
	return wait_for(child);
}

/* The next word of the list, the caller's to free; null at the end. */
static char *next_word(FILE *list)
{
	char *word = NULL;
	size_t size = 0;

	if (getdelim(&word, &size, '\0', list) >= 0)
		return word;
	free(word);
	return NULL;
}

static void run_programs(int output, int errors)
{
	FILE *list = fopen("/lab/programs", "re");
	char *count;

	while (list && (count = next_word(list))) {
		int words = atoi(count);
		char **arguments = calloc(words + 1, sizeof(*arguments));

		for (int i = 0; i < words; i++)
			arguments[i] = next_word(list);
		report("exit %s %d\n", arguments[0], run(arguments, output, errors));
		for (int i = 0; i < words; i++)
			free(arguments[i]);
		free(arguments);
		free(count);
	}
	if (list)
		fclose(list);
}

/* Memory that nothing points to, once all programs have ended. What is younger than that is in use, and
 * what changes between two looks. */
#define LEAKS "/sys/kernel/debug/kmemleak"
#define OLD_SECONDS 6

static void look(void)
{
	int file = open(LEAKS, O_WRONLY | O_CLOEXEC);

	if (file < 0 || write(file, "scan", 4) != 4)
		complain(LEAKS);
	close(file);
}

static void look_for_leaks(int errors)
{
	char *line = NULL;
	size_t size = 0;
	int count = 0;
	FILE *found;

	mount("debugfs", "/sys/kernel/debug", "debugfs", 0, NULL);
	if (access(LEAKS, W_OK) != 0)
		return;
	sleep(OLD_SECONDS);
	look();
	look();
	found = fopen(LEAKS, "re");
	while (found && getline(&line, &size, found) > 0) {
		count += strncmp(line, "unreferenced object", 19) == 0;
		dprintf(errors, "%s", line);
	}
	if (found)
		report("lost %d\n", count);
}

static void run_shell(void)
{
	pid_t child;

	mkdir("/bin", 0755);
	child = fork();
	if (child == 0) {
		execl("/lab/busybox", "busybox", "--install", "-s", "/bin", NULL);
		_exit(127);
	}
	wait_for(child);

	child = fork();
	if (child == 0) {
		int terminal;

		setsid();
		terminal = open("/dev/hvc0", O_RDWR);
		ioctl(terminal, TIOCSCTTY, 0);
		for (int file = STDIN_FILENO; file <= STDERR_FILENO; file++)
			dup2(terminal, file);
		setenv("PATH", "/bin:/lab", 1);
		setenv("PS1", "lab:\\w# ", 1);
		execl("/lab/busybox", "sh", NULL);
		_exit(127);
	}
	report("exit shell %d\n", wait_for(child));
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
		if (access("/lab/busybox", X_OK) == 0) {
			run_shell();
		} else {
			run_programs(output, errors);
			look_for_leaks(errors);
		}
		report("done\n");
	}
	sync();
	reboot(RB_AUTOBOOT);
	return 1;
}
