#include "chip_reach.h"

namespace {

constinit u8 _ended = 0;

// Ports that are in VLANs as the core says, which must exist.
u64 _of_the_core() {
    return chip.known & ~chip.routed;
}

u64 _in_service(u32 vid) {
    u64 ports = chip.running & ~chip.disabled[vid];
    return chip.vlans[vid].exists ? ports : ports & ~_of_the_core();
}

bool _is_open(u64 port, u32 vid) {
    return (chip.open & port) || (chip.vlans[vid].open && (_of_the_core() & port));
}

// Of the flow: its two stations.
u32 _hash(const u8 *frame) {
    u32 mixed = 0;
    for (u32 i = 0; i < 12; i++)
        mixed = (mixed ^ frame[i]) * 0x01000193u;
    return mixed ^ mixed >> 16;
}

// By hand: a kernel does not give a module what a compiler may call for it.
u32 _size(u64 set) {
    u32 count = 0;
    for (; set; set &= set - 1)
        count++;
    return count;
}

u64 _nth(u64 set, u32 n) {
    while (n-- > 0)
        set &= set - 1;
    return set & -set;
}

} // namespace

chip_drop reach_in(const chip_frame &frame, bool *learns) {
    u64 port = chip_bit(frame.slot);
    u32 vid = frame.vid;
    *learns = false;
    if (vid == 0)
        return CHIP_DROP_UNTAGGED;
    if (!(chip.running & port))
        return CHIP_DROP_LINK;
    if (vid > CHIP_VID_LAST || !(_in_service(vid) & port))
        return CHIP_DROP_VLAN;
    bool member = chip.members[vid] & port;
    if (!member && !_is_open(port, vid))
        return CHIP_DROP_VLAN;
    u32 instance = chip.vlans[vid].instance;
    *learns = member && (chip.learns[instance] & ~chip.routed & port);
    return chip.forwards[instance] & port ? CHIP_DROPS : CHIP_DROP_STP;
}

u64 reach_out(u32 vid) {
    return chip.members[vid] & _in_service(vid) & chip.forwards[chip.vlans[vid].instance];
}

bool reach_knows(u64 ports, u32 vid) {
    u64 learning = chip.members[vid] & _in_service(vid) & chip.learns[chip.vlans[vid].instance];
    return (reach_with_groups(ports) & learning) != 0;
}

u64 reach_with_groups(u64 ports) {
    u64 all = 0;
    for (; ports; ports &= ports - 1)
        all |= chip.ports[chip_first(ports)].group;
    return all;
}

u64 reach_one_of_each(u64 ports, const u8 *frame) {
    u64 chosen = 0;
    while (ports) {
        u64 members = ports & chip.ports[chip_first(ports)].group;
        u32 count = _size(members);
        chosen |= count > 1 ? _nth(members, _hash(frame) % count) : members;
        ports &= ~members;
    }
    return chosen;
}

u64 reach_named(u32 ifindex) {
    u64 ports = 0;
    for (u64 left = chip.present; left && ifindex != 0; left &= left - 1) {
        const chip_port &port = chip.ports[chip_first(left)];
        if (port.ifindex == ifindex || port.aggregator == ifindex)
            ports |= chip_bit(chip_first(left));
    }
    return ports;
}

// A watcher need not be a member of the VLAN: it shows what left elsewhere.
u32 reach_mirror(u32 slot, u32 vid) {
    u64 may = chip.known & chip.running & chip.forwards[chip.vlans[vid].instance];
    u64 ports = reach_named(chip.ports[slot].mirror) & may;
    return ports != 0 ? chip_first(ports) : CHIP_PORTS;
}

u32 reach_learns_at(u32 slot) {
    return chip_first(chip.ports[slot].group);
}

bool reach_is_own(const u8 *mac, u32 vid, u32 slot) {
    u64 address = fdb_key(mac, 0) >> 16;
    if (address == 0)
        return false;
    return (vid <= CHIP_VID_LAST && address == chip.vlans[vid].own) ||
           (slot < CHIP_PORTS && address == chip.ports[slot].own);
}

fdb_entry reach_find(const u8 *mac, u32 vid, u32 slot) {
    u64 key = fdb_key(mac, vid);
    if (reach_is_own(mac, vid, slot))
        return {.key = key, .ports = 0, .heard = 0, .kind = FDB_OWN};
    fdb_entry found = fdb_find(key);
    if (found.kind == FDB_LEARNED && !reach_knows(found.ports, vid))
        return {};
    return found;
}

void reach_regroup() {
    for (u32 slot = 0; slot < CHIP_PORTS; slot++) {
        chip_port &port = chip.ports[slot];
        u64 group = port.aggregator != 0 ? reach_named(port.aggregator) : 0;
        group |= chip_bit(slot);
        if (group != port.group)
            fdb_drop_learned(group | port.group);
        port.group = group;
    }
}

void reach_ended() {
    write_once(_ended, 1);
}

void reach_forget() {
    if (!__atomic_exchange_n(&_ended, 0, __ATOMIC_RELAXED))
        return;
    read_lock_bh(&chip.lock);
    fdb_drop_unless(reach_knows);
    read_unlock_bh(&chip.lock);
}
