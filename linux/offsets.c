// SPDX-License-Identifier: GPL-2.0
/*
 * Sizes, offsets and numbers of the kernel that the core is built against. Compiled to assembly, from
 * which Kbuild makes home/offsets.h: C++ never sees a kernel header.
 */
#include <linux/capability.h>
#include <linux/errno.h>
#include <linux/gfp.h>
#include <linux/etherdevice.h>
#include <linux/kbuild.h>
#include <linux/mmzone.h>
#include <linux/net.h>
#include <linux/netdevice.h>
#include <linux/notifier.h>
#include <linux/preempt.h>
#include <linux/ratelimit.h>
#include <linux/refcount.h>
#include <linux/skbuff.h>
#include <linux/slab.h>
#include <linux/socket.h>
#include <linux/spinlock.h>
#include <linux/sockios.h>
#include <linux/workqueue.h>
#include <net/ipv6.h>
#include <net/sock.h>

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

	OFFSET(TARN_NETDEV_NAME, net_device, name);
	OFFSET(TARN_NETDEV_IFINDEX, net_device, ifindex);
	OFFSET(TARN_NETDEV_FLAGS, net_device, flags);
	OFFSET(TARN_NETDEV_PRIV_FLAGS, net_device, priv_flags);
	OFFSET(TARN_NETDEV_MTU, net_device, mtu);
	OFFSET(TARN_NETDEV_MIN_MTU, net_device, min_mtu);
	OFFSET(TARN_NETDEV_MAX_MTU, net_device, max_mtu);
	OFFSET(TARN_NETDEV_HARD_HEADER_LEN, net_device, hard_header_len);
	OFFSET(TARN_NETDEV_TYPE, net_device, type);
	OFFSET(TARN_NETDEV_ADDR_LEN, net_device, addr_len);
	OFFSET(TARN_NETDEV_DEV_ADDR, net_device, dev_addr);
	OFFSET(TARN_NETDEV_PERM_ADDR, net_device, perm_addr);
	OFFSET(TARN_NETDEV_STATS, net_device, stats);
	DEFINE(TARN_NETDEV_PRIV, ALIGN(sizeof(struct net_device), NETDEV_ALIGN));
	OFFSET(TARN_STATS_MULTICAST, net_device_stats, multicast);
	OFFSET(TARN_STATS_RX_DROPPED, net_device_stats, rx_dropped);
	OFFSET(TARN_STATS_RX_BYTES, net_device_stats, rx_bytes);

	DEFINE(TARN_WORK_SIZE, sizeof(struct work_struct));
	DEFINE(TARN_MUTEX_SIZE, sizeof(struct mutex));

	OFFSET(TARN_SOCK_RMEM_ALLOC, sock, sk_backlog.rmem_alloc);
	OFFSET(TARN_SOCK_QUEUE_LENGTH, sock, sk_receive_queue.qlen);
	OFFSET(TARN_SOCK_DROPS, sock, sk_drops);
	OFFSET(TARN_SOCK_RCVBUF, sock, sk_rcvbuf);
	DEFINE(TARN_SOCK_BIND_NODE, offsetof(struct sock, sk_bind_node));
	DEFINE(TARN_SOCK_REFCNT, offsetof(struct sock, sk_refcnt));
	DEFINE(TARN_SOCK_FAMILY, offsetof(struct sock, sk_family));
	OFFSET(TARN_SOCK_PROTOCOL, sock, sk_protocol);
	OFFSET(TARN_SOCK_DESTRUCT, sock, sk_destruct);
	OFFSET(TARN_SOCKET_STATE, socket, state);
	OFFSET(TARN_SOCKET_TYPE, socket, type);
	OFFSET(TARN_SOCKET_SK, socket, sk);
	OFFSET(TARN_MSG_NAME, msghdr, msg_name);
	OFFSET(TARN_MSG_NAMELEN, msghdr, msg_namelen);
	OFFSET(TARN_MSG_ITER, msghdr, msg_iter);
	OFFSET(TARN_MSG_FLAGS, msghdr, msg_flags);
	DEFINE(TARN_PACKET_TYPE_SIZE, sizeof(struct packet_type));
	OFFSET(TARN_PACKET_TYPE_TYPE, packet_type, type);
	OFFSET(TARN_PACKET_TYPE_FUNC, packet_type, func);

	OFFSET(TARN_SKB_HEAD, sk_buff, head);
	OFFSET(TARN_SKB_DATA, sk_buff, data);
	OFFSET(TARN_SKB_LEN, sk_buff, len);
	OFFSET(TARN_SKB_DATA_LEN, sk_buff, data_len);
	OFFSET(TARN_SKB_TRUESIZE, sk_buff, truesize);
	OFFSET(TARN_SKB_MARK, sk_buff, mark);
	OFFSET(TARN_SKB_PRIORITY, sk_buff, priority);
	OFFSET(TARN_SKB_DEV, sk_buff, dev);
	OFFSET(TARN_SKB_PROTOCOL, sk_buff, protocol);
	OFFSET(TARN_SKB_MAC_HEADER, sk_buff, mac_header);
	OFFSET(TARN_SKB_CB, sk_buff, cb);
	OFFSET(TARN_SKB_USERS, sk_buff, users);
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
	NUMBER(IFF_NO_QUEUE);
	NUMBER(IF_OPER_UP);
	NUMBER(IFNAMSIZ);
	NUMBER(ETH_ALEN);
	NUMBER(SIOCSHWTSTAMP);
	NUMBER(SIOCGHWTSTAMP);
	NUMBER(NETDEV_UP);
	NUMBER(NETDEV_DOWN);
	NUMBER(NETDEV_CHANGE);
	NUMBER(NETDEV_UNREGISTER);

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

	NUMBER(SOCK_RAW);
	NUMBER(SS_UNCONNECTED);
	NUMBER(MSG_TRUNC);
	NUMBER(MSG_DONTWAIT);
	NUMBER(CAP_NET_RAW);

	NUMBER(EPERM);
	NUMBER(ENOENT);
	NUMBER(ESRCH);
	NUMBER(EBUSY);
	NUMBER(EMSGSIZE);
	NUMBER(ENOMEM);
	NUMBER(EFAULT);
	NUMBER(EEXIST);
	NUMBER(ENODEV);
	NUMBER(EINVAL);
	NUMBER(ERANGE);
	NUMBER(EADDRNOTAVAIL);
	NUMBER(ESOCKTNOSUPPORT);
	NUMBER(EOPNOTSUPP);
	NUMBER(EAFNOSUPPORT);
	NUMBER(ENOBUFS);
	NUMBER(ENETDOWN);
	return 0;
}
