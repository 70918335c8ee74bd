// Taking apart what was written to a file under /proc.
#pragma once

#include "kernel/types.h"

struct proc_text;

// The decimal number that the text begins with, 0 when it begins with none.
i32 tarn_atoi(const char *text);

// Cuts the text at its commas into that many fields; the last one keeps what follows. False when a
// comma is missing.
bool proc_split(char *text, char **fields, u32 count);

// Replaces the last byte, which is the newline of whoever writes lines, by the terminator.
char *proc_line(const proc_text &written);
