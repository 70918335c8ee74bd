// Files under /proc: views that are printed whole, and writes that are taken as text.
//
// What a file is called and does stands in a constant proc_row. A proc_file ties a row to the
// record it is about; whoever creates the file keeps the proc_file until the file is removed.
//
//   proc_mkdir(name, parent)      a directory, mode 0555; a null parent is /proc itself
//   proc_net()                    the directory of the network, /proc/net; null: there is none
//   proc_create_file(name, mode, parent, file)
//                                 both null on failure. A name that is there already, or is none
//                                 ("", ".", "..", one with a slash), is a bug of the caller's
//   proc_remove(entry)            with all below it; waits for those who are inside. Null is
//                                 ignored
//
// A view is printed at the first read after it is opened, as single_open does, and reads on from
// that text. A write may come with no bytes at all. Process context throughout.
#pragma once

#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/netdev.h" // copy_from_user
#include "kernel/seq.h"
#include "kernel/types.h"

struct proc_dir_entry;

// What a store function gets of a write.
struct proc_text {
    char *text;          // a copy, terminated, for the store to cut up
    u32 length;          // of the copy: what was written, cut at the row's limit
    unsigned long whole; // bytes that were written
};

struct proc_row {
    const char *name;
    int (*show)(seq_file *view, void *data) = nullptr;             // null: cannot be read
    long (*store)(const proc_text &written, void *data) = nullptr; // null: cannot be written
    u32 limit = 0;              // bytes that a write takes at most
    long copy_failed = -EFAULT; // result of a write that cannot be copied
};

struct proc_file {
    const proc_row *row;
    void *data;
};

// Longer limits take their buffer from memory.
inline constexpr u32 PROC_LOCAL_TEXT = 253;

// What a home does with a write: the store's result, or what the row says when the bytes cannot be
// had.
inline long proc_file_write(const proc_file *file, const void *from, unsigned long count) {
    const proc_row *row = file->row;
    char local[PROC_LOCAL_TEXT + 1];
    u32 length = count < row->limit ? static_cast<u32>(count) : row->limit;
    bool is_long = row->limit > PROC_LOCAL_TEXT;
    char *text = is_long ? static_cast<char *>(__kmalloc(length + 1, GFP_KERNEL)) : local;
    if (!text)
        return row->copy_failed;
    long result = row->copy_failed;
    if (copy_from_user(text, from, length) == 0) {
        text[length] = '\0';
        result = row->store({.text = text, .length = length, .whole = count}, file->data);
    }
    if (is_long)
        kfree(text);
    return result;
}

proc_dir_entry *proc_create_file(const char *name, u32 mode, proc_dir_entry *parent,
                                 const proc_file *file);

proc_dir_entry *proc_net();

extern "C" {
proc_dir_entry *proc_mkdir(const char *name, proc_dir_entry *parent);
void proc_remove(proc_dir_entry *entry);
}

#include "home/proc.h"
