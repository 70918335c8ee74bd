// What the files under /proc call of the core.
#include "kernel/proc.h"

int tarn_k_proc_show(seq_file *view, const void *file) {
    auto *of = static_cast<const proc_file *>(file);
    return of->row->show(view, of->data);
}

long tarn_k_proc_write(const void *file, const void *text, unsigned long count) {
    return proc_file_write(static_cast<const proc_file *>(file), text, count);
}
