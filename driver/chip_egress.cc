#include "chip_egress.h"

#include "chip_frame.h"
#include "chip_reach.h"
#include "kernel/bytes.h"
#include "kernel/memory.h"
#include "port.h"

namespace {

constexpr u32 MACS = 12;

// The first 16 bytes are about to be written, and 4 put before them.
bool _make_writable(sk_buff *skb) {
    bool room = skb_headroom(skb) >= VLAN_TAG;
    if (room && !skb_cloned(skb))
        return true;
    return pskb_expand_head(skb, room ? 0 : static_cast<int>(VLAN_TAG), 0, GFP_ATOMIC) == 0;
}

bool _add_tag(sk_buff *skb, u32 tci) {
    if (!_make_writable(skb))
        return false;
    u8 *data = static_cast<u8 *>(skb_push(skb, VLAN_TAG));
    memmove(data, data + VLAN_TAG, MACS);
    data[12] = 0x81;
    data[13] = 0x00;
    data[14] = static_cast<u8>(tci >> 8);
    data[15] = static_cast<u8>(tci);
    return true;
}

bool _strip_tag(sk_buff *skb) {
    if (!_make_writable(skb))
        return false;
    memmove(skb_data(skb) + VLAN_TAG, skb_data(skb), MACS);
    skb_pull(skb, VLAN_TAG);
    return true;
}

void _drop(const chip_egress &egress, u64 ports) {
    for (; ports; ports &= ports - 1) {
        u32 slot = chip_first(ports);
        chip_count_drop(slot, CHIP_DROP_MEMORY);
        chip_port_put(egress.device[slot]);
    }
}

int _send(chip_device *device, sk_buff *skb, const chip_work *work) {
    return work ? chip_port_send_unfinished(device, skb, work) : chip_port_send(device, skb);
}

void _send_one(const chip_egress &egress, u32 slot, sk_buff *skb) {
    if (_send(egress.device[slot], skb, egress.work) == 0)
        count_in(chip.ports[slot].count.tx, 1);
    else
        chip_count_drop(slot, CHIP_DROP_SEND);
    chip_port_put(egress.device[slot]);
}

// All these ports send the frame as it is: clones, and the frame itself to the last.
void _send_each(const chip_egress &egress, u64 ports, sk_buff *skb) {
    for (; ports & (ports - 1); ports &= ports - 1) {
        u32 slot = chip_first(ports);
        sk_buff *clone = skb_clone(skb, GFP_ATOMIC);
        if (clone)
            _send_one(egress, slot, clone);
        else
            _drop(egress, chip_bit(slot));
    }
    _send_one(egress, chip_first(ports), skb);
}

void _send_changed(const chip_egress &egress, u64 ports, sk_buff *skb, bool has_tag) {
    if (skb && (has_tag ? _strip_tag(skb) : _add_tag(skb, egress.tag_tci)))
        return _send_each(egress, ports, skb);
    kfree_skb(skb);
    _drop(egress, ports);
}

// Of its own: who watches has its tag by what it is itself.
void _send_copy(const chip_egress &egress, u32 slot, const sk_buff *skb, bool has_tag) {
    u64 port = chip_bit(slot);
    bool changes = ((egress.copies_tagged & port) != 0) != has_tag;
    sk_buff *copy = skb_copy(skb, GFP_ATOMIC);
    if (changes)
        _send_changed(egress, port, copy, has_tag);
    else if (copy)
        _send_one(egress, slot, copy);
    else
        _drop(egress, port);
}

void _gather(chip_egress &egress, u64 ports, u32 vid, u32 cos) {
    egress.copies = 0;
    egress.copies_tagged = 0;
    egress.work = nullptr;
    egress.ports = ports & chip.up;
    egress.tagged = egress.ports & ~chip.untagged[vid];
    egress.tag_tci = (cos & 7) << 13 | vid;
    for (u64 left = egress.ports; left; left &= left - 1) {
        u32 slot = chip_first(left);
        egress.device[slot] = chip.ports[slot].device;
        chip_port_get(egress.device[slot]);
    }
}

// Who watches may be watched in turn. Deeper than this is a ring.
void _gather_copies(chip_egress &egress, u32 slot, u32 vid) {
    constexpr u32 DEPTH = 8;
    for (u32 depth = 0; depth < DEPTH && egress.copies < CHIP_PORTS; depth++) {
        slot = reach_mirror(slot, vid);
        if (slot == CHIP_PORTS)
            return;
        egress.device[slot] = chip.ports[slot].device;
        chip_port_get(egress.device[slot]);
        egress.copy_slot[egress.copies++] = static_cast<u8>(slot);
        egress.copies_tagged |= chip_bit(slot) & ~chip.untagged[vid];
    }
}

} // namespace

void egress_gather(chip_egress &egress, u64 ports, u32 vid, u32 cos) {
    _gather(egress, ports, vid, cos);
    for (u64 left = egress.ports & chip.mirrored; left; left &= left - 1)
        _gather_copies(egress, chip_first(left), vid);
}

void egress_gather_ports(chip_egress &egress, u64 ports, bool tagged, u32 vid, u32 cos) {
    _gather(egress, ports, 0, cos);
    egress.tagged = tagged ? egress.ports : 0;
    egress.tag_tci |= vid;
}

void egress_send(chip_egress &egress, sk_buff *skb, bool has_tag) {
    for (u32 i = 0; i < egress.copies; i++)
        _send_copy(egress, egress.copy_slot[i], skb, has_tag);
    u64 as_it_is = has_tag ? egress.tagged : egress.ports & ~egress.tagged;
    u64 changed = egress.ports & ~as_it_is;
    if (changed != 0)
        _send_changed(egress, changed, as_it_is ? skb_copy(skb, GFP_ATOMIC) : skb, has_tag);
    if (as_it_is != 0)
        _send_each(egress, as_it_is, skb);
    else if (changed == 0)
        kfree_skb(skb);
}
