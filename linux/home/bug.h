#pragma once

#include "glue.h"

inline void kernel_bug(const char *file, int line) {
    tarn_k_bug(file, line);
    __builtin_unreachable();
}
