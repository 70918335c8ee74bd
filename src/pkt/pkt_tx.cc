#include "pkt/pkt_tx.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "kernel/percpu.h"
#include "kernel/time.h"
#include "pkt/frame.h"
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_cpu.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_redirect.h"

constinit u32 tx_discard_all = 0;

namespace {

constexpr u32 PRIORITIES = 8;
constexpr std::array<u8, PRIORITIES> QUEUE_OF_PRIORITY{4, 1, 2, 3, 4, 5, 6, 7};
constexpr u8 QUEUE_OF_OTHERS = 4;

// A mirror port may be mirrored itself, and so on. Deeper than this is a ring.
constexpr u32 MIRROR_DEPTH = 8;

u32 _queue_of(u32 priority) {
    return priority < PRIORITIES ? QUEUE_OF_PRIORITY[priority] : QUEUE_OF_OTHERS;
}

bool _is_local(const tarn_if *vlan_if) {
    return vlan_if && (read_once(vlan_if->if_flags) & TARN_IF_F_VLAN_LOCAL);
}

void _count_sent(u32 place) {
    if (pkt_cpu) [[likely]] // else there are no hooks
        this_cpu_inc(&pkt_cpu->sent[place]);
}

// The frame, or null when a hook took it.
sk_buff *_modify_tx(tarn_if *ifp, sk_buff *skb) {
    for (u32 left = pkt_tx_modifiers(); left != 0; left &= left - 1) {
        const u32 place = static_cast<u32>(__builtin_ctz(left));
        skb = packet_redirects[process_packet_modify_tx[place]]->modify_tx(ifp, skb);
        if (skb)
            continue;
        _count_sent(place);
        return nullptr;
    }
    _count_sent(MODIFY_TX_PLACES);
    return skb;
}

u32 _xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue, u8 tx_enable,
          bool discard_bypass, bool tx_option, u32 depth);

void _mirror(const tarn_if *port, tarn_if *vlan_if, const sk_buff *skb, u32 cos, u32 queue,
             u8 tx_enable, u32 depth) {
    u32 ifindex = read_once(port->mirror_ifindex);
    if (ifindex == 0 || depth >= MIRROR_DEPTH) [[likely]]
        return;
    tarn_if *mirror = tarn_ifmgr_lookup_by_index(ifindex);
    if (!mirror)
        return;
    if (sk_buff *copy = skb_copy(skb, GFP_ATOMIC))
        if (_xmit(mirror, vlan_if, copy, cos, queue, tx_enable, true, false, depth + 1) != 0)
            kfree_skb(copy);
    tarn_ifmgr_if_ref_put(mirror);
}

u32 _xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue, u8 tx_enable,
          bool discard_bypass, bool tx_option, u32 depth) {
    if (read_once(tx_discard_all) && !discard_bypass) {
        kfree_skb(skb);
        return 0;
    }
    if (read_once(tarn_pkt_debug)) [[unlikely]]
        tarn_pkt_debug_tx(port, vlan_if, skb, queue, false);
    if (port)
        _mirror(port, vlan_if, skb, cos, queue, tx_enable, depth);
    return _tarn_port_start_xmit(port, vlan_if, skb, cos, queue, tx_enable, tx_option);
}

// What the IP stack sends: on the VLAN of the interface, or out of the port that it is.
u32 _send_l3(tarn_if *ifp, sk_buff *skb, u32 cos, u32 queue) {
    if (ifp->type == TARN_IF_TYPE_VLAN || (read_once(ifp->if_flags) & TARN_IF_F_L3_SWITCHPORT))
        return _tarn_start_xmit(nullptr, ifp, skb, cos, queue, 1, _is_local(ifp), false);
    if (ifp->type == TARN_IF_TYPE_SWITCHPORT && read_once(ifp->netdev))
        return _tarn_start_xmit(ifp, nullptr, skb, cos, queue, 1, false, false);
    pr_warn("%s - dropping L3 packet\n", "_tarn_eth_drv_tx");
    kfree_skb(skb);
    return 0;
}

} // namespace

void tarn_tx_discard_all_set(u32 value) {
    write_once(tx_discard_all, value);
}

u32 _tarn_eth_drv_tx_socket_priority_to_cos(u32 priority) {
    return priority < PRIORITIES ? priority : 0;
}

i32 _tarn_eth_drv_tx(tarn_if *ifp, sk_buff *skb) {
    skb = _modify_tx(ifp, skb);
    if (!skb)
        return 0;
    u32 priority = skb_priority(skb);
    u32 result =
        _send_l3(ifp, skb, _tarn_eth_drv_tx_socket_priority_to_cos(priority), _queue_of(priority));
    if (result != 0)
        kfree_skb(skb);
    return static_cast<i32>(result);
}

i32 _tarn_eth_drv_svi_tx(tarn_if *ifp, sk_buff *skb, u32 cos, u32 queue) {
    if (read_once(tx_discard_all) && !_is_local(ifp)) {
        kfree_skb(skb);
        return 0;
    }
    if (read_once(tarn_pkt_debug)) [[unlikely]]
        tarn_pkt_debug_tx(nullptr, ifp, skb, queue, false);
    return static_cast<i32>(_tarn_port_start_xmit(nullptr, ifp, skb, cos, queue, 1, false));
}

u32 tarn_start_xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue, u8 tx_enable,
                    bool tx_option) {
    return _tarn_start_xmit(port, vlan_if, skb, cos, queue, tx_enable, _is_local(vlan_if),
                            tx_option);
}

u32 _tarn_start_xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue,
                     u8 tx_enable, bool discard_bypass, bool tx_option) {
    return _xmit(port, vlan_if, skb, cos, queue, tx_enable, discard_bypass, tx_option, 0);
}

void tarn_pkt_xmit_failure(tarn_if *ifp, u32 kind, i32 error) {
    if (!ifp)
        return;
    write_once(ifp->last_tx_failure, get_jiffies());
    if (auto *told = read_once(ifp->tx_failure_cb))
        told(ifp, kind, error);
}

// In spite of the name it is the source address that decides.
i32 tarn_forward_with_dest_mac(sk_buff *skb, tarn_if *port, tarn_if *vlan_if) {
    const tarn_if_address address(vlan_if->hwaddr);
    if (!frame_bytes(skb).equals(ETH_SRC_OFFSET, address.bytes, ETH_ALEN))
        return _tarn_flood(port, read_once(vlan_if->vid), nullptr, skb, 0, 0, 1, 0);

    tarn_if *xmit_port = tarn_ifmgr_get_L2_xmit_port(port);
    u32 result = _tarn_start_xmit(xmit_port, vlan_if, skb, 0, 0, 1, _is_local(vlan_if), false);
    tarn_ifmgr_if_ref_put(xmit_port);
    return static_cast<i32>(result);
}

u32 add_eth_header(sk_buff *skb, u16 type, const u8 *dst, const u8 *src, u16 length) {
    constexpr u16 with_length = 1;
    if (skb_headroom(skb) < ETH_HLEN)
        return static_cast<u32>(-EFAULT);
    auto *header = static_cast<u8 *>(skb_push(skb, ETH_HLEN));
    u16 wire = cpu_to_be16(type == with_length ? length : type);
    memcpy(header + ETH_TYPE_OFFSET, &wire, sizeof(wire));
    memcpy(header + ETH_SRC_OFFSET, src, ETH_ALEN);
    if (!dst)
        return static_cast<u32>(-EFAULT);
    memcpy(header + ETH_DST_OFFSET, dst, ETH_ALEN);
    return ETH_HLEN;
}
