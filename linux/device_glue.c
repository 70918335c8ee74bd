// SPDX-License-Identifier: GPL-2.0
/*
 * Network devices for the core: its tables of operations turned into the kernel's, and what the kernel
 * has as macros or inline functions. This is also the file that knows where Linux 6.1 differs from
 * older names: addresses are written by dev_addr_set, time stamp requests arrive by ndo_eth_ioctl,
 * netif_rx serves any context.
 */
#include <linux/etherdevice.h>
#include <linux/ethtool.h>
#include <linux/inetdevice.h>
#include <linux/netdevice.h>
#include <linux/rtnetlink.h>
#include <linux/uaccess.h>
#include <net/addrconf.h>
#include <net/if_inet6.h>
#include <net/ipv6_stubs.h>

#include "device_glue.h"

/* --- tables -------------------------------------------------------------------------------------- */

/*
 * The kernel keeps a pointer to the tables of a device, so they stand here for ever. A table of the core
 * is known by its address.
 */
#define TABLES 4

static struct {
	const struct tarn_k_netdev_ops *from;
	struct net_device_ops ops;
} ops_tables[TABLES];

static struct {
	const struct tarn_k_ethtool_ops *from;
	struct ethtool_ops ops;
} ethtool_tables[TABLES];

/* Serialised by whoever makes devices: one command at a time. */
static const struct net_device_ops *ops_of(const struct tarn_k_netdev_ops *from)
{
	int i;

	for (i = 0; i < TABLES && ops_tables[i].from; i++)
		if (ops_tables[i].from == from)
			return &ops_tables[i].ops;
	BUG_ON(i == TABLES);
	ops_tables[i].ops = (struct net_device_ops){
		.ndo_open = from->open,
		.ndo_stop = from->stop,
		.ndo_start_xmit = from->start_xmit,
		.ndo_set_rx_mode = from->set_rx_mode,
		.ndo_set_mac_address = from->set_mac_address,
		.ndo_validate_addr = eth_validate_addr,
		.ndo_eth_ioctl = from->do_ioctl,
		.ndo_change_mtu = from->change_mtu,
		.ndo_get_stats = from->get_stats,
	};
	ops_tables[i].from = from;
	return &ops_tables[i].ops;
}

static const struct tarn_k_ethtool_ops *from_ethtool(const struct net_device *dev)
{
	int i;

	for (i = 0; i < TABLES; i++)
		if (dev->ethtool_ops == &ethtool_tables[i].ops)
			return ethtool_tables[i].from;
	return NULL;
}

static int get_ts_info(struct net_device *dev, struct ethtool_ts_info *info)
{
	struct tarn_k_ethtool_ts ts = {};
	int result = from_ethtool(dev)->get_ts_info(dev, &ts);

	info->so_timestamping = ts.so_timestamping;
	info->phc_index = ts.phc_index;
	return result;
}

static int get_link_ksettings(struct net_device *dev, struct ethtool_link_ksettings *settings)
{
	struct tarn_k_ethtool_link link = {};
	int result = from_ethtool(dev)->get_link_ksettings(dev, &link);

	settings->base.speed = link.speed;
	settings->base.duplex = link.duplex;
	settings->base.port = link.port;
	settings->base.autoneg = link.autoneg;
	return result;
}

static const struct ethtool_ops *ethtool_of(const struct tarn_k_ethtool_ops *from)
{
	int i;

	for (i = 0; i < TABLES && ethtool_tables[i].from; i++)
		if (ethtool_tables[i].from == from)
			return &ethtool_tables[i].ops;
	BUG_ON(i == TABLES);
	ethtool_tables[i].ops = (struct ethtool_ops){
		.get_ts_info = get_ts_info,
		.get_link_ksettings = get_link_ksettings,
	};
	ethtool_tables[i].from = from;
	return &ethtool_tables[i].ops;
}

const struct tarn_k_netdev_ops *tarn_k_netdev_get_ops(const struct net_device *dev)
{
	int i;

	for (i = 0; i < TABLES; i++)
		if (dev->netdev_ops == &ops_tables[i].ops)
			return ops_tables[i].from;
	return NULL;
}

void tarn_k_netdev_set_ops(struct net_device *dev, const struct tarn_k_netdev_ops *ops,
			   const struct tarn_k_ethtool_ops *ethtool)
{
	dev->netdev_ops = ops_of(ops);
	if (ethtool)
		dev->ethtool_ops = ethtool_of(ethtool);
}

int tarn_k_netdev_has_set_mac_address(const struct net_device *dev)
{
	return dev->netdev_ops->ndo_set_mac_address != NULL;
}

/* --- fields and operations ----------------------------------------------------------------------- */

void tarn_k_netdev_set_name(struct net_device *dev, const char *name)
{
	/* The kernel would take a percent sign for a template. */
	if (!strchr(name, '%'))
		strscpy(dev->name, name, IFNAMSIZ);
}

void tarn_k_netdev_set_operstate(struct net_device *dev, u8 state)
{
	write_lock(&dev_base_lock);
	dev->operstate = state;
	write_unlock(&dev_base_lock);
}

void tarn_k_dev_addr_set(struct net_device *dev, const u8 *address)
{
	dev_addr_set(dev, address);
}

struct net_device *tarn_k_dev_get_by_name(const char *name)
{
	return dev_get_by_name(&init_net, name);
}

void tarn_k_dev_hold(struct net_device *dev)
{
	dev_hold(dev);
}

void tarn_k_dev_put(struct net_device *dev)
{
	dev_put(dev);
}

int tarn_k_dev_change_flags(struct net_device *dev, unsigned int flags)
{
	return dev_change_flags(dev, flags, NULL);
}

/*
 * What the interface flag request does, without its question for rights: it is asked by the module and
 * not by the process on whose behalf it happens to run.
 */
int tarn_k_set_flags_by_name(const char *name, unsigned int flags)
{
	struct net_device *dev;
	int result = -ENODEV;

	rtnl_lock();
	dev = __dev_get_by_name(&init_net, name);
	if (dev)
		result = dev_change_flags(dev, (short)flags, NULL);
	rtnl_unlock();
	return result;
}

int tarn_k_dev_set_mac_address(struct net_device *dev, const void *address)
{
	struct sockaddr wanted;

	memcpy(&wanted, address, sizeof(wanted));
	return dev_set_mac_address(dev, &wanted, NULL);
}

int tarn_k_netif_carrier_ok(const struct net_device *dev)
{
	return netif_carrier_ok(dev);
}

void tarn_k_netif_start_queue(struct net_device *dev)
{
	netif_start_queue(dev);
}

void tarn_k_netif_stop_queue(struct net_device *dev)
{
	netif_stop_queue(dev);
}

void tarn_k_netif_wake_queue(struct net_device *dev)
{
	netif_wake_queue(dev);
}

void tarn_k_netif_addr_lock_bh(struct net_device *dev)
{
	netif_addr_lock_bh(dev);
}

void tarn_k_netif_addr_unlock_bh(struct net_device *dev)
{
	netif_addr_unlock_bh(dev);
}

int tarn_k_dev_queue_xmit(struct sk_buff *skb)
{
	return dev_queue_xmit(skb);
}

int tarn_k_netdev_in_init_net(const struct net_device *dev)
{
	return net_eq(dev_net(dev), &init_net);
}

const void *tarn_k_ifreq_data(const void *request)
{
	return (__force const void *)((const struct ifreq *)request)->ifr_data;
}

unsigned long tarn_k_copy_from_user(void *to, const void *from, unsigned long count)
{
	return copy_from_user(to, (__force const void __user *)from, count);
}

unsigned long tarn_k_copy_to_user(const void *to, const void *from, unsigned long count)
{
	return copy_to_user((__force void __user *)to, from, count);
}

/* --- addresses ----------------------------------------------------------------------------------- */

int tarn_k_inet_any_address(const struct net_device *dev, bool (*test)(u32, u32, u32), u32 wanted)
{
	const struct in_ifaddr *ifa;
	const struct in_device *in_dev;
	bool found = false;

	rcu_read_lock();
	in_dev = __in_dev_get_rcu(dev);
	if (in_dev)
		in_dev_for_each_ifa_rcu(ifa, in_dev) {
			found = test((__force u32)ifa->ifa_address, (__force u32)ifa->ifa_mask, wanted);
			if (found)
				break;
		}
	rcu_read_unlock();
	return found;
}

int tarn_k_inet6_has_record(const struct net_device *dev)
{
#if IS_ENABLED(CONFIG_IPV6)
	return rcu_access_pointer(dev->ip6_ptr) != NULL;
#else
	return 0;
#endif
}

int tarn_k_ipv6_chk_prefix(const u8 *address, struct net_device *dev)
{
	struct in6_addr wanted;

	memcpy(&wanted, address, sizeof(wanted));
	return ipv6_chk_prefix(&wanted, dev);
}
