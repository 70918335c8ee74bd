// SPDX-License-Identifier: GPL-2.0
/*
 * Ports on network devices. A receive handler takes every frame of the device, in softirq, and queues
 * it; one thread makes each what the chip expects and runs the chip, since the core is called from
 * process context only.
 */
#include <linux/etherdevice.h>
#include <linux/if_arp.h>
#include <linux/if_vlan.h>
#include <linux/kthread.h>
#include <linux/mutex.h>
#include <linux/netdevice.h>
#include <linux/refcount.h>
#include <linux/rtnetlink.h>
#include <linux/skbuff.h>
#include <linux/slab.h>
#include <linux/wait.h>
#include <linux/workqueue.h>

#include "../port.h"
#include "home.h"

#define QUEUE_LIMIT 4096 /* frames that wait for the thread, of all ports */

struct chip_device {
	struct net_device *dev; /* held */
	u32 slot;
	refcount_t references;
	atomic_long_t lost;
	bool attached; /* under RTNL */
	struct work_struct gone;
};

struct arrived_cb {
	struct chip_device *device; /* with a reference */
};

#define ARRIVED(skb) ((struct arrived_cb *)(skb)->cb)

static struct sk_buff_head arrived;
static DECLARE_WAIT_QUEUE_HEAD(arrival);
static DEFINE_MUTEX(command_lock);

/* --- arriving ------------------------------------------------------------------------------------- */

static rx_handler_result_t take_frame(struct sk_buff **pskb)
{
	struct sk_buff *skb = *pskb;
	struct chip_device *device = rcu_dereference(skb->dev->rx_handler_data);

	if (skb->pkt_type == PACKET_LOOPBACK)
		return RX_HANDLER_PASS;
	skb = skb_share_check(skb, GFP_ATOMIC);
	if (!skb) {
		atomic_long_inc(&device->lost);
		return RX_HANDLER_CONSUMED;
	}
	if (skb_queue_len_lockless(&arrived) >= QUEUE_LIMIT) {
		atomic_long_inc(&device->lost);
		kfree_skb(skb);
		return RX_HANDLER_CONSUMED;
	}
	chip_port_get(device);
	ARRIVED(skb)->device = device;
	skb_queue_tail(&arrived, skb);
	wake_up(&arrival);
	return RX_HANDLER_CONSUMED;
}

/* Linear, its bytes nobody else's, checksums in place: as a frame of a chip is. Null: it is gone. */
static struct sk_buff *make_plain(struct sk_buff *skb)
{
	if (skb_linearize(skb) != 0 || skb_unclone(skb, GFP_KERNEL) != 0)
		goto drop;
	if (skb->ip_summed == CHECKSUM_PARTIAL && skb_checksum_help(skb) != 0)
		goto drop;
	skb->ip_summed = CHECKSUM_NONE;
	skb_orphan(skb);
	skb_scrub_packet(skb, false);
	skb_clear_tstamp(skb);
	skb_reset_mac_header(skb);
	/* The core may keep the frame for longer than the device lives. */
	skb->dev = NULL;
	return skb;
drop:
	kfree_skb(skb);
	return NULL;
}

/* Large frames, that were put together on the way or never cut, are cut. */
static struct sk_buff *cut(struct sk_buff *skb)
{
	struct sk_buff *segments;

	if (!skb_is_gso(skb))
		return skb;
	segments = __skb_gso_segment(skb, 0, false);
	if (!segments) /* its sender only counted on being cut */
		return skb;
	if (IS_ERR(segments)) {
		kfree_skb(skb);
		return NULL;
	}
	consume_skb(skb);
	return segments;
}

static void receive(struct sk_buff *skb)
{
	struct chip_device *device = ARRIVED(skb)->device;
	struct sk_buff *next;

	skb_push(skb, skb->data - skb_mac_header(skb));
	skb_reset_mac_len(skb);
	if (skb_vlan_tag_present(skb))
		skb = __vlan_hwaccel_push_inside(skb);
	if (skb)
		skb = cut(skb);
	if (!skb)
		atomic_long_inc(&device->lost);
	for (; skb; skb = next) {
		next = skb->next;
		skb_mark_not_on_list(skb);
		skb = make_plain(skb);
		if (skb)
			chip_receive(device, device->slot, skb);
		else
			atomic_long_inc(&device->lost);
	}
	chip_port_put(device);
}

static int receive_all(void *unused)
{
	unsigned long tick = jiffies + HZ;
	struct sk_buff *skb;

	while (!kthread_should_stop()) {
		wait_event_idle_timeout(arrival, !skb_queue_empty_lockless(&arrived), HZ);
		skb = skb_dequeue(&arrived);
		if (skb)
			receive(skb);
		if (time_after_eq(jiffies, tick)) {
			chip_tick();
			tick = jiffies + HZ;
		}
		cond_resched();
	}
	return 0;
}

/* --- leaving -------------------------------------------------------------------------------------- */

int chip_port_send(struct chip_device *device, struct sk_buff *skb)
{
	int result;

	if (!netif_running(device->dev) || !netif_carrier_ok(device->dev)) {
		kfree_skb(skb);
		return -ENETDOWN;
	}
	skb_reset_mac_header(skb);
	skb_set_network_header(skb, ETH_HLEN);
	skb->protocol = eth_hdr(skb)->h_proto;
	skb->dev = device->dev;
	result = dev_queue_xmit(skb);
	return net_xmit_eval(result) == 0 ? 0 : -ENOBUFS;
}

/* Work that is left travels in the frame itself, and the thread does it before the chip has the frame. */
int chip_port_send_unfinished(struct chip_device *device, struct sk_buff *skb,
			      const struct chip_work *work)
{
	return chip_port_send(device, skb);
}

void chip_port_finish(struct sk_buff *skb, const struct chip_work *work,
		      void (*take)(void *context, struct sk_buff *skb), void *context)
{
	take(context, skb);
}

/* --- opening and closing -------------------------------------------------------------------------- */

static void detach(struct chip_device *device)
{
	ASSERT_RTNL();
	if (!device->attached)
		return;
	device->attached = false;
	netdev_rx_handler_unregister(device->dev);
	dev_set_promiscuity(device->dev, -1);
}

static int attach(struct chip_device *device, const char *name)
{
	struct net_device *dev = __dev_get_by_name(&init_net, name);
	int result;

	if (!dev)
		return -ENODEV;
	if (dev->type != ARPHRD_ETHER || (dev->flags & IFF_LOOPBACK))
		return -EINVAL;
	result = netdev_rx_handler_register(dev, take_frame, device);
	if (result != 0)
		return result;
	result = dev_set_promiscuity(dev, 1);
	if (result != 0) {
		netdev_rx_handler_unregister(dev);
		return result;
	}
	dev_disable_lro(dev);
	dev_hold(dev);
	device->dev = dev;
	device->attached = true;
	return 0;
}

static void close_gone(struct work_struct *work)
{
	struct chip_device *device = container_of(work, struct chip_device, gone);

	chip_device_gone(device, device->slot);
	chip_port_put(device);
}

/* Under RTNL, which commands take inside their own lock: the rest is for later. */
static int device_event(struct notifier_block *block, unsigned long event, void *info)
{
	struct net_device *dev = netdev_notifier_info_to_dev(info);
	struct chip_device *device;

	if (event != NETDEV_UNREGISTER || rtnl_dereference(dev->rx_handler) != take_frame)
		return NOTIFY_DONE;
	device = rtnl_dereference(dev->rx_handler_data);
	detach(device);
	chip_port_get(device);
	schedule_work(&device->gone);
	return NOTIFY_DONE;
}

int chip_port_open(const char *name, uint32_t slot, struct chip_device **opened)
{
	struct chip_device *device = kzalloc(sizeof(*device), GFP_KERNEL);
	int result;

	if (!device)
		return -ENOMEM;
	device->slot = slot;
	refcount_set(&device->references, 1);
	INIT_WORK(&device->gone, close_gone);
	/* Before the first frame can arrive. */
	*opened = device;
	rtnl_lock();
	result = attach(device, name);
	rtnl_unlock();
	if (result != 0)
		kfree(device);
	return result;
}

void chip_port_close(struct chip_device *device)
{
	rtnl_lock();
	detach(device);
	rtnl_unlock();
	chip_port_put(device);
}

void chip_port_get(struct chip_device *device)
{
	refcount_inc(&device->references);
}

void chip_port_put(struct chip_device *device)
{
	if (!refcount_dec_and_test(&device->references))
		return;
	dev_put(device->dev);
	kfree(device);
}

unsigned long chip_port_lost(struct chip_device *device)
{
	return atomic_long_read(&device->lost);
}

int chip_port_is(const struct chip_device *device, const struct net_device *netdev)
{
	return device->dev == netdev;
}

void chip_commands_begin(void)
{
	mutex_lock(&command_lock);
}

void chip_commands_end(void)
{
	mutex_unlock(&command_lock);
}

static struct notifier_block watch = { .notifier_call = device_event };

static struct task_struct *thread;

int chip_devices_prepare(void)
{
	int result;

	skb_queue_head_init(&arrived);
	thread = kthread_create(receive_all, NULL, "tarn_chip");
	if (IS_ERR(thread))
		return PTR_ERR(thread);
	result = register_netdevice_notifier(&watch);
	if (result != 0)
		kthread_stop(thread);
	return result;
}

void chip_devices_start(void)
{
	wake_up_process(thread);
}
