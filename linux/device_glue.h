/* SPDX-License-Identifier: GPL-2.0 */
/* The functions of device_glue.c, as both sides see them. */
#ifndef TARN_LINUX_DEVICE_GLUE_H
#define TARN_LINUX_DEVICE_GLUE_H

#ifdef __cplusplus
struct net_device;
struct netdev_ethtool_ops;
struct netdev_ops;
struct sk_buff;
#define TARN_K_NAME(c_name, cxx_name) cxx_name
extern "C" {
#else
#define TARN_K_NAME(c_name, cxx_name) struct c_name
struct net_device;
struct net_device_stats;
struct sk_buff;
struct ifreq;

/* The core's tables: src/kernel/netdev.h. */
struct tarn_k_netdev_ops {
	int (*open)(struct net_device *dev);
	int (*stop)(struct net_device *dev);
	netdev_tx_t (*start_xmit)(struct sk_buff *skb, struct net_device *dev);
	void (*set_rx_mode)(struct net_device *dev);
	int (*set_mac_address)(struct net_device *dev, void *address);
	int (*do_ioctl)(struct net_device *dev, struct ifreq *request, int command);
	int (*change_mtu)(struct net_device *dev, int mtu);
	struct net_device_stats *(*get_stats)(struct net_device *dev);
};

struct tarn_k_ethtool_ts {
	u32 so_timestamping;
	s32 phc_index;
};

struct tarn_k_ethtool_link {
	u32 speed;
	u8 duplex, port, autoneg;
};

struct tarn_k_ethtool_ops {
	int (*get_ts_info)(struct net_device *dev, struct tarn_k_ethtool_ts *info);
	int (*get_link_ksettings)(struct net_device *dev, struct tarn_k_ethtool_link *settings);
};
#endif

#define TARN_K_OPS TARN_K_NAME(tarn_k_netdev_ops, netdev_ops)
#define TARN_K_ETHTOOL TARN_K_NAME(tarn_k_ethtool_ops, netdev_ethtool_ops)

const TARN_K_OPS *tarn_k_netdev_get_ops(const struct net_device *dev);
void tarn_k_netdev_set_ops(struct net_device *dev, const TARN_K_OPS *ops,
			   const TARN_K_ETHTOOL *ethtool);
int tarn_k_netdev_has_set_mac_address(const struct net_device *dev);
void tarn_k_netdev_set_name(struct net_device *dev, const char *name);
void tarn_k_netdev_set_operstate(struct net_device *dev, unsigned char state);
void tarn_k_dev_addr_set(struct net_device *dev, const unsigned char *address);
struct net_device *tarn_k_dev_get_by_name(const char *name);
void tarn_k_dev_hold(struct net_device *dev);
void tarn_k_dev_put(struct net_device *dev);
int tarn_k_dev_change_flags(struct net_device *dev, unsigned int flags);
int tarn_k_set_flags_by_name(const char *name, unsigned int flags);
int tarn_k_dev_set_mac_address(struct net_device *dev, const void *address);
int tarn_k_netif_carrier_ok(const struct net_device *dev);
void tarn_k_netif_start_queue(struct net_device *dev);
void tarn_k_netif_stop_queue(struct net_device *dev);
void tarn_k_netif_wake_queue(struct net_device *dev);
void tarn_k_netif_addr_lock_bh(struct net_device *dev);
void tarn_k_netif_addr_unlock_bh(struct net_device *dev);
int tarn_k_dev_queue_xmit(struct sk_buff *skb);
int tarn_k_netdev_in_init_net(const struct net_device *dev);
const void *tarn_k_ifreq_data(const void *request);
unsigned long tarn_k_copy_from_user(void *to, const void *from, unsigned long count);
unsigned long tarn_k_copy_to_user(const void *to, const void *from, unsigned long count);
int tarn_k_inet_any_address(const struct net_device *dev,
			    bool (*test)(unsigned int, unsigned int, unsigned int),
			    unsigned int wanted);
int tarn_k_inet6_has_record(const struct net_device *dev);
int tarn_k_ipv6_chk_prefix(const unsigned char *address, struct net_device *dev);
void tarn_k_neigh_learn(const struct sk_buff *skb);
void tarn_k_neigh_flush_port(int family, int vid, const struct net_device *dev, unsigned int port);
void tarn_k_neigh_flush_mac(int family, int vid, const struct net_device *dev,
			    const unsigned char *mac);

#ifdef __cplusplus
}
#endif

#endif
