// SPDX-License-Identifier: GPL-2.0
/*
 * tarn_chip: the switching chip in software, as the driver of tarnfwd. Load it after tarnfwd.
 *
 * It never unloads: the core keeps its callbacks, and there is no way to take them back.
 */
#include <linux/module.h>
#include <linux/proc_fs.h>

#include "../chip.h"
#include "../port.h"
#include "home.h"

static int __init chip_init(void)
{
	int result;

	/* Nothing may fail once the core has the callbacks; and commands wait for the chip. */
	chip_commands_begin();
	result = chip_proc_start();
	if (result == 0) {
		result = chip_devices_prepare();
		if (result != 0)
			remove_proc_entry("tarn_chip", NULL);
	}
	if (result == 0) {
		chip_start();
		chip_devices_start();
	}
	chip_commands_end();
	return result;
}
module_init(chip_init);

MODULE_DESCRIPTION("A switching chip in software for tarnfwd");
MODULE_LICENSE("GPL v2");
