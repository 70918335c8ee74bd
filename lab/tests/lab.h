/*
 * For the programs that run inside the lab. Each is one file, linked statically; it prints what it
 * checks and ends with 0 when all holds.
 */
#ifndef LAB_TESTS_LAB_H
#define LAB_TESTS_LAB_H

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

extern int lab_failures;

/* Says what is checked, and whether it holds. */
#define CHECK(condition, ...)                                                                      \
	do {                                                                                       \
		int holds = (condition) != 0;                                                      \
		printf("  %s ", holds ? "ok  " : "FAIL");                                          \
		printf(__VA_ARGS__);                                                               \
		printf(holds ? "\n" : "   (%s:%d: %s)\n", __FILE__, __LINE__, #condition);         \
		fflush(stdout); /* it may be the last that is heard */                             \
		lab_failures += !holds;                                                            \
	} while (0)

static inline int lab_result(void)
{
	fflush(stdout);
	return lab_failures ? 1 : 0;
}

/* Loads a module of the lab, if it is not there yet. Ends the program with a message where that
 * fails. */
void lab_load(const char *module);

/* Loads tarn_lab.ko and declares port 5001, with link, in VLAN 1. Ends the program with a message where
 * that fails. */
void lab_setup(void);

/* One command to /proc/tarn_lab: 0, -errno, or the interface manager's error. */
int lab_command(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* A counter of the chain, such as "l2drop_stops"; -1 where it is not printed. */
long lab_counter(const char *name);

/* How often a redirect stopped a frame for a reason. */
long lab_stops(const char *redirect, int reason);

/* What the core knows of an interface; -203 where it has none. */
struct lab_if {
	unsigned int flags;
	int below; /* running ports */
	int has_device;
};
int lab_show(unsigned int ifindex, struct lab_if *interface);

/* A line of /proc/meminfo, in kilobytes. */
long lab_meminfo(const char *name);

#endif
