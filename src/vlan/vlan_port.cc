// VLAN membership of ports: adding and removing, the bitmaps and the bindings in step.
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/neigh.h"
#include "kernel/once.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_follow.h"
#include "vlan/vlan_bits.h"
#include "vlan/vlan_member.h"

constinit u32 vlan_port_adds = 0;

namespace {

constexpr u32 FIRST_VID = 1;
constexpr u32 LAST_VID = 4094;

constinit u8 _missing_vlan_told = 0;

struct _one_bit {
    u32 bitmap[TARN_VLAN_COUNT / 32];
};

bool _is_port(const tarn_if *ifp) {
    return ifp->type == TARN_IF_TYPE_SWITCHPORT;
}

bool _is_vlan(const tarn_if *ifp) {
    return ifp->type == TARN_IF_TYPE_VLAN;
}

void _set_one(_one_bit *one, u32 vid) {
    *one = {};
    vlan_bit_write(one->bitmap, vid, true);
}

void _clear_bits(tarn_if *port, u32 vid) {
    vlan_bit_write(port->vlan_member_bmp, vid, false);
    vlan_bit_write(port->vlan_tagged_bmp, vid, false);
    vlan_bit_write(port->vlan_disabled_bmp, vid, false);
}

// A VLAN that is local to one stack member takes only the ports that the stack allows.
bool _allowed(const tarn_if *vlan, const tarn_if *port) {
    return !vlan || !(read_once(vlan->if_flags) & TARN_IF_F_VLAN_LOCAL) ||
           tarn_stack_local_vlan_member_allowed(port);
}

void _bind_once(tarn_if *vlan, tarn_if *port) {
    if (!tarn_ifmgr_isbound(vlan, port))
        tarn_ifmgr_bind(vlan, port);
}

// The bits are set without an interface of the VLAN, too, on purpose: the daemon may add the
// members first.
void _add_one(tarn_if *port, u32 vid, u32 tagged) {
    tarn_if *vlan = tarn_ifmgr_lookup_by_vid(vid);
    if (_allowed(vlan, port)) {
        if (vlan)
            _bind_once(vlan, tarn_ifmgr_logical_port(port));
        else
            pr_warn("Failed to find ifpvlan for vid %d", static_cast<i32>(vid));
        count_in(vlan_port_adds, 1);
        vlan_bit_write(port->vlan_member_bmp, vid, true);
        if (tagged == 1)
            vlan_bit_write(port->vlan_tagged_bmp, vid, true);
    }
    tarn_ifmgr_if_ref_put(vlan);
}

i32 _tarn_vlan_add_bmp_to_port(tarn_if *port, const u32 *bitmap, u32 first, u32 last, u32 tagged) {
    if (!_is_port(port))
        return -EINVAL;
    tarn_ifmgr_change_begin();
    for (u32 vid = first; vid <= last; vid++)
        if (vlan_bit(bitmap, vid))
            _add_one(port, vid, tagged);
    tarn_follow_vlans(port, first, last);
    tarn_ifmgr_change_end();
    return 0;
}

void _flush(net_device *device, const tarn_if *port) {
    arp_flush_dev_and_port(-1, device, port->ifindex);
    ndisc_flush_dev_and_port(-1, device, port->ifindex);
}

i32 _unbind(tarn_if *vlan, tarn_if *port, u32 flush) {
    if (flush)
        _flush(read_once(vlan->netdev), port);
    i32 result = tarn_ifmgr_unbind(vlan, port);
    _clear_bits(port, vlan->vid);
    return result;
}

void _delete_one(tarn_if *port, u32 vid, u32 flush) {
    if (tarn_if *vlan = tarn_ifmgr_lookup_by_vid(vid)) {
        _unbind(vlan, port, flush);
        tarn_ifmgr_if_ref_put(vlan);
        return;
    }
    if (!vlan_bit(port->vlan_member_bmp, vid))
        return;
    if (!__atomic_exchange_n(&_missing_vlan_told, 1, __ATOMIC_RELAXED))
        pr_err("Failed to find vlan%d when removing from %.16s\n", static_cast<i32>(vid),
               port->name);
    _clear_bits(port, vid);
}

// Downwards: the bitmap may be the port's own, which is cleared on the way.
i32 _tarn_vlan_delete_bmp_from_port(tarn_if *port, const u32 *bitmap, u32 first, u32 last,
                                    u32 flush) {
    tarn_ifmgr_change_begin();
    for (u32 vid = last; vid >= first && vid <= last; vid--)
        if (vlan_bit(bitmap, vid))
            _delete_one(port, vid, flush);
    tarn_follow_vlans(port, first, last);
    tarn_ifmgr_change_end();
    return 0;
}

void _move_up(tarn_if *vlan, tarn_if *port, tarn_if *aggregator) {
    tarn_ifmgr_unbind(vlan, port);
    _bind_once(vlan, aggregator);
}

// With every VLAN that the interface stands under, inside a change. The call may take it from
// there.
template <typename Call>
void _for_each_vlan_above(const tarn_if *ifp, Call call) {
    const tarn_ifmgr_list_node *next;
    for (const tarn_ifmgr_list_node *node = tarn_ifmgr_parents(ifp); node; node = next) {
        next = node->next;
        if (_is_vlan(node->ifp))
            call(node->ifp);
    }
}

} // namespace

i32 tarn_vlan_add_vlan_to_port(u32 ifindex, u32 vid, u32 tagged) {
    _one_bit one;
    _set_one(&one, vid);
    tarn_if *port = vid < TARN_VLAN_COUNT ? tarn_ifmgr_lookup_by_index(ifindex) : nullptr;
    if (!port)
        return -EINVAL;
    i32 result = _tarn_vlan_add_bmp_to_port(port, one.bitmap, vid, vid, tagged);
    tarn_ifmgr_if_ref_put(port);
    return result;
}

i32 tarn_vlan_add_vlan_to_port_bulk(u32 ifindex, const u32 *bitmap, u32 tagged) {
    tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
    if (!port)
        return -EINVAL;
    i32 result = _tarn_vlan_add_bmp_to_port(port, bitmap, FIRST_VID, LAST_VID, tagged);
    tarn_ifmgr_if_ref_put(port);
    return result;
}

i32 tarn_vlan_delete_vlan_from_port(u32 ifindex, u32 vid) {
    _one_bit one;
    _set_one(&one, vid);
    tarn_if *port = vid < TARN_VLAN_COUNT ? tarn_ifmgr_lookup_by_index(ifindex) : nullptr;
    if (!port)
        return -EINVAL;
    i32 result =
        _is_port(port) ? _tarn_vlan_delete_bmp_from_port(port, one.bitmap, vid, vid, 1) : -EINVAL;
    tarn_ifmgr_if_ref_put(port);
    return result;
}

i32 tarn_vlan_delete_vlan_from_port_bulk(u32 ifindex, const u32 *bitmap) {
    tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
    if (!port)
        return 0;
    i32 result = _is_port(port)
                     ? _tarn_vlan_delete_bmp_from_port(port, bitmap, FIRST_VID, LAST_VID, 1)
                     : -EINVAL;
    tarn_ifmgr_if_ref_put(port);
    return result;
}

i32 tarn_vlan_delete_vlan_from_port_all(tarn_if *port) {
    if (!_is_port(port))
        return -EINVAL;
    i32 result =
        _tarn_vlan_delete_bmp_from_port(port, port->vlan_member_bmp, FIRST_VID, LAST_VID, 0);
    _flush(nullptr, port);
    return result;
}

i32 tarn_vlan_unbind_vlan_from_port(tarn_if *vlan, tarn_if *port, u32 flush) {
    if (!vlan || !port)
        return -EINVAL;
    i32 result = _unbind(vlan, port, flush);
    tarn_follow_vlans(port, vlan->vid, vlan->vid);
    return result;
}

// One that is no member, and the aggregator itself, may be told to leave as often as anybody likes:
// another binding each time would be more than memory holds.
i32 tarn_vlan_agg_port_bind_update(tarn_if *port, tarn_if *aggregator, u32 attach) {
    if (!port || !aggregator)
        return -EINVAL;
    tarn_ifmgr_change_begin();
    if (attach)
        _for_each_vlan_above(port, [=](tarn_if *vlan) { _move_up(vlan, port, aggregator); });
    else if (tarn_ifmgr_isbound(aggregator, port))
        _for_each_vlan_above(aggregator, [=](tarn_if *vlan) { tarn_ifmgr_bind(vlan, port); });
    else
        _for_each_vlan_above(aggregator, [=](tarn_if *vlan) { _bind_once(vlan, port); });
    tarn_ifmgr_change_end();
    return 0;
}

i32 tarn_vlan_agg_unbind(tarn_if *aggregator) {
    if (!aggregator)
        return -EINVAL;
    tarn_ifmgr_change_begin();
    _for_each_vlan_above(aggregator, [=](tarn_if *vlan) { tarn_ifmgr_unbind(vlan, aggregator); });
    tarn_ifmgr_change_end();
    return 0;
}
