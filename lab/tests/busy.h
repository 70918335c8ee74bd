/*
 * Everything at once on both CPUs: hosts that send all sorts of frames to all ports, daemons that open, read,
 * send and close, commands that make and remove interfaces, readers and writers of all files.
 *
 * Each is done a piece at a time by a function here; the number says which piece, and all are gone through
 * when it counts up.
 */
#ifndef LAB_TESTS_BUSY_H
#define LAB_TESTS_BUSY_H

#include "switch.h"

/* The switch with its hosts, two VLANs with addresses; and its end, which leaves nothing. */
void busy_start(void);
void busy_end(void);

/* Delivered to port 1 by the calling process itself, as a driver does. */
void busy_frame(unsigned int which);
#define BUSY_FRAMES 16
/* One command; all of them, so many, leave no interface behind. */
void busy_command(unsigned int which);
extern const unsigned int busy_commands;
/* A socket is opened, set up, sent by, read, and closed. */
void busy_socket(unsigned int which);
#define BUSY_SOCKETS 21
/* A file is read, or written. */
void busy_file(unsigned int which);
extern const unsigned int busy_files;

/* What was done, by all. */
struct busy_work {
	long frames, commands, sockets, files;
};

/* All at once for so many seconds. `begin`, if any, is called first in each process that does it. */
struct busy_work busy_run(int seconds, void (*begin)(void));

#endif
