// The six callbacks: what the core asks of the chip.
#include "chip_egress.h"
#include "chip_forward.h"
#include "chip_reach.h"
#include "kernel/errno.h"
#include "kernel/netdev.h"
#include "port.h"
#include "tarn/rxtx_hw.h"

namespace {

constexpr u32 MASK_TRUSTED = 0x40; // the only port flag that the chip knows of

bool _is_sound(const sk_buff *skb) {
    return skb_is_linear(skb) && skb_len(skb) >= ETH_HEADER;
}

bool _is_vlan(u32 vid) {
    return vid >= 1 && vid <= CHIP_VID_LAST;
}

// The CPU's own frames go by the address table too, but no address is learned from them, and who
// sends to a group from here means all of it.
u64 _ports_of_vlan(const sk_buff *skb, u32 vid) {
    chip_frame frame{};
    frame.data = skb_data(skb);
    frame.length = skb_len(skb);
    frame.vid = vid;
    frame.destination = reach_find(frame.data, vid, CHIP_PORTS);
    return forward_ports(frame, 0, true);
}

// A sender that wrote the tag of that VLAN itself means this one, and not a second before it.
bool _has_tag_of(const sk_buff *skb, u32 vid) {
    const u8 *data = skb_data(skb);
    return skb_len(skb) >= ETH_HEADER + VLAN_TAG && data[12] == 0x81 && data[13] == 0x00 &&
           (static_cast<u32>(data[14] & 0xF) << 8 | data[15]) == vid;
}

// The port itself, or of an aggregator a member that may carry the frame.
u64 _ports_of(u32 ifindex, u64 named, const sk_buff *skb) {
    if (chip_slot_of(ifindex) < CHIP_PORTS)
        return chip_bit(chip_slot_of(ifindex));
    return reach_one_of_each(named & chip.running, skb_data(skb));
}

u32 _start_xmit(u32 ifindex, u32 vid, u32 tagged, u32, sk_buff *skb, u32 cos, u8, u8) {
    if (!_is_sound(skb) || vid > CHIP_VID_LAST || (ifindex == 0 && vid == 0))
        return static_cast<u32>(-EINVAL);
    chip_egress egress;
    read_lock_bh(&chip.lock);
    u64 named = reach_named(ifindex);
    bool known = ifindex == 0 || named != 0;
    if (named != 0)
        egress_gather_ports(egress, _ports_of(ifindex, named, skb), tagged != 0, vid, cos);
    else if (known)
        egress_gather(egress, _ports_of_vlan(skb, vid), vid, cos);
    read_unlock_bh(&chip.lock);
    if (!known)
        return static_cast<u32>(-ENODEV);
    if (named != 0 && egress.ports == 0)
        chip_count_drop(chip_first(named), CHIP_DROP_LINK);
    bool own_tag = (ifindex == 0 || tagged != 0) && _has_tag_of(skb, vid);
    egress_send(egress, skb, own_tag);
    return 0;
}

// A pair names a port of the chip by (ifindex, 0). Any other second word names the far end of a
// tunnel, of which the chip has none. Members of an aggregator are one port.
u64 _excepted(u32 ifindex, u32 except0, u32 except1) {
    u64 ports = reach_named(ifindex);
    if (except0 != ~0u && except1 == 0)
        ports |= reach_named(except0);
    return reach_with_groups(ports);
}

i32 _flood_except(u32 ifindex, u32 vid, u32 except0, u32 except1, sk_buff *skb, u32 cos, u8,
                  u32 mask, u32, u8) {
    if ((mask & ~MASK_TRUSTED) != 0)
        return -EOPNOTSUPP;
    if (!_is_sound(skb) || !_is_vlan(vid))
        return -EINVAL;
    chip_egress egress;
    read_lock_bh(&chip.lock);
    u64 ports = reach_out(vid) & ~_excepted(ifindex, except0, except1);
    if (mask & MASK_TRUSTED)
        ports &= chip.trusted;
    egress_gather(egress, reach_one_of_each(ports, skb_data(skb)), vid, cos);
    read_unlock_bh(&chip.lock);
    egress_send(egress, skb, false);
    return 0;
}

// The device under the port, or the one that the core made for a routed port: that one has the
// port's number.
bool _is_of_port(const chip_port &port, const net_device *netdev) {
    return chip_port_is(port.device, netdev) || port.ifindex == netdev_ifindex(netdev);
}

// From now on the port's frames go to the CPU, but those of hosts that the chip was told of.
u32 _auth_set(net_device *netdev, u32 on) {
    u64 port = 0;
    write_lock_bh(&chip.lock);
    for (u64 left = chip.present; left; left &= left - 1)
        if (_is_of_port(chip.ports[chip_first(left)], netdev))
            port = chip_bit(chip_first(left));
    chip.authenticating = on ? chip.authenticating | port : chip.authenticating & ~port;
    write_unlock_bh(&chip.lock);
    return port != 0 ? 0 : static_cast<u32>(-ENODEV);
}

u32 _unknown_multicast_flood_set(u32 enable) {
    write_lock_bh(&chip.lock);
    chip.unknown_multicast_flood = enable != 0;
    write_unlock_bh(&chip.lock);
    return 0;
}

u32 _counter(const chip_counters &count, unsigned long which) {
    unsigned long dropped = 0;
    for (const unsigned long &of_one_kind : count.dropped)
        dropped += read_once(of_one_kind);
    if (which == 0)
        return static_cast<u32>(read_once(count.rx));
    if (which == 1)
        return static_cast<u32>(read_once(count.tx));
    return which == 2 ? static_cast<u32>(dropped) : 0;
}

// (ifindex or 0 for all ports, 0 received, 1 sent, 2 dropped)
u32 _sdma_counters(unsigned long ifindex, unsigned long which, unsigned long) {
    u32 sum = 0;
    read_lock_bh(&chip.lock);
    for (u64 left = chip.present; left; left &= left - 1) {
        const chip_port &port = chip.ports[chip_first(left)];
        if (ifindex == 0 || port.ifindex == ifindex)
            sum += _counter(port.count, which);
    }
    read_unlock_bh(&chip.lock);
    return sum;
}

// (first 2 bytes of a MAC, its last 4, VID): the place of the address in the table, or -1.
i32 _cache_index(unsigned long high, unsigned long low, unsigned long vid) {
    return fdb_place((u64{high & 0xFFFF} << 32 | (low & 0xFFFFFFFF)) << 16 | (vid & 0xFFFF));
}

} // namespace

void chip_register() {
    read_lock_bh(&chip.lock);
    bool software = chip.software_flood;
    read_unlock_bh(&chip.lock);
    rxtx_hw_register({
        .sdma_counters = _sdma_counters,
        .auth_set = _auth_set,
        .start_xmit = _start_xmit,
        .flood_except = software ? nullptr : _flood_except,
        .unknown_multicast_flood_set = _unknown_multicast_flood_set,
        .cache_index = _cache_index,
    });
}
