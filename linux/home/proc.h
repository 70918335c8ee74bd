#pragma once

#include "proc_glue.h"

inline proc_dir_entry *proc_create_file(const char *name, u32 mode, proc_dir_entry *parent,
                                        const proc_file *file) {
    return tarn_k_proc_create(name, static_cast<unsigned short>(mode), parent, file,
                              file->row->show != nullptr, file->row->store != nullptr);
}
inline proc_dir_entry *proc_net() {
    return tarn_k_proc_net();
}
