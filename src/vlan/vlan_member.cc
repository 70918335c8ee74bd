// VLAN membership of ports: the bitmaps, as the packet path reads them and the daemon sets them.
#include "vlan/vlan_member.h"

#include "ifmgr/tarn_ifmgr.h"
#include "kernel/errno.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_follow.h"
#include "vlan/vlan_bits.h"

namespace {

constexpr u32 FIRST_VID = 1;
constexpr u32 LAST_VID = 4094;

bool _is_port(const tarn_if *ifp) {
    return ifp->type == TARN_IF_TYPE_SWITCHPORT;
}

// Runs the change on the port of that ifindex.
template <typename Change>
i32 _on_port(u32 ifindex, Change change) {
    tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
    if (!port)
        return -EINVAL;
    i32 result = -EINVAL;
    if (_is_port(port)) {
        change(port);
        result = 0;
    }
    tarn_ifmgr_if_ref_put(port);
    return result;
}

} // namespace

bool tarn_vlan_is_vlan_port_disabled(const tarn_if *port, u32 vid) {
    return vlan_bit(port->vlan_disabled_bmp, vid);
}

bool tarn_vlan_port_member_check(const tarn_if *port, u32 vid) {
    return vlan_bit(port->vlan_member_bmp, vid);
}

bool tarn_vlan_egress_tagged(const tarn_if *port, u32 vid) {
    return port && _is_port(port) && vlan_bit(port->vlan_tagged_bmp, vid);
}

i32 tarn_vlan_set_ingress_filter(u32 ifindex, u8 on) {
    return _on_port(ifindex, [=](tarn_if *port) {
        write_once(port->ingress_filter, on);
        tarn_follow(port);
    });
}

i32 tarn_vlan_set_default_pvid(u32 ifindex, u16 vid) {
    return _on_port(ifindex, [=](tarn_if *port) {
        write_once(port->default_pvid, vid);
        tarn_follow(port);
    });
}

i32 tarn_vlan_set_vlan_port_disabled(u32 ifindex, u32 vid, u32 disabled) {
    if (vid >= TARN_VLAN_COUNT)
        return -EINVAL;
    return _on_port(ifindex, [=](tarn_if *port) {
        vlan_bit_write(port->vlan_disabled_bmp, vid, disabled != 0);
        tarn_follow_vlans(port, vid, vid);
    });
}

// The type is asked at the first set bit, on purpose: an empty bitmap suits any interface.
i32 tarn_vlan_set_vlan_port_disabled_bmp(u32 ifindex, const u32 *bitmap, u32 disabled) {
    tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
    if (!port)
        return -EINVAL;
    i32 result = 0;
    for (u32 vid = FIRST_VID; vid <= LAST_VID && result == 0; vid++) {
        if (!vlan_bit(bitmap, vid))
            continue;
        if (_is_port(port))
            vlan_bit_write(port->vlan_disabled_bmp, vid, disabled != 0);
        else
            result = -EINVAL;
    }
    tarn_follow_vlans(port, FIRST_VID, LAST_VID);
    tarn_ifmgr_if_ref_put(port);
    return result;
}

i32 tarn_vlan_set_vlan_port_disable_all(u32 ifindex, u32 disabled) {
    return _on_port(ifindex, [=](tarn_if *port) {
        for (u32 vid = FIRST_VID; vid <= LAST_VID; vid++)
            vlan_bit_write(port->vlan_disabled_bmp, vid, disabled != 0);
        tarn_follow_vlans(port, FIRST_VID, LAST_VID);
    });
}
