// SPDX-License-Identifier: GPL-2.0
/*
 * Sizes, offsets and numbers of the kernel that the core is built against. Compiled to assembly, from
 * which Kbuild makes home/offsets.h: C++ never sees a kernel header.
 */
#include <linux/errno.h>
#include <linux/gfp.h>
#include <linux/kbuild.h>
#include <linux/mmzone.h>
#include <linux/netdevice.h>
#include <linux/notifier.h>
#include <linux/preempt.h>
#include <linux/ratelimit.h>
#include <linux/refcount.h>
#include <linux/skbuff.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <net/ipv6.h>

/* A number under its own name, for numbers.cc. */
#define NUMBER(name) DEFINE(TARN_##name, (__force unsigned int)(name))

int main(void)
{
	DEFINE(TARN_GFP_KERNEL, (__force unsigned int)GFP_KERNEL);
	DEFINE(TARN_GFP_ATOMIC, (__force unsigned int)GFP_ATOMIC);
	DEFINE(TARN_GFP_ZERO, (__force unsigned int)__GFP_ZERO);

	DEFINE(TARN_RWLOCK_SIZE, sizeof(rwlock_t));
	DEFINE(TARN_LOCK_KEY_SIZE, sizeof(struct lock_class_key));

	DEFINE(TARN_RATELIMIT_SIZE, sizeof(struct ratelimit_state));
	OFFSET(TARN_RATELIMIT_INTERVAL, ratelimit_state, interval);
	OFFSET(TARN_RATELIMIT_BURST, ratelimit_state, burst);
	OFFSET(TARN_RATELIMIT_MISSED, ratelimit_state, missed);

	OFFSET(TARN_NETDEV_PRIV_FLAGS, net_device, priv_flags);

	OFFSET(TARN_SKB_HEAD, sk_buff, head);
	OFFSET(TARN_SKB_DATA, sk_buff, data);
	OFFSET(TARN_SKB_LEN, sk_buff, len);
	OFFSET(TARN_SKB_DATA_LEN, sk_buff, data_len);
	OFFSET(TARN_SKB_TRUESIZE, sk_buff, truesize);
	OFFSET(TARN_SKB_MARK, sk_buff, mark);
	OFFSET(TARN_SKB_PRIORITY, sk_buff, priority);
	OFFSET(TARN_SKB_DEV, sk_buff, dev);
	OFFSET(TARN_SKB_CB, sk_buff, cb);
	DEFINE(TARN_SKB_CB_SIZE, sizeof_field(struct sk_buff, cb));
	DEFINE(TARN_SKB_DROP_REASON, SKB_DROP_REASON_NOT_SPECIFIED);

	NUMBER(HZ);
	NUMBER(PAGE_SIZE);
	NUMBER(NR_FREE_PAGES);
	NUMBER(NR_ZONE_INACTIVE_FILE);
	NUMBER(NR_ZONE_ACTIVE_FILE);
	NUMBER(SOFTIRQ_DISABLE_OFFSET);
	NUMBER(SLAB_NOLEAKTRACE);
	NUMBER(SKB_REASON_DROPPED);
	NUMBER(NEXTHDR_HOP);
	NUMBER(NEXTHDR_NONE);
	NUMBER(IFF_UP);
	NUMBER(IFF_BROADCAST);
	NUMBER(IFF_RUNNING);
	NUMBER(IFF_MULTICAST);
	NUMBER(IFF_BRIDGE_PORT);

	NUMBER(NOTIFY_DONE);
	DEFINE(TARN_NOTIFIER_SIZE, sizeof(struct notifier_block));
	OFFSET(TARN_NOTIFIER_CALL, notifier_block, notifier_call);
	OFFSET(TARN_NOTIFIER_NEXT, notifier_block, next);
	OFFSET(TARN_NOTIFIER_PRIORITY, notifier_block, priority);

	DEFINE(TARN_REFCOUNT_SIZE, sizeof(refcount_t));
	NUMBER(REFCOUNT_ADD_NOT_ZERO_OVF);
	NUMBER(REFCOUNT_ADD_OVF);
	NUMBER(REFCOUNT_ADD_UAF);
	NUMBER(REFCOUNT_SUB_UAF);
	NUMBER(REFCOUNT_DEC_LEAK);

	NUMBER(EPERM);
	NUMBER(ENOENT);
	NUMBER(ENOMEM);
	NUMBER(EFAULT);
	NUMBER(EEXIST);
	NUMBER(ENODEV);
	NUMBER(EINVAL);
	NUMBER(EOPNOTSUPP);
	NUMBER(ENETDOWN);
	return 0;
}
