#include "pkt/pkt_post.h"

#include "ifmgr/tarn_if.h"
#include "kernel/errno.h"
#include "kernel/locks.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/once.h"
#include "kernel/preempt.h"
#include "kernel/time.h"
#include "pkt/frame.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_l3dev.h"

namespace {

u32 _ingress_of(const tarn_if *rx_port, const tarn_if *l2_port) {
    if (!rx_port)
        return 0;
    return l2_port ? l2_port->ifindex : rx_port->ifindex;
}

void _count(net_device_stats *stats, const sk_buff *skb) {
    constexpr u8 broadcast[ETH_ALEN] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    frame_bytes frame(skb);
    count_in(stats->rx_packets, 1);
    count_in(stats->rx_bytes, frame.length);
    if ((frame.byte(ETH_DST_OFFSET) & 1) && !frame.equals(ETH_DST_OFFSET, broadcast, ETH_ALEN))
        count_in(stats->multicast, 1);
}

bool _has_room(const sk_buff *skb, const sock *sk) {
    return static_cast<u32>(sk_rmem_alloc(sk)) + skb_truesize(skb) <
           static_cast<u32>(sk_rcvbuf(sk));
}

// The daemon is not told of a frame that it does not get; the list of sockets has the number.
void _post_one(sk_buff *skb, sock *sk) {
    sk_buff *clone = _has_room(skb, sk) ? skb_clone(skb, GFP_ATOMIC) : nullptr;
    if (clone && tarn_socket_post_skb(sk, clone) >= 0) [[likely]]
        return;
    sk_drops_inc(sk);
    if (clone)
        __dev_kfree_skb_irq(clone, SKB_REASON_DROPPED);
}

const u8 *_header_of(const sk_buff *skb, u16 wanted) {
    frame_bytes frame(skb);
    u16 type = frame.be16(ETH_TYPE_OFFSET);
    if (type == ETH_P_8021Q)
        return frame.be16(VLAN_TYPE_OFFSET) == wanted ? frame.data + ETH_HLEN + VLAN_HLEN : nullptr;
    return type == wanted ? frame.data + ETH_HLEN : nullptr;
}

void _post_up(const tarn_if *rx_port, tarn_if *l3_if, sk_buff *skb, u32 vid) {
    net_device *device = l3_if ? read_once(l3_if->netdev) : nullptr;
    if (!device) {
        pr_crit("Interface %.16s, vid %d, layer 3 interface not specified\n",
                rx_port ? rx_port->name : "portUnknown", static_cast<i32>(vid));
        kfree_skb(skb);
        return;
    }

    net_device_stats *stats = tarn_eth_dev_get_stats(device);
    _count(stats, skb);
    if (read_once(l3_if->flags) & IFF_UP) {
        if (tarn_eth_drv_post_kernel_pkt(l3_if, skb) >= 0)
            return;
        pr_err("Error posting packet to the TCP/IP stack\n");
    }
    count_in(stats->rx_dropped, 1);
    kfree_skb(skb);
}

} // namespace

// The device may be unregistered at any time, and whoever frees it waits for those who have bottom
// halves off.
u32 tarn_pkt_post_to_kernel(tarn_if *rx_port, tarn_if *l2_port, tarn_if *l3_if, sk_buff *skb,
                            u32 vid) {
    frame_set_port_word(skb, _ingress_of(rx_port, l2_port));
    local_bh_disable();
    _post_up(rx_port, l3_if, skb, vid);
    local_bh_enable();
    return 0;
}

i32 tarn_eth_drv_post_kernel_pkt(tarn_if *ifp, sk_buff *skb) {
    net_device *device = read_once(ifp->netdev);
    if (!device)
        return -EINVAL;
    skb_set_dev(skb, device);
    skb_set_protocol(skb, eth_type_trans(skb, device));
    write_once(ifp->last_rx, get_jiffies());
    netif_rx_ni(skb);
    return 0;
}

u32 tarn_pkt_post_packet(sk_buff *skb, sock *sk, const sk_list *list, rwlock_t *lock) {
    if (lock)
        read_lock_bh(lock);
    if (!list && sk)
        _post_one(skb, sk);
    for (sock *one = list ? sk_list_first(list) : nullptr; one; one = sk_list_next(one))
        _post_one(skb, one);
    if (lock)
        read_unlock_bh(lock);
    return 0;
}

const u8 *tarn_pkt_ipv4(const sk_buff *skb) {
    return _header_of(skb, ETH_P_IP);
}

const u8 *tarn_pkt_ipv6(const sk_buff *skb) {
    return _header_of(skb, ETH_P_IPV6);
}
