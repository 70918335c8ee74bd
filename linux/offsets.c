// SPDX-License-Identifier: GPL-2.0
/*
 * Sizes, offsets and numbers of the kernel that the core is built against. Compiled to assembly, from
 * which Kbuild makes home/offsets.h: C++ never sees a kernel header.
 */
#include <linux/gfp.h>
#include <linux/kbuild.h>
#include <linux/netdevice.h>
#include <linux/ratelimit.h>
#include <linux/skbuff.h>
#include <linux/spinlock.h>

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
	OFFSET(TARN_SKB_TRUESIZE, sk_buff, truesize);
	OFFSET(TARN_SKB_MARK, sk_buff, mark);
	OFFSET(TARN_SKB_PRIORITY, sk_buff, priority);
	OFFSET(TARN_SKB_DEV, sk_buff, dev);
	OFFSET(TARN_SKB_CB, sk_buff, cb);
	DEFINE(TARN_SKB_CB_SIZE, sizeof_field(struct sk_buff, cb));
	DEFINE(TARN_SKB_DROP_REASON, SKB_DROP_REASON_NOT_SPECIFIED);
	return 0;
}
