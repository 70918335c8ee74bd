// The tree "tarn" under /proc.
#pragma once

#include "kernel/types.h"

struct proc_dir_entry;

extern proc_dir_entry *tarn_proc_directory; // null: none

// Whether a file of the switch itself has the name.
bool tarn_proc_is_global(const char *name);

// tarn_proc_if.cc: once, before the directory is there.
void tarn_proc_if_init();
