// SPDX-License-Identifier: GPL-2.0
/*
 * Neighbours of the IP stack behind the switch's ports. This kernel's tables know no port, so it is kept
 * here what port the ARP and neighbour discovery of a station came in by; a flush looks there.
 */
#include <linux/etherdevice.h>
#include <linux/icmpv6.h>
#include <linux/if_arp.h>
#include <linux/ipv6.h>
#include <linux/jhash.h>
#include <linux/netdevice.h>
#include <net/arp.h>
#include <net/ipv6.h>
#include <net/ndisc.h>

#include "device_glue.h"

/* A VLAN device of ours has the ifindex of its VLAN's interface. */
#define VLAN_IFINDEX_BASE 300

/* --- stations ------------------------------------------------------------------------------------ */

/* In sets; the oldest of a full one gives way. */
#define SETS 1024
#define WAYS 4

struct station {
	int device;
	u32 port;
	u8 mac[ETH_ALEN];
};

/* How many stations there are behind a port of a device, or of one that shares its place: where there are
 * none, the neighbours need not be looked through. */
#define PLACES 4096

static struct {
	struct station all[SETS][WAYS];
	u8 next[SETS];
	u16 behind[PLACES];
	bool gave_way; /* some ever */
} stations;
static DEFINE_SPINLOCK(stations_lock);

static u16 *place_of(int device, u32 port)
{
	return &stations.behind[jhash_2words(device, port, 0) % PLACES];
}

static unsigned int set_of(int device, const u8 *mac)
{
	return jhash(mac, ETH_ALEN, device) % SETS;
}

static struct station *find_station(unsigned int set, int device, const u8 *mac)
{
	int way;

	for (way = 0; way < WAYS; way++) {
		struct station *each = &stations.all[set][way];

		if (each->device == device && ether_addr_equal_unaligned(each->mac, mac))
			return each;
	}
	return NULL;
}

static void learn(int device, const u8 *mac, u32 port)
{
	unsigned int set = set_of(device, mac);
	struct station *station;

	spin_lock_bh(&stations_lock);
	station = find_station(set, device, mac);
	if (!station) {
		station = &stations.all[set][stations.next[set]++ % WAYS];
		if (station->device) {
			(*place_of(station->device, station->port))--;
			stations.gave_way = 1;
		}
		station->device = device;
		ether_addr_copy(station->mac, mac);
	} else {
		(*place_of(device, station->port))--;
	}
	station->port = port;
	(*place_of(device, port))++;
	spin_unlock_bh(&stations_lock);
}

/* Of one that has given way, any port: it comes back when it is wanted. What was never learned is behind
 * none. */
static bool is_behind(int device, const u8 *mac, u32 port)
{
	struct station *station;
	bool is;

	spin_lock_bh(&stations_lock);
	station = find_station(set_of(device, mac), device, mac);
	is = station ? station->port == port : stations.gave_way;
	spin_unlock_bh(&stations_lock);
	return is;
}

/* A membership that ends is a flush, and thousands end at once. */
static bool may_be_behind(int device, u32 port)
{
	bool may;

	spin_lock_bh(&stations_lock);
	may = stations.gave_way || *place_of(device, port);
	spin_unlock_bh(&stations_lock);
	return may;
}

/* The kernel's in_range() takes a length where its name promises an end. */
static bool is_discovery(u8 type)
{
	return type >= NDISC_ROUTER_SOLICITATION && type <= NDISC_REDIRECT;
}

/* A frame on its way into the IP stack, at its network header; its port stands at the end of the control
 * block. */
void tarn_k_neigh_learn(const struct sk_buff *skb)
{
	const struct ipv6hdr *ipv6 = (const struct ipv6hdr *)skb->data;
	const struct arphdr *arp = (const struct arphdr *)skb->data;
	u32 port;

	memcpy(&port, skb->cb + sizeof(skb->cb) - sizeof(port), sizeof(port));
	if (skb->protocol == htons(ETH_P_ARP)) {
		/* The sender's MAC address is the first behind the header. */
		if (skb_headlen(skb) >= sizeof(*arp) + ETH_ALEN && arp->ar_hln == ETH_ALEN)
			learn(skb->dev->ifindex, skb->data + sizeof(*arp), port);
		return;
	}
	if (skb->protocol != htons(ETH_P_IPV6) || skb_headlen(skb) <= sizeof(*ipv6) ||
	    ipv6->nexthdr != NEXTHDR_ICMP)
		return;
	if (is_discovery(skb->data[sizeof(*ipv6)]))
		learn(skb->dev->ifindex, eth_hdr(skb)->h_source, port);
}

/* --- flushes ------------------------------------------------------------------------------------- */

/* What is looked for: the walk takes no argument. Read under the table's lock, with the mutex held. */
static DEFINE_MUTEX(flush_mutex);
static struct {
	int vid;
	const struct net_device *dev;
	const u8 *mac; /* NULL: the port counts */
	u32 port;
} flushed;

static bool is_ours(const struct net_device *dev)
{
	return tarn_k_netdev_get_ops(dev) != NULL;
}

static bool is_flushed(const struct neighbour *n)
{
	if (flushed.dev ? n->dev != flushed.dev : !is_ours(n->dev))
		return 0;
	if (flushed.vid != -1 && n->dev->ifindex != flushed.vid + VLAN_IFINDEX_BASE)
		return 0;
	if (n->dev->addr_len != ETH_ALEN)
		return 0;
	if (flushed.mac)
		return ether_addr_equal_unaligned(n->ha, flushed.mac);
	/* What was said by hand, and what nobody has answered yet, was learned on no port. */
	if (n->nud_state & (NUD_PERMANENT | NUD_NOARP) || is_zero_ether_addr(n->ha))
		return 0;
	return is_behind(n->dev->ifindex, n->ha, flushed.port);
}

/* The walk unlinks the entry, and leaves its timer, which would hold the device until it runs out. */
static int forget(struct neighbour *n)
{
	if (!is_flushed(n))
		return 0;
	if ((n->nud_state & NUD_IN_TIMER) && del_timer(&n->timer))
		neigh_release(n);
	n->nud_state = NUD_NONE;
	return 1;
}

static void flush(int family, int vid, const struct net_device *dev, const u8 *mac, u32 port)
{
	struct neigh_table *table = family == AF_INET ? &arp_tbl : &nd_tbl;

	mutex_lock(&flush_mutex);
	flushed.vid = vid;
	flushed.dev = dev;
	flushed.mac = mac;
	flushed.port = port;
	write_lock_bh(&table->lock);
	__neigh_for_each_release(table, forget);
	write_unlock_bh(&table->lock);
	mutex_unlock(&flush_mutex);
}

void tarn_k_neigh_flush_port(int family, int vid, const struct net_device *dev, unsigned int port)
{
	if (!dev || may_be_behind(dev->ifindex, port))
		flush(family, vid, dev, NULL, port);
}

void tarn_k_neigh_flush_mac(int family, int vid, const struct net_device *dev,
			    const unsigned char *mac)
{
	flush(family, vid, dev, mac, 0);
}
