// What the devices of layer 3 interfaces do when the kernel asks.
#pragma once

#include "kernel/netdev.h"

inline constexpr int TARN_ETH_MTU_MIN = 64;
inline constexpr int TARN_ETH_MTU_MAX = 9216;

extern const netdev_ops tarn_eth_port_ops;                 // of switch ports
extern const netdev_ethtool_ops tarn_eth_port_ethtool_ops; // others have none
extern const netdev_ops tarn_eth_other_ops;

int tarn_eth_dev_open(net_device *device);
int tarn_eth_dev_close(net_device *device);
int tarn_eth_dev_xmit(sk_buff *skb, net_device *device);
void tarn_eth_dev_set_mc_list(net_device *device);
int tarn_eth_dev_set_mac_addr(net_device *device, const netdev_address *address);
int tarn_eth_dev_change_mtu(net_device *device, int mtu);
int tarn_eth_do_ioctl(net_device *device, ifreq *request, int command);
int tarn_ethtool_get_ts_info(net_device *device, ethtool_ts *info);
int tarn_ethtool_get_link_ksettings(net_device *device, ethtool_link *settings);
