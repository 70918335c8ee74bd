/* SPDX-License-Identifier: GPL-2.0 */
/*
 * A switching chip in software, behind the driver boundary (tarn/rxtx_hw.h).
 *
 *   in     frames of Linux devices, which a home opens as ports (port.h)
 *   does   VLAN-aware learning and forwarding, and traps frames to the CPU by a table
 *   out    frames to ports; trapped ones to rxtx_hw_packet_recv()
 *   told   by words, one command a line: chip_command(); docs/driver.md lists them
 *
 * There is one chip. Plain C; include it in a kernel module or in a process.
 */
#ifndef TARN_CHIP_H
#define TARN_CHIP_H

#ifdef __KERNEL__
#include <linux/types.h>
#else
#include <stddef.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* An empty chip: no ports, every trap as the table says. Registers the callbacks. Once, before any
 * other call; again after chip_stop(). */
void chip_start(void);

/* Closes all ports and forgets all addresses. The callbacks stay registered and find no port. */
void chip_stop(void);

/* Runs one line. 0, or a negative errno. The reply is text with a zero at its end: "" or what was
 * asked for; after an error what was wrong and what to do. What does not fit is left out by whole
 * lines, and the last line says so. CHIP_REPLY bytes fit everything that `show` has to say. */
int chip_command(const char *line, char *reply, size_t size);

#define CHIP_REPLY (1024 * 1024)

#ifdef __cplusplus
}
#endif

#endif
