// A broken invariant of the module's own: the kernel stops the offender here. Never reached by a
// frame or a command.
#pragma once

[[noreturn]] void kernel_bug(const char *file, int line);

#define BUG() kernel_bug(__FILE__, __LINE__)

#include "home/bug.h"
