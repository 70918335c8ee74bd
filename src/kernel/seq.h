// A text view being read (a proc file).
#pragma once

struct seq_file;

extern "C" void seq_printf(seq_file *view, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
