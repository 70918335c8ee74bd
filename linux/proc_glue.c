// SPDX-License-Identifier: GPL-2.0
/* Files of the core under /proc: its rows turned into the kernel's operations. */
#include <linux/fs.h>
#include <linux/proc_fs.h>
#include <linux/seq_file.h>
#include <net/net_namespace.h>

#include "proc_glue.h"

static int show(struct seq_file *view, void *unused)
{
	return tarn_k_proc_show(view, view->private);
}

static int open_view(struct inode *inode, struct file *file)
{
	return single_open(file, show, pde_data(inode));
}

static ssize_t write_text(struct file *file, const char __user *text, size_t count, loff_t *at)
{
	return tarn_k_proc_write(pde_data(file_inode(file)), (__force const void *)text, count);
}

/* What a file lacks is left out: the kernel then answers EIO. */
#define VIEW                                                                                       \
	.proc_open = open_view, .proc_read = seq_read, .proc_lseek = seq_lseek,                    \
	.proc_release = single_release

static const struct proc_ops both_ways = { VIEW, .proc_write = write_text };
static const struct proc_ops read_only = { VIEW };
static const struct proc_ops write_only = { .proc_lseek = noop_llseek, .proc_write = write_text };

struct proc_dir_entry *tarn_k_proc_create(const char *name, unsigned short mode,
					  struct proc_dir_entry *parent, const void *file,
					  int readable, int writable)
{
	const struct proc_ops *ops = !readable ? &write_only : writable ? &both_ways : &read_only;

	return proc_create_data(name, mode, parent, ops, (void *)file);
}

/* That of the initial namespace, whose daemons the sockets are for. */
struct proc_dir_entry *tarn_k_proc_net(void)
{
	return init_net.proc_net;
}
