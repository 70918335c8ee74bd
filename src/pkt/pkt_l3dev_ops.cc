#include "pkt/pkt_l3dev_ops.h"

#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/once.h"
#include "kernel/skb.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_l3dev.h"
#include "pkt/pkt_tx.h"

constinit const netdev_ops tarn_eth_port_ops{
    .open = tarn_eth_dev_open,
    .stop = tarn_eth_dev_close,
    .start_xmit = tarn_eth_dev_xmit,
    .set_rx_mode = tarn_eth_dev_set_mc_list,
    .set_mac_address = tarn_eth_dev_set_mac_addr,
    .do_ioctl = tarn_eth_do_ioctl,
    .change_mtu = tarn_eth_dev_change_mtu,
    .get_stats = tarn_eth_dev_get_stats,
};

constinit const netdev_ethtool_ops tarn_eth_port_ethtool_ops{
    .get_ts_info = tarn_ethtool_get_ts_info,
    .get_link_ksettings = tarn_ethtool_get_link_ksettings,
};

constinit const netdev_ops tarn_eth_other_ops{
    .open = tarn_eth_dev_open,
    .stop = tarn_eth_dev_close,
    .start_xmit = tarn_eth_dev_xmit,
    .set_rx_mode = tarn_eth_dev_set_mc_list,
    .set_mac_address = tarn_eth_dev_set_mac_addr,
    .do_ioctl = nullptr,
    .change_mtu = tarn_eth_dev_change_mtu,
    .get_stats = tarn_eth_dev_get_stats,
};

namespace {

constexpr u32 DEFAULT_SPEED = 10000;
constexpr u32 ALL_SOFTWARE_TIMESTAMPS = 0x5F;
constexpr i32 NO_CLOCK = -1;

// The hwtstamp_config of linux/net_tstamp.h.
struct _hwtstamp_config {
    i32 flags, tx_type, rx_filter;
};
constexpr u32 TX_TYPE_MAX = 1;
constexpr u32 RX_FILTER_MAX = 14;
constexpr i32 RX_FILTER_ALL_PTP = 12;

tarn_eth_priv *_priv(const net_device *device) {
    return static_cast<tarn_eth_priv *>(netdev_priv(device));
}

// Virtual addresses of VRRP (RFC 5798, section 7.3): the device keeps its own beside one.
bool _is_virtual(const u8 *address) {
    constexpr u8 prefix[] = {0x00, 0x00, 0x5E, 0x00};
    return memcmp(address, prefix, sizeof(prefix)) == 0 && (address[4] == 1 || address[4] == 2);
}

bool _is_zero(const u8 *address) {
    u8 any = 0;
    for (u32 i = 0; i < NETDEV_ADDRESS_SIZE; i++)
        any |= address[i];
    return any == 0;
}

bool _on_management_vlan(const tarn_eth_priv *own) {
    u32 vid;
    return tarn_stack_mgmt_vlan_get_vid(&vid) == 0 && vid == read_once(own->vid);
}

// Only answers: nothing is programmed.
int _hwtstamp_set(net_device *device, ifreq *request) {
    if (!_priv(device)->ifp)
        return -ENODEV;
    _hwtstamp_config config;
    if (copy_from_user(&config, ifreq_data(request), sizeof(config)) != 0)
        return -EFAULT;
    if (static_cast<u32>(config.tx_type) > TX_TYPE_MAX ||
        static_cast<u32>(config.rx_filter) > RX_FILTER_MAX)
        return -ERANGE;
    if (config.rx_filter != 0)
        config.rx_filter = RX_FILTER_ALL_PTP;
    return copy_to_user(ifreq_data(request), &config, sizeof(config)) != 0 ? -EFAULT : 0;
}

int _hwtstamp_get(ifreq *request) {
    _hwtstamp_config config;
    if (copy_from_user(&config, ifreq_data(request), sizeof(config)) != 0)
        return -EFAULT;
    if (config.flags != 0)
        return -EOPNOTSUPP;
    pr_info("%s:%u Ignored IOCTL command SIOCGHWTSTAMP\n", "tarn_eth_hwtstamp_get", 241u);
    return 0;
}

} // namespace

int tarn_eth_dev_open(net_device *device) {
    netif_start_queue(device);
    return 0;
}

int tarn_eth_dev_close(net_device *device) {
    netif_stop_queue(device);
    return 0;
}

int tarn_eth_dev_xmit(sk_buff *skb, net_device *device) {
    if (macvlan_parent_xmit(skb, device) != 0)
        return 0;
    skb_set_dev(skb, device);
    tarn_eth_priv *own = _priv(device);
    tarn_if *ifp = read_once(own->ifp);
    if (!ifp) {
        pr_warn("Bad ifp (%p) or priv (%p), dropping packet\n", static_cast<void *>(ifp),
                static_cast<void *>(own));
        kfree_skb(skb);
        return -EINVAL;
    }
    if (_on_management_vlan(own)) [[unlikely]]
        _tarn_stack_drv_tx(skb, 0);
    else
        _tarn_eth_drv_tx(ifp, skb);
    netif_wake_queue(device);
    return 0;
}

net_device_stats *tarn_eth_dev_get_stats(net_device *device) {
    return device ? netdev_stats(device) : nullptr;
}

// Multicast filtering is the chip's business, not this device's.
void tarn_eth_dev_set_mc_list(net_device *) {}

int tarn_eth_dev_change_mtu(net_device *device, int mtu) {
    if (mtu < TARN_ETH_MTU_MIN || mtu > TARN_ETH_MTU_MAX)
        return -ERANGE;
    netdev_set_mtu(device, static_cast<u32>(mtu));
    return 0;
}

int tarn_eth_dev_set_mac_addr(net_device *device, const netdev_address *address) {
    if ((address->data[0] & 1) || _is_zero(address->data))
        return -EADDRNOTAVAIL;
    netif_addr_lock_bh(device);
    if (!_is_virtual(address->data))
        memcpy(netdev_perm_addr(device), address->data, netdev_addr_len(device));
    dev_addr_set(device, address->data);
    netif_addr_unlock_bh(device);
    return 0;
}

int tarn_eth_do_ioctl(net_device *device, ifreq *request, int command) {
    switch (command) {
    case SIOCSHWTSTAMP:
        return _hwtstamp_set(device, request);
    case SIOCGHWTSTAMP:
        return _hwtstamp_get(request);
    default:
        return -EOPNOTSUPP;
    }
}

int tarn_ethtool_get_ts_info(net_device *, ethtool_ts *info) {
    info->so_timestamping = ALL_SOFTWARE_TIMESTAMPS;
    info->phc_index = NO_CLOCK;
    return 0;
}

int tarn_ethtool_get_link_ksettings(net_device *device, ethtool_link *settings) {
    const tarn_if *ifp = read_once(_priv(device)->ifp);
    u32 speed = ifp ? read_once(ifp->speed) : 0;
    settings->speed = speed != 0 ? speed : DEFAULT_SPEED;
    settings->duplex = ifp ? read_once(ifp->duplex) : 0;
    settings->port = 0;
    settings->autoneg = 0;
    return 0;
}
