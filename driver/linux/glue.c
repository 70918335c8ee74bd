// SPDX-License-Identifier: GPL-2.0
/* The core's glue, once more: the chip is a module of its own, and glue is not exported. */
#include "../../linux/glue.c"
