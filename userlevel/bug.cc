#include "kernel/bug.h"

#include <cstdio>
#include <cstdlib>

void kernel_bug(const char *file, int line) {
    std::fprintf(stderr, "kernel BUG at %s:%d!\n", file, line);
    std::abort();
}
