/* SPDX-License-Identifier: GPL-2.0 */
/* The functions of proc_glue.c, and those of proc_home.cc that it calls. */
#ifndef TARN_LINUX_PROC_GLUE_H
#define TARN_LINUX_PROC_GLUE_H

#ifdef __cplusplus
extern "C" {
#endif

struct proc_dir_entry;
struct seq_file;

struct proc_dir_entry *tarn_k_proc_create(const char *name, unsigned short mode,
					  struct proc_dir_entry *parent, const void *file,
					  int readable, int writable);

struct proc_dir_entry *tarn_k_proc_net(void);

/* `file` is the core's proc_file. */
int tarn_k_proc_show(struct seq_file *view, const void *file);
long tarn_k_proc_write(const void *file, const void *text, unsigned long count);

#ifdef __cplusplus
}
#endif

#endif
