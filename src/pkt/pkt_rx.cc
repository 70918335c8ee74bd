#include "pkt/pkt_rx.h"

#include "ifmgr/tarn_ifmgr.h"
#include "kernel/log.h"
#include "kernel/once.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_explain.h"
#include "pkt/pkt_redirect.h"

constinit u32 slave_only_debug_override = 0;

namespace {

constexpr u32 DEFAULT_VID = 1;
constexpr u8 RX_FOR_MASTER_ONLY = 0x01; // tarn_rx_meta.rx_flags

// What both preparations take over as it is.
void _take_meta(tarn_pkt_info *info, sk_buff *skb, const tarn_rx_meta *meta) {
    info->skb = skb;
    info->code = meta->code;
    info->flags = meta->flags;
    info->extra = meta->extra;
    info->local = meta->local;
    info->local_post_kernel = meta->local_post_kernel;
    info->replicated = meta->replicated;
    info->stack_slave = tarn_stack_is_slave();
}

// The VLAN of a frame is what the driver said: the tag is kept for those who ask, no more.
u32 _strip_tag(sk_buff *skb, u32 vid) {
    u16 tci;
    return frame_strip_tag(skb, &tci) ? tci | TARN_TAG_PRESENT : vid & ~TARN_TAG_PRESENT;
}

void _prepare_local(tarn_pkt_info *info, sk_buff *skb, u32 vid, const tarn_rx_meta *meta) {
    info->tag = _strip_tag(skb, vid);
    _take_meta(info, skb, meta);
    info->rx_vid = info->vid = vid & 0xFFFF;
    tarn_pkt_parse(info);
    info->vlan_if = info->l3_if = tarn_ifmgr_lookup_by_vid(info->vid);
    info->low_mem = tarn_pkt_low_mem(skb_len(skb));
    info->vlan_member_ok = 1;
}

// A frame of a VLAN without an interface is measured against VLAN 1's address.
u8 _src_mac_is_own(const tarn_pkt_info *info) {
    frame_bytes frame(info->skb);
    if (info->vlan_if)
        return frame.equals(ETH_SRC_OFFSET, tarn_if_address(info->vlan_if->hwaddr).bytes, ETH_ALEN);

    tarn_if *vlan1 = tarn_ifmgr_lookup_by_vid(DEFAULT_VID);
    if (!vlan1)
        return 0;
    u8 own = frame.equals(ETH_SRC_OFFSET, tarn_if_address(vlan1->hwaddr).bytes, ETH_ALEN);
    tarn_ifmgr_if_ref_put(vlan1);
    return own;
}

void _membership(tarn_pkt_info *info, tarn_if *ifp) {
    info->l3_if = info->vlan_if;
    if (read_once(ifp->openflow) ||
        (info->vlan_if && (read_once(info->vlan_if->if_flags) & TARN_IF_F_NO_VLAN_MEMBER_CHECK))) {
        info->vlan_member_ok = 1;
        return;
    }
    if (read_once(ifp->if_flags) & TARN_IF_F_L3_SWITCHPORT) {
        tarn_ifmgr_if_ref_put(info->vlan_if);
        tarn_ifmgr_if_ref_get(ifp);
        info->vlan_if = info->l3_if = ifp;
        info->vlan_member_ok = 1;
        info->rx_vid = 0;
        return;
    }
    info->vlan_member_ok = tarn_vlan_port_member_check(ifp, info->vid);
}

void _prepare_port(tarn_pkt_info *info, sk_buff *skb, tarn_if *ifp, u32 vid,
                   const tarn_rx_meta *meta) {
    tarn_if *logical = tarn_ifmgr_logical_port(ifp);
    info->tag = _strip_tag(skb, vid);

    tarn_rx_modify modify{
        .rx_vid = vid, .vid = vid, .flood_except = {meta->flood_except[0], meta->flood_except[1]}};
    tarn_pkt_modify_rx(&modify, meta, ifp, skb);

    _take_meta(info, skb, meta);
    info->flood_except[0] = modify.flood_except[0];
    info->flood_except[1] = modify.flood_except[1];
    info->rx_vid = modify.rx_vid;
    info->vid = modify.vid;
    info->rx_port = ifp;
    info->l2_port = logical;
    info->l2_ifindex = logical->ifindex;
    tarn_pkt_parse(info);

    info->vlan_port_disabled = tarn_vlan_is_vlan_port_disabled(ifp, info->vid);
    info->ingress_filter = read_once(ifp->ingress_filter);
    info->slave_only = (info->stack_slave && (meta->rx_flags & RX_FOR_MASTER_ONLY)) ||
                       read_once(slave_only_debug_override) != 0;
    info->vlan_if = tarn_ifmgr_lookup_by_vid(info->vid);
    info->src_mac_is_own = _src_mac_is_own(info);
    info->low_mem = tarn_pkt_low_mem(skb_len(skb));
    _membership(info, ifp);
}

bool _is_port(const tarn_if *ifp) {
    return ifp->type == TARN_IF_TYPE_ETHERNET || ifp->type == TARN_IF_TYPE_SWITCHPORT;
}

u32 _drop(sk_buff *skb) {
    __dev_kfree_skb_irq(skb, SKB_REASON_DROPPED);
    return 0;
}

} // namespace

u32 rxtx_hw_packet_recv(sk_buff *skb, u32 ifindex, u32 vid, const tarn_rx_meta *meta) {
    // A driver that breaks the rule keeps its frame: everybody here reads skb_len bytes at
    // skb_data.
    if (!skb_is_linear(skb)) [[unlikely]]
        return 1;
    if (tarn_stack_pkt_process(skb, vid, meta->queue) != 0)
        return 0;

    tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
    u32 result = tarn_pkt_process(skb, ifp, vid, meta);
    tarn_ifmgr_if_ref_put(ifp);
    return result;
}

u32 tarn_pkt_process(sk_buff *skb, tarn_if *ifp, u32 vid, const tarn_rx_meta *meta) {
    tarn_pkt_info info{};
    if (meta->local) {
        _prepare_local(&info, skb, vid, meta);
        return tarn_pkt_chain(&info);
    }

    if (!ifp) {
        pkt_explain_unclassified(skb, nullptr, vid, "no interface has the number it came from");
        return _drop(skb);
    }
    if (read_once(tarn_pkt_debug) && meta->debug)
        tarn_pkt_debug_rx(ifp, skb, vid, meta);
    if (!_is_port(ifp)) {
        pr_crit("Packet rx'ed with no logical port. Should not be possible. ifindex %d\n",
                static_cast<i32>(ifp->ifindex));
        pkt_explain_unclassified(skb, ifp, vid, "the interface it came from is no port");
        return _drop(skb);
    }
    _prepare_port(&info, skb, ifp, vid, meta);
    return tarn_pkt_chain(&info);
}
