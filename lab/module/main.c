// SPDX-License-Identifier: GPL-2.0
/*
 * tarn_lab: hands frames to the loaded tarnfwd from inside the kernel, as a driver does, and declares
 * interfaces to it until a control family can.
 *
 * tarnfwd exports what its driver needs and nothing else, so the addresses of the other functions come
 * as module parameters, read from /proc/kallsyms by the test that loads this module.
 *
 * /proc/tarn_lab, one command a write; what the core refuses is the error of the write:
 *   port IFINDEX NAME MAC [routed]    a switch port, up, without link; routed: with a device
 *   ethernet IFINDEX NAME MAC         an interface whose device is the kernel's
 *   aggregator IFINDEX NAME MAC TYPE
 *   attach AGGREGATOR PORT
 *   vlan VID MAC [OPTIONS]            a VLAN interface with its device
 *   member VID IFINDEX tagged|untagged
 *                                     untagged: and the VLAN of the port's untagged frames
 *   nomember VID IFINDEX
 *   stp IFINDEX STATE                 in every instance
 *   link IFINDEX up|down              the port gained or lost its link
 *   flags IFINDEX FLAGS               its IFF_UP and IFF_RUNNING, all at once
 *   filter IFINDEX ON                 frames of VLANs that the port is no member of are refused
 *   shut IFINDEX VID ON               the port is closed for the VLAN
 *   ring VID ON                       a control VLAN of ring protection
 *   delete IFINDEX
 *   show IFINDEX                      what reading shows beside the counters from now on
 *   enable NAME | disable NAME
 *   udld IFINDEX ON FILTER            whether the protocol is on, and what becomes of a port's frames
 *   frames COUNT IFINDEX VID LOCAL [FLAGS] HEX
 *                                     COUNT copies of the frame, delivered from process context;
 *                                     FLAGS are of its meta data, added to those of "meta"; HEX "-" is a
 *                                     frame of no bytes
 *   meta CODE FLAGS EXTRA             what the chip says of frames from now on; 0 0 0 at first
 *   leak BYTES                        memory that is lost, for who looks for such
 * Reading gives the counters of the chain, and a line of the interface that "show" named:
 *   if: IFINDEX NAME flags HEX below RUNNING_PORTS device 0|1
 */
#include <linux/etherdevice.h>
#include <linux/module.h>
#include <linux/proc_fs.h>
#include <linux/seq_file.h>
#include <linux/skbuff.h>
#include <linux/slab.h>
#include <linux/uaccess.h>

#include "switch_control.h"
#include "tarn/rxtx_hw.h"

struct lab_core lab_core;

#define LAB_CORE_PARAMETER(name, symbol) module_param_named(name, lab_core.name, ulong, 0);
LAB_CORE_FUNCTIONS(LAB_CORE_PARAMETER)

static unsigned int shown;
static u32 said_code, said_flags, said_extra; // by "meta"

static int deliver(const u8 *bytes, unsigned int length, u32 ifindex, u32 vid, u32 local, u32 flags)
{
	struct tarn_rx_meta meta = {
		.debug = 1, .flood_except = { ~0u, 0 }, .local = local, .local_post_kernel = 0,
		.code = said_code, .flags = flags | said_flags, .extra = said_extra,
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
	unsigned int count, ifindex, vid, local, flags = 0, i, length = strlen(hex) / 2;
	int result = 0;

	if (sscanf(arguments, "%u %u %u %u %u", &count, &ifindex, &vid, &local, &flags) < 4)
		return -EINVAL;
	if (hex2bin((u8 *)hex, hex, length) != 0)
		return -EINVAL;
	for (i = 0; i < count && result == 0; i++) {
		result = deliver((u8 *)hex, length, ifindex, vid, local, flags);
		cond_resched();
	}
	return result;
}

/* Full of 'Z', so that it is known when it is found. */
static int lose(unsigned int bytes)
{
	void *lost = kmalloc(bytes, GFP_KERNEL);

	if (!lost)
		return -ENOMEM;
	memset(lost, 'Z', bytes);
	barrier_data(lost);
	return 0;
}

/* Words with a name and an address in them. */
static int declare(const char *line)
{
	unsigned int ifindex, type;
	char name[24], mac[18], routed[8] = "";
	u8 address[ETH_ALEN];

	if (sscanf(line, "port %u %23s %17s %7s", &ifindex, name, mac, routed) >= 3)
		return mac_pton(mac, address) ? lab_port(ifindex, name, address, *routed) : -EINVAL;
	if (sscanf(line, "ethernet %u %23s %17s", &ifindex, name, mac) == 3)
		return mac_pton(mac, address) ? lab_ethernet(ifindex, name, address) : -EINVAL;
	if (sscanf(line, "aggregator %u %23s %17s %u", &ifindex, name, mac, &type) == 4)
		return mac_pton(mac, address) ? lab_aggregator(ifindex, name, address, type) : -EINVAL;
	type = 0;
	if (sscanf(line, "vlan %u %17s %u", &ifindex, mac, &type) >= 2)
		return mac_pton(mac, address) ? lab_vlan(ifindex, address, type) : -EINVAL;
	return -ENOMSG;
}

/* Words with a number or two, and perhaps a choice. */
static int set(const char *line)
{
	char choice[12], name[24];
	unsigned int a, b, c;

	if (sscanf(line, "attach %u %u", &a, &b) == 2)
		return lab_attach(a, b);
	if (sscanf(line, "member %u %u %11s", &a, &b, choice) == 3)
		return lab_member(a, b, strcmp(choice, "tagged") == 0);
	if (sscanf(line, "nomember %u %u", &a, &b) == 2)
		return lab_no_member(a, b);
	if (sscanf(line, "stp %u %u", &a, &b) == 2)
		return lab_stp(a, b);
	if (sscanf(line, "link %u %11s", &a, choice) == 2)
		return lab_link(a, strcmp(choice, "up") == 0);
	if (sscanf(line, "flags %u %u", &a, &b) == 2)
		return lab_flags(a, b);
	if (sscanf(line, "filter %u %u", &a, &b) == 2)
		return lab_filter(a, b);
	if (sscanf(line, "shut %u %u %u", &a, &b, &c) == 3)
		return lab_shut(a, b, c);
	if (sscanf(line, "ring %u %u", &a, &b) == 2)
		return lab_ring(a, b);
	if (sscanf(line, "udld %u %u %u", &a, &b, &c) == 3)
		return lab_udld(a, b, c);
	if (sscanf(line, "delete %u", &a) == 1)
		return lab_delete(a);
	if (sscanf(line, "enable %23s", name) == 1)
		return lab_enable(name, 1);
	if (sscanf(line, "disable %23s", name) == 1)
		return lab_enable(name, 0);
	return -ENOMSG;
}

static int command(char *line)
{
	unsigned int number;
	char *hex;
	int result;

	if (strncmp(line, "frames ", 7) == 0) {
		hex = strrchr(line, ' ');
		*hex = '\0';
		return frames(line + 7, hex + 1);
	}
	if (sscanf(line, "show %u", &number) == 1) {
		shown = number;
		return 0;
	}
	if (sscanf(line, "meta %u %i %i", &said_code, &said_flags, &said_extra) == 3)
		return 0;
	if (sscanf(line, "leak %u", &number) == 1)
		return lose(number);
	result = declare(line);
	return result == -ENOMSG ? set(line) : result;
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

static int show(struct seq_file *view, void *unused)
{
	lab_counters(view);
	lab_show(view, shown);
	return 0;
}

static int lab_open(struct inode *inode, struct file *file)
{
	return single_open(file, show, NULL);
}

static const struct proc_ops lab_ops = {
	.proc_open = lab_open,
	.proc_read = seq_read,
	.proc_lseek = seq_lseek,
	.proc_release = single_release,
	.proc_write = lab_write,
};

/* Bit 0 of a Thumb function's address says what it is; /proc/kallsyms leaves it out. */
#ifdef CONFIG_THUMB2_KERNEL
#define CALLABLE 1
#else
#define CALLABLE 0
#endif

static int __init lab_init(void)
{
#define LAB_CORE_CHECK(name, symbol)                                                               \
	if (!lab_core.name) {                                                                      \
		pr_err("tarn_lab: the address of " #name " is missing\n");                         \
		return -EINVAL;                                                                    \
	}                                                                                          \
	lab_core.name |= CALLABLE;
	LAB_CORE_FUNCTIONS(LAB_CORE_CHECK)
	return proc_create("tarn_lab", 0600, NULL, &lab_ops) ? 0 : -ENOMEM;
}

module_init(lab_init);
MODULE_LICENSE("GPL v2");
