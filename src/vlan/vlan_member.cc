// VLAN membership of ports: the bitmaps.
#include "ifmgr/tarn_if.h"
#include "kernel/once.h"
#include "pkt/pkt_calls.h"

namespace {

// VIDs come from outside: one that no bitmap holds is in none.
bool _bit(const u32 *bitmap, u32 vid) {
    return vid < TARN_VLAN_COUNT && (read_once(bitmap[vid >> 5]) >> (vid & 31) & 1);
}

} // namespace

bool tarn_vlan_is_vlan_port_disabled(const tarn_if *port, u32 vid) {
    return _bit(port->vlan_disabled_bmp, vid);
}

bool tarn_vlan_port_member_check(const tarn_if *port, u32 vid) {
    return _bit(port->vlan_member_bmp, vid);
}
