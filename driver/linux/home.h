/* SPDX-License-Identifier: GPL-2.0 */
/* The chip's Linux home, between its own files. */
#ifndef TARN_CHIP_LINUX_HOME_H
#define TARN_CHIP_LINUX_HOME_H

/* device.c: the thread that receives, and the watch over devices that go away. */
int chip_devices_prepare(void);
void chip_devices_start(void);

/* proc.c: /proc/tarn_chip. */
int chip_proc_start(void);

#endif
