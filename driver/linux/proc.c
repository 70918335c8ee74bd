// SPDX-License-Identifier: GPL-2.0
/*
 * /proc/tarn_chip: a line written is a command, several lines several. Read: what the last of them
 * replied, or, on a file that nothing was written to, the whole state. The first command that fails
 * ends the write with its error; what it had to say goes to the kernel log too, since most who write
 * do not read.
 */
#include <linux/errno.h>
#include <linux/fs.h>
#include <linux/mm.h>
#include <linux/mutex.h>
#include <linux/proc_fs.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/uaccess.h>

#include "../chip.h"
#include "home.h"

#define WRITE_LIMIT 65536

struct session {
	struct mutex lock;
	char *reply; /* null: nothing was asked yet */
};

static int ask(struct session *session, const char *line)
{
	if (!session->reply)
		session->reply = kvmalloc(CHIP_REPLY, GFP_KERNEL);
	if (!session->reply)
		return -ENOMEM;
	return chip_command(line, session->reply, CHIP_REPLY);
}

static int run_lines(struct session *session, char *lines)
{
	char *line;
	int result;

	while ((line = strsep(&lines, "\n")) != NULL) {
		if (*line == '\0')
			continue;
		result = ask(session, line);
		if (result == 0)
			continue;
		if (session->reply)
			pr_notice_ratelimited("tarn_chip: %s", session->reply);
		return result;
	}
	return 0;
}

static ssize_t chip_write(struct file *file, const char __user *buffer, size_t count, loff_t *at)
{
	struct session *session = file->private_data;
	char *lines;
	int result;

	if (count > WRITE_LIMIT)
		return -E2BIG;
	lines = memdup_user_nul(buffer, count);
	if (IS_ERR(lines))
		return PTR_ERR(lines);
	mutex_lock(&session->lock);
	result = run_lines(session, lines);
	mutex_unlock(&session->lock);
	kfree(lines);
	/* A reply is read from its start. */
	*at = 0;
	return result != 0 ? result : count;
}

static ssize_t chip_read(struct file *file, char __user *buffer, size_t count, loff_t *at)
{
	struct session *session = file->private_data;
	ssize_t result = 0;

	mutex_lock(&session->lock);
	if (!session->reply)
		result = ask(session, "show");
	if (result == 0)
		result = simple_read_from_buffer(buffer, count, at, session->reply,
						 strlen(session->reply));
	mutex_unlock(&session->lock);
	return result;
}

static int chip_open(struct inode *inode, struct file *file)
{
	struct session *session = kzalloc(sizeof(*session), GFP_KERNEL);

	if (!session)
		return -ENOMEM;
	mutex_init(&session->lock);
	file->private_data = session;
	return 0;
}

static int chip_release(struct inode *inode, struct file *file)
{
	struct session *session = file->private_data;

	kvfree(session->reply);
	kfree(session);
	return 0;
}

static const struct proc_ops chip_proc_ops = {
	.proc_open = chip_open,
	.proc_read = chip_read,
	.proc_write = chip_write,
	.proc_lseek = default_llseek,
	.proc_release = chip_release,
};

int chip_proc_start(void)
{
	return proc_create("tarn_chip", 0600, NULL, &chip_proc_ops) ? 0 : -ENOMEM;
}
