/* See lab.h. */
#include "lab.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "../module/core_functions.h"

#define CONTROL "/proc/tarn_lab"

int lab_failures;

static void give_up(const char *what)
{
	fprintf(stderr, "lab: %s: %s\n", what, strerror(errno));
	exit(1);
}

/* The parameter of tarn_lab and the name of the function of tarnfwd whose address it wants. */
static const struct {
	const char *parameter;
	const char *symbol;
} wanted[] = {
#define LAB_WANTED(name, symbol) { #name, symbol },
	LAB_CORE_FUNCTIONS(LAB_WANTED)
};

static void find_addresses(char *parameters, size_t size)
{
	FILE *symbols = fopen("/proc/kallsyms", "r");
	char line[512], name[256], address[32];

	if (!symbols)
		give_up("/proc/kallsyms");
	parameters[0] = '\0';
	while (fgets(line, sizeof(line), symbols)) {
		if (sscanf(line, "%31s %*c %255s", address, name) != 2)
			continue;
		for (size_t i = 0; i < sizeof(wanted) / sizeof(wanted[0]); i++) {
			size_t used = strlen(parameters);

			if (strcmp(name, wanted[i].symbol) == 0)
				snprintf(parameters + used, size - used, "%s=0x%s ",
					 wanted[i].parameter, address);
		}
	}
	fclose(symbols);
}

static void load(const char *module, const char *parameters)
{
	char path[64];
	int file;

	snprintf(path, sizeof(path), "/lab/%s.ko", module);
	file = open(path, O_RDONLY | O_CLOEXEC);
	if (file < 0 || (syscall(SYS_finit_module, file, parameters, 0) != 0 && errno != EEXIST))
		give_up(path);
	close(file);
}

void lab_load(const char *module)
{
	char parameters[2048] = "";

	if (strcmp(module, "tarn_lab") == 0 && access(CONTROL, F_OK) != 0)
		find_addresses(parameters, sizeof(parameters));
	load(module, parameters);
}

void lab_setup(void)
{
	struct lab_if port;

	lab_load("tarn_lab");
	if (lab_show(5001, &port) == 0)
		return;
	if (lab_command("port 5001 if5001 02:00:00:00:50:01") != 0 ||
	    lab_command("vlan 1 02:00:00:00:00:01") != 0 ||
	    lab_command("member 1 5001 untagged") != 0 || lab_command("link 5001 up") != 0)
		give_up("cannot declare the switch");
}

int lab_command(const char *format, ...)
{
	static char line[65536];
	va_list arguments;
	int file, length, result;

	va_start(arguments, format);
	length = vsnprintf(line, sizeof(line), format, arguments);
	va_end(arguments);
	file = open(CONTROL, O_WRONLY | O_CLOEXEC);
	if (file < 0)
		give_up(CONTROL);
	result = write(file, line, length) == length ? 0 : -errno;
	close(file);
	return result;
}

/* The line that starts so, in a buffer of the callee's; null where there is none. */
static const char *line_of(const char *path, const char *start)
{
	static char line[512];
	FILE *file = fopen(path, "r");
	const char *found = NULL;

	if (!file)
		give_up(path);
	while (!found && fgets(line, sizeof(line), file))
		if (strncmp(line, start, strlen(start)) == 0)
			found = line + strlen(start);
	fclose(file);
	return found;
}

long lab_counter(const char *name)
{
	char start[64];
	const char *rest;

	snprintf(start, sizeof(start), "%s: ", name);
	rest = line_of(CONTROL, start);
	return rest ? atol(rest) : -1;
}

long lab_stops(const char *redirect, int reason)
{
	char start[64], pair[16];
	const char *rest;

	snprintf(start, sizeof(start), "%s_stops: ", redirect);
	snprintf(pair, sizeof(pair), " %d:", reason);
	rest = line_of(CONTROL, start);
	rest = rest ? strstr(rest, pair) : NULL;
	return rest ? atol(rest + strlen(pair)) : 0;
}

int lab_show(unsigned int ifindex, struct lab_if *interface)
{
	const char *rest = lab_command("show %u", ifindex) == 0 ? line_of(CONTROL, "if: ") : NULL;

	if (!rest || sscanf(rest, "%*u %*s flags %x below %d device %d", &interface->flags,
			    &interface->below, &interface->has_device) != 3)
		return -203;
	return 0;
}

long lab_meminfo(const char *name)
{
	char start[64];
	const char *rest;

	snprintf(start, sizeof(start), "%s:", name);
	rest = line_of("/proc/meminfo", start);
	return rest ? atol(rest) : -1;
}
