#include "chip.h"

#include "chip_fdb.h"
#include "chip_follow.h"
#include "chip_reach.h"
#include "chip_state.h"
#include "chip_trap.h"
#include "kernel/bytes.h"
#include "port.h"

constinit chip_state chip{};

namespace {

constexpr u32 AGE_SECONDS = 300;

void _close_all() {
    for (u64 left = chip.present; left; left &= left - 1)
        chip_remove_port(chip_first(left));
}

// Counters are written without the lock.
void _free_slot(chip_port &port) {
    port.device = nullptr;
    port.ifindex = 0;
    memset(port.name, 0, sizeof(port.name));
    write_once(port.count.rx, 0);
    write_once(port.count.tx, 0);
    write_once(port.count.learned, 0);
    write_once(port.count.moved, 0);
    for (unsigned long &dropped : port.count.dropped)
        write_once(dropped, 0);
}

} // namespace

u32 chip_slot_of(u32 ifindex) {
    for (u64 left = chip.present; left; left &= left - 1)
        if (chip.ports[chip_first(left)].ifindex == ifindex)
            return chip_first(left);
    return CHIP_PORTS;
}

void chip_reset_port(u32 slot) {
    chip_port &port = chip.ports[slot];
    u64 bit = chip_bit(slot);
    port.pvid = port.aggregator = port.routed_vid = 0;
    port.own = 0;
    port.mirror = 0;
    port.label[0] = '\0';
    chip.known &= ~bit;
    chip.open &= ~bit;
    chip.routed &= ~bit;
    chip.mirrored &= ~bit;
    chip.up |= bit;
    chip.running |= bit;
    for (u32 vid = 0; vid < CHIP_VLANS; vid++) {
        chip.members[vid] &= ~bit;
        chip.untagged[vid] &= ~bit;
        chip.disabled[vid] &= ~bit;
    }
    for (u32 instance = 0; instance < CHIP_INSTANCES; instance++) {
        chip.learns[instance] |= bit;
        chip.forwards[instance] |= bit;
    }
    reach_regroup();
}

void chip_remove_port(u32 slot) {
    write_lock_bh(&chip.lock);
    chip_device *device = chip.ports[slot].device;
    chip_reset_port(slot);
    _free_slot(chip.ports[slot]);
    u64 others = ~chip_bit(slot);
    chip.present &= others;
    chip.up &= others;
    chip.running &= others;
    chip.learning &= others;
    chip.trusted &= others;
    chip.authenticating &= others;
    fdb_drop_port(slot);
    write_unlock_bh(&chip.lock);
    if (device)
        chip_port_close(device);
}

void chip_start(void) {
    rwlock_init(&chip.lock, "chip_lock");
    fdb_init();
    chip.unknown_multicast_flood = true;
    chip.software_flood = false;
    chip.age_seconds = AGE_SECONDS;
    chip.sample_rate = 0;
    chip.sample_turn = 0;
    for (u32 &type : chip.filter_types)
        type = 0;
    trap_reset();
    write_lock_bh(&chip.lock);
    for (chip_vlan &vlan : chip.vlans)
        vlan = {};
    reach_regroup();
    write_unlock_bh(&chip.lock);
    chip_register();
    follow_start();
}

void chip_stop(void) {
    follow_stop();
    chip_commands_begin();
    _close_all();
    fdb_clear();
    chip_commands_end();
}

void chip_tick(void) {
    fdb_expire();
    reach_forget();
}

void chip_device_gone(chip_device *device, uint32_t slot) {
    chip_commands_begin();
    if (slot < CHIP_PORTS && chip.ports[slot].device == device)
        chip_remove_port(slot);
    chip_commands_end();
}
