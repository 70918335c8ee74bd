// The flood without the chip: over the ports that the VLAN is bound to, a copy to each.
//
// The ports are collected under the lock of the interface database, each with a reference, and the
// copies sent after it is dropped: transmit may call into the network stack, and the last reference
// to a port runs its destructor.
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/once.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_tx.h"

namespace {

// Most VLANs have no more ports than this; their flood allocates nothing but the copies.
constexpr u32 FEW = 32;

struct _ports {
    tarn_if *few[FEW];
    tarn_if **all;
    u32 count;
};

bool _wants(const tarn_if *vlan_if, const tarn_if *except, const tarn_if *child, u32 vid,
            u32 mask) {
    return child && child != except && (read_once(child->flags) & IFF_RUNNING) &&
           (read_once(child->if_flags) & mask) == mask &&
           !tarn_vlan_is_vlan_port_disabled(child, vid) &&
           tarn_ifmgr_stp_state(child, vlan_if) == TARN_STP_FORWARDING &&
           tarn_ifmgr_vlan_inter_if_forwarding_allowed(vlan_if, except, child);
}

u32 _length(const tarn_ifmgr_list_node *list) {
    u32 count = 0;
    for (; list; list = list->next)
        count++;
    return count;
}

// Room for every child, or the few when memory is short.
u32 _room(_ports *ports, const tarn_if *vlan_if) {
    u32 children = _length(tarn_ifmgr_children(vlan_if));
    ports->all = ports->few;
    if (children <= FEW)
        return FEW;
    auto *more = static_cast<tarn_if **>(__kmalloc(children * sizeof(tarn_if *), GFP_ATOMIC));
    if (!more)
        return FEW;
    ports->all = more;
    return children;
}

void _no_memory() {
    pr_warn("Memory allocation failure while skb_clone\n");
}

void _collect(_ports *ports, const tarn_if *vlan_if, const tarn_if *except, u32 vid, u32 mask) {
    read_lock_bh(&tarn_if_db_lock);
    u32 room = _room(ports, vlan_if);
    for (const tarn_ifmgr_list_node *node = tarn_ifmgr_children(vlan_if); node; node = node->next) {
        if (!_wants(vlan_if, except, node->ifp, vid, mask))
            continue;
        tarn_if *xmit_port = tarn_ifmgr_get_L2_xmit_port(node->ifp);
        if (!xmit_port)
            continue;
        if (ports->count == room) {
            _tarn_ifmgr_if_put(xmit_port);
            _no_memory();
            continue;
        }
        ports->all[ports->count++] = xmit_port;
    }
    read_unlock_bh(&tarn_if_db_lock);
}

void _send_copy(tarn_if *xmit_port, tarn_if *vlan_if, const sk_buff *skb, u32 cos, u32 queue,
                u8 tx_enable) {
    sk_buff *copy = skb_copy(skb, GFP_ATOMIC);
    if (!copy) {
        _no_memory();
        return;
    }
    if (_tarn_start_xmit(xmit_port, vlan_if, copy, cos, queue, tx_enable, false, false) != 0)
        kfree_skb(copy);
}

} // namespace

u32 _tarn_flood_software(tarn_if *port, u32 vid, const sk_buff *skb, u32 cos, u32 queue,
                         u8 tx_enable, u32 mask) {
    tarn_if *vlan_if = tarn_ifmgr_lookup_by_vid(vid);
    if (!vlan_if)
        return static_cast<u32>(-ENETDOWN);

    _ports ports;
    ports.count = 0;
    _collect(&ports, vlan_if, port, vid, mask);
    for (u32 i = 0; i < ports.count; i++) {
        _send_copy(ports.all[i], vlan_if, skb, cos, queue, tx_enable);
        tarn_ifmgr_if_ref_put(ports.all[i]);
    }
    if (ports.all != ports.few)
        kfree(ports.all);
    tarn_ifmgr_if_ref_put(vlan_if);
    return 0;
}
