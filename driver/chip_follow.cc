#include "chip_follow.h"

#include "chip_fdb.h"
#include "chip_reach.h"
#include "kernel/bytes.h"
#include "tarn/rxtx_follow.h"

namespace {

static_assert(sizeof(rxtx_follow_port::name) == CHIP_LABEL);

constexpr u32 WORD = 32; // VLANs that are read at once

void _set(u64 &set, u64 bit, bool on) {
    set = on ? set | bit : set & ~bit;
}

// Of a member of an aggregator both have a say.
rxtx_follow_vlans _read_vlans(const chip_port &port, u32 vid) {
    rxtx_follow_vlans own{}, above{};
    rxtx_follow_vlans_get(port.ifindex, vid, &own);
    if (port.aggregator != 0)
        rxtx_follow_vlans_get(port.aggregator, vid, &above);
    return {own.member | above.member, own.tagged | (above.tagged & ~own.member),
            own.disabled | above.disabled};
}

void _take_vlan(u32 slot, u32 vid, const rxtx_follow_vlans &told) {
    u64 bit = chip_bit(slot);
    u32 at = vid % WORD;
    _set(chip.members[vid], bit, told.member >> at & 1);
    _set(chip.untagged[vid], bit, !(told.tagged >> at & 1));
    _set(chip.disabled[vid], bit, told.disabled >> at & 1);
}

// A routed port is in its own VLAN and in no other.
void _take_routed_vlan(u32 slot, u32 vid) {
    u64 bit = chip_bit(slot);
    _set(chip.members[vid], bit, vid == chip.ports[slot].routed_vid);
    _set(chip.untagged[vid], bit, true);
    _set(chip.disabled[vid], bit, false);
}

void _take_vlans(u32 slot, u32 first, u32 last) {
    rxtx_follow_vlans told{};
    for (u32 vid = first; vid <= last; vid++) {
        if (chip.routed & chip_bit(slot)) {
            _take_routed_vlan(slot, vid);
            continue;
        }
        if (vid == first || vid % WORD == 0)
            told = _read_vlans(chip.ports[slot], vid);
        _take_vlan(slot, vid, told);
    }
}

// Spanning tree is about bridge ports.
void _take_stp(u32 slot, u32 instance) {
    u64 bit = chip_bit(slot);
    i32 state = chip.routed & bit ? i32{RXTX_FOLLOW_STP_FORWARDING}
                                  : rxtx_follow_stp_get(chip.ports[slot].ifindex, instance);
    bool forwards = state == RXTX_FOLLOW_STP_FORWARDING;
    _set(chip.forwards[instance], bit, forwards);
    _set(chip.learns[instance], bit, forwards || state == RXTX_FOLLOW_STP_LEARNING);
}

bool _is_other(const chip_port &port, bool routed, const rxtx_follow_port &told) {
    return port.aggregator != told.aggregator || port.routed_vid != told.routed_vid ||
           routed != (told.routed != 0);
}

void _take_all(u32 slot) {
    reach_regroup();
    _take_vlans(slot, 1, CHIP_VID_LAST);
    for (u32 instance = 0; instance < CHIP_INSTANCES; instance++)
        _take_stp(slot, instance);
}

u64 _address(const u8 *mac) {
    return fdb_key(mac, 0) >> 16;
}

// `above` is the aggregator's word, or the port's own.
void _take_port(u32 slot, const rxtx_follow_port &told, const rxtx_follow_port &above) {
    chip_port &port = chip.ports[slot];
    u64 bit = chip_bit(slot);
    bool anew = !(chip.known & bit) || _is_other(port, chip.routed & bit, told);
    bool in_group = told.aggregator != 0;
    chip.known |= bit;
    _set(chip.up, bit, told.up);
    _set(chip.running, bit, told.up && (!in_group || (told.running && above.running)));
    _set(chip.routed, bit, told.routed);
    _set(chip.open, bit, !told.routed && !told.ingress_filter && !above.ingress_filter);
    memcpy(port.label, told.name, sizeof(port.label));
    port.mirror = told.mirror != 0 ? told.mirror : above.mirror;
    _set(chip.mirrored, bit, port.mirror != 0);
    port.aggregator = told.aggregator;
    port.routed_vid = told.routed_vid;
    port.own = told.routed ? _address(told.mac) : 0;
    port.pvid = told.routed ? told.routed_vid : told.pvid != 0 ? told.pvid : above.pvid;
    if (anew)
        _take_all(slot);
}

void _take(u32 slot) {
    rxtx_follow_port told, above;
    u32 ifindex = chip.ports[slot].ifindex;
    if (rxtx_follow_port_get(ifindex, &told) != 0) {
        if (chip.known & chip_bit(slot))
            chip_reset_port(slot);
        return;
    }
    above = told;
    if (told.aggregator != 0 && rxtx_follow_port_get(told.aggregator, &above) != 0) {
        told.aggregator = 0;
        above = told;
    }
    if (above.routed) {
        told.routed = 1;
        told.routed_vid = above.routed_vid;
        for (u32 i = 0; i < sizeof(told.mac); i++)
            told.mac[i] = above.mac[i];
    }
    _take_port(slot, told, above);
}

// Runs the change on the ports that the ifindex means, so that no frame sees half of it.
template <typename Change>
void _on_ports(u32 ifindex, Change change) {
    write_lock_bh(&chip.lock);
    for (u64 left = reach_named(ifindex); left; left &= left - 1)
        change(chip_first(left));
    write_unlock_bh(&chip.lock);
    reach_ended();
}

bool _is_known(u32 slot) {
    return chip.known & chip_bit(slot);
}

void _port(u32 ifindex) {
    _on_ports(ifindex, _take);
}

void _port_vlans(u32 ifindex, u32 first, u32 last) {
    u32 low = first < 1 ? 1 : first, high = last > CHIP_VID_LAST ? CHIP_VID_LAST : last;
    _on_ports(ifindex, [=](u32 slot) {
        if (_is_known(slot))
            _take_vlans(slot, low, high);
    });
}

void _port_stp(u32 ifindex, u32 instance) {
    if (instance >= CHIP_INSTANCES)
        return;
    _on_ports(ifindex, [=](u32 slot) {
        if (_is_known(slot))
            _take_stp(slot, instance);
    });
}

void _vlan(u32 vid) {
    if (vid < 1 || vid > CHIP_VID_LAST)
        return;
    write_lock_bh(&chip.lock);
    rxtx_follow_vlan told{};
    bool exists = rxtx_follow_vlan_get(vid, &told) == 0;
    u8 instance = told.stp_instance < CHIP_INSTANCES ? told.stp_instance : u8{0};
    chip.vlans[vid] = {_address(told.mac), instance, exists, told.no_member_check != 0};
    write_unlock_bh(&chip.lock);
    reach_ended();
}

constexpr rxtx_follow_callbacks _callbacks{
    .port = _port,
    .port_vlans = _port_vlans,
    .port_stp = _port_stp,
    .vlan = _vlan,
};

} // namespace

void follow_start() {
    rxtx_follow_register(&_callbacks);
}

void follow_stop() {
    rxtx_follow_register(nullptr);
}

void follow_port(u32 slot) {
    write_lock_bh(&chip.lock);
    _take(slot);
    write_unlock_bh(&chip.lock);
}
