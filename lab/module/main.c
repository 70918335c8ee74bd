// SPDX-License-Identifier: GPL-2.0
/*
 * tarn_lab: hands frames to the loaded tarnfwd from inside the kernel, as a driver does, and declares
 * interfaces to it until a control family can.
 *
 * tarnfwd exports what its driver needs and nothing else, so the addresses of the other functions come
 * as module parameters, read from /proc/kallsyms by the test that loads this module.
 *
 * /proc/tarn_lab, one command a write:
 *   port IFINDEX             a switch port, up and running, member of no VLAN
 *   vlan VID                 a VLAN interface, MAC 02:00:00:00:00:01
 *   member IFINDEX VID       makes the port a member
 *   enable NAME | disable NAME
 *   frames COUNT IFINDEX VID LOCAL HEX
 *                            COUNT copies of the frame, delivered from process context; HEX "-" is a
 *                            frame of no bytes
 * Reading gives the counters of the chain.
 */
#include <linux/module.h>
#include <linux/proc_fs.h>
#include <linux/seq_file.h>
#include <linux/skbuff.h>
#include <linux/slab.h>
#include <linux/uaccess.h>

#include "switch_control.h"
#include "tarn/rxtx_hw.h"

struct lab_core lab_core;

module_param_named(alloc, lab_core.alloc, ulong, 0);
module_param_named(install, lab_core.install, ulong, 0);
module_param_named(lookup, lab_core.lookup, ulong, 0);
module_param_named(put, lab_core.put, ulong, 0);
module_param_named(print, lab_core.print, ulong, 0);
module_param_named(enable, lab_core.enable, ulong, 0);

static int deliver(const u8 *bytes, unsigned int length, u32 ifindex, u32 vid, u32 local)
{
	struct tarn_rx_meta meta = {
		.debug = 1, .flood_except = { ~0u, 0 }, .local = local, .local_post_kernel = 0,
	};
	struct sk_buff *skb = __netdev_alloc_skb(NULL, length, GFP_KERNEL);

	if (!skb)
		return -ENOMEM;
	skb_put_data(skb, bytes, length);
	if (rxtx_hw_packet_recv(skb, ifindex, vid, &meta) != 0)
		kfree_skb(skb);
	return 0;
}

static int frames(const char *arguments, char *hex)
{
	unsigned int count, ifindex, vid, local, i, length = strlen(hex) / 2;
	int result = 0;

	if (sscanf(arguments, "%u %u %u %u", &count, &ifindex, &vid, &local) != 4)
		return -EINVAL;
	if (hex2bin((u8 *)hex, hex, length) != 0)
		return -EINVAL;
	for (i = 0; i < count && result == 0; i++) {
		result = deliver((u8 *)hex, length, ifindex, vid, local);
		cond_resched();
	}
	return result;
}

static int command(char *line)
{
	unsigned int a, b;
	char name[24];
	char *hex;

	if (strncmp(line, "frames ", 7) == 0) {
		hex = strrchr(line, ' ');
		*hex = '\0';
		return frames(line + 7, hex + 1);
	}
	if (sscanf(line, "port %u", &a) == 1)
		return lab_port(a);
	if (sscanf(line, "vlan %u", &a) == 1)
		return lab_vlan(a);
	if (sscanf(line, "member %u %u", &a, &b) == 2)
		return lab_member(a, b);
	if (sscanf(line, "enable %23s", name) == 1)
		return lab_enable(name, 1);
	if (sscanf(line, "disable %23s", name) == 1)
		return lab_enable(name, 0);
	return -EINVAL;
}

static ssize_t lab_write(struct file *file, const char __user *text, size_t length, loff_t *at)
{
	char *line = memdup_user_nul(text, length);
	int result;

	if (IS_ERR(line))
		return PTR_ERR(line);
	result = command(strim(line));
	kfree(line);
	return result < 0 ? result : (ssize_t)length;
}

static int lab_show(struct seq_file *view, void *unused)
{
	lab_counters(view);
	return 0;
}

static int lab_open(struct inode *inode, struct file *file)
{
	return single_open(file, lab_show, NULL);
}

static const struct proc_ops lab_ops = {
	.proc_open = lab_open,
	.proc_read = seq_read,
	.proc_lseek = seq_lseek,
	.proc_release = single_release,
	.proc_write = lab_write,
};

/* Bit 0 of a Thumb function's address says what it is; /proc/kallsyms leaves it out. */
static void call_as_thumb(void)
{
#ifdef CONFIG_THUMB2_KERNEL
	lab_core.alloc |= 1;
	lab_core.install |= 1;
	lab_core.lookup |= 1;
	lab_core.put |= 1;
	lab_core.print |= 1;
	lab_core.enable |= 1;
#endif
}

static int __init lab_init(void)
{
	if (!lab_core.alloc || !lab_core.install || !lab_core.lookup || !lab_core.put ||
	    !lab_core.print || !lab_core.enable) {
		pr_err("tarn_lab: the address of a function of tarnfwd is missing\n");
		return -EINVAL;
	}
	call_as_thumb();
	return proc_create("tarn_lab", 0600, NULL, &lab_ops) ? 0 : -ENOMEM;
}

module_init(lab_init);
MODULE_LICENSE("GPL v2");
