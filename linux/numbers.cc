// Whether the numbers and layouts that the kernel interface writes down are this kernel's. No code:
// a difference ends the build.
#include "home/offsets.h"
#include "kernel/errno.h"
#include "kernel/ipv6.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/preempt.h"
#include "kernel/refcount.h"
#include "kernel/skb.h"
#include "kernel/sock.h"
#include "kernel/time.h"
#include "kernel/vmstat.h"

static_assert(JIFFIES_PER_SECOND == TARN_HZ);
static_assert(TARN_PAGE_SIZE == 4096, "free memory is counted in pages of 4096 bytes");
static_assert(NR_FREE_PAGES == TARN_NR_FREE_PAGES);
static_assert(NR_ZONE_INACTIVE_FILE == TARN_NR_ZONE_INACTIVE_FILE);
static_assert(NR_ZONE_ACTIVE_FILE == TARN_NR_ZONE_ACTIVE_FILE);
static_assert(SOFTIRQ_DISABLE_OFFSET == TARN_SOFTIRQ_DISABLE_OFFSET);

static_assert(SLAB_NOLEAKTRACE == TARN_SLAB_NOLEAKTRACE);
static_assert(SKB_REASON_DROPPED == TARN_SKB_REASON_DROPPED);
static_assert(NEXTHDR_HOP == TARN_NEXTHDR_HOP);
static_assert(NEXTHDR_NONE == TARN_NEXTHDR_NONE);

static_assert(IFF_UP == TARN_IFF_UP);
static_assert(IFF_BROADCAST == TARN_IFF_BROADCAST);
static_assert(IFF_RUNNING == TARN_IFF_RUNNING);
static_assert(IFF_MULTICAST == TARN_IFF_MULTICAST);
static_assert(IFF_BRIDGE_PORT == TARN_IFF_BRIDGE_PORT);

static_assert(IFF_NO_QUEUE == TARN_IFF_NO_QUEUE);
static_assert(IF_OPER_UP == TARN_IF_OPER_UP);
static_assert(NETDEV_NAME_SIZE == TARN_IFNAMSIZ);
static_assert(NETDEV_ADDRESS_SIZE == TARN_ETH_ALEN);
static_assert(SIOCSHWTSTAMP == TARN_SIOCSHWTSTAMP);
static_assert(SIOCGHWTSTAMP == TARN_SIOCGHWTSTAMP);
static_assert(NETDEV_UP == TARN_NETDEV_UP);
static_assert(NETDEV_DOWN == TARN_NETDEV_DOWN);
static_assert(NETDEV_CHANGE == TARN_NETDEV_CHANGE);
static_assert(NETDEV_UNREGISTER == TARN_NETDEV_UNREGISTER);
static_assert(offsetof(net_device_stats, rx_bytes) == TARN_STATS_RX_BYTES);
static_assert(offsetof(net_device_stats, rx_dropped) == TARN_STATS_RX_DROPPED);
static_assert(offsetof(net_device_stats, multicast) == TARN_STATS_MULTICAST);

static_assert(NOTIFY_DONE == TARN_NOTIFY_DONE);
static_assert(sizeof(notifier_block) == TARN_NOTIFIER_SIZE);
static_assert(offsetof(notifier_block, notifier_call) == TARN_NOTIFIER_CALL);
static_assert(offsetof(notifier_block, next) == TARN_NOTIFIER_NEXT);
static_assert(offsetof(notifier_block, priority) == TARN_NOTIFIER_PRIORITY);

static_assert(sizeof(refcount_t) == TARN_REFCOUNT_SIZE);
static_assert(REFCOUNT_ADD_NOT_ZERO_OVF == TARN_REFCOUNT_ADD_NOT_ZERO_OVF);
static_assert(REFCOUNT_ADD_OVF == TARN_REFCOUNT_ADD_OVF);
static_assert(REFCOUNT_ADD_UAF == TARN_REFCOUNT_ADD_UAF);
static_assert(REFCOUNT_SUB_UAF == TARN_REFCOUNT_SUB_UAF);
static_assert(REFCOUNT_DEC_LEAK == TARN_REFCOUNT_DEC_LEAK);

static_assert(SOCKET_TYPE_RAW == TARN_SOCK_RAW);
static_assert(SOCKET_UNCONNECTED == TARN_SS_UNCONNECTED);
static_assert(SOCKET_MSG_TRUNC == TARN_MSG_TRUNC);
static_assert(SOCKET_MSG_DONTWAIT == TARN_MSG_DONTWAIT);
static_assert(SOCKET_CAP_NET_RAW == TARN_CAP_NET_RAW);

static_assert(EPERM == TARN_EPERM);
static_assert(ENOENT == TARN_ENOENT);
static_assert(ESRCH == TARN_ESRCH);
static_assert(EBUSY == TARN_EBUSY);
static_assert(EMSGSIZE == TARN_EMSGSIZE);
static_assert(ENOMEM == TARN_ENOMEM);
static_assert(EFAULT == TARN_EFAULT);
static_assert(EEXIST == TARN_EEXIST);
static_assert(ENODEV == TARN_ENODEV);
static_assert(EINVAL == TARN_EINVAL);
static_assert(ESOCKTNOSUPPORT == TARN_ESOCKTNOSUPPORT);
static_assert(EOPNOTSUPP == TARN_EOPNOTSUPP);
static_assert(EAFNOSUPPORT == TARN_EAFNOSUPPORT);
static_assert(ENOBUFS == TARN_ENOBUFS);
static_assert(ENETDOWN == TARN_ENETDOWN);
static_assert(ERANGE == TARN_ERANGE);
static_assert(EADDRNOTAVAIL == TARN_EADDRNOTAVAIL);
