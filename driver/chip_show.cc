#include "chip_show.h"

#include "chip_fdb.h"
#include "chip_reach.h"
#include "chip_state.h"
#include "chip_trap.h"
#include "port.h"

#include <iterator>

namespace {

constexpr const char *_drop_names[] = {"runt", "link",     "source",  "untagged", "vlan", "stp",
                                       "own",  "reserved", "nowhere", "memory",   "send", "cpu"};
static_assert(std::size(_drop_names) == CHIP_DROPS);

constexpr const char *_mode_names[] = {"off", "only", "copy"};

const char *_on(u64 set, u32 slot) {
    return set & chip_bit(slot) ? "on" : "off";
}

void _drops(chip_text &text, const chip_port &port) {
    for (u32 why = 0; why < CHIP_DROPS; why++)
        if (unsigned long dropped = read_once(port.count.dropped[why]))
            text_put(text, " drop-%s %lu", _drop_names[why], dropped);
    if (unsigned long lost = chip_port_lost(port.device))
        text_put(text, " drop-arrival %lu", lost);
}

void _port(chip_text &text, u32 slot) {
    const chip_port &port = chip.ports[slot];
    text_put(text, "port %u %s link %s pvid %u learn %s trusted %s auth %s", port.ifindex,
             port.name, chip.up & chip_bit(slot) ? "up" : "down", port.pvid,
             _on(chip.learning, slot), _on(chip.trusted, slot), _on(chip.authenticating, slot));
    if (chip.known & chip_bit(slot))
        text_put(text, " by core");
    if (port.aggregator != 0)
        text_put(text, " lag %u", port.aggregator);
    if (chip.routed & chip_bit(slot))
        text_put(text, " routed %u", port.routed_vid);
    text_put(text, " rx %lu tx %lu learned %lu moved %lu", read_once(port.count.rx),
             read_once(port.count.tx), read_once(port.count.learned), read_once(port.count.moved));
    _drops(text, port);
    text_end_line(text);
}

void _vlan(chip_text &text, u32 vid) {
    text_put(text, "vlan %u", vid);
    for (u64 left = chip.members[vid]; left; left &= left - 1) {
        u32 slot = chip_first(left);
        text_put(text, " %u %s", chip.ports[slot].ifindex,
                 chip.untagged[vid] & chip_bit(slot) ? "untagged" : "tagged");
    }
    text_end_line(text);
}

void _address(chip_text &text, const fdb_entry &entry) {
    constexpr const char *kinds[] = {"none", "learned", "static", "own", "group"};
    text_put(text, "fdb ");
    for (int shift = 56; shift >= 16; shift -= 8)
        text_put(text, "%02x%s", static_cast<u32>(entry.key >> shift & 0xFF),
                 shift == 16 ? "" : ":");
    text_put(text, " %u %s", static_cast<u32>(entry.key & 0xFFFF), kinds[entry.kind]);
    for (u64 left = entry.ports; left; left &= left - 1)
        text_put(text, " %u", chip.ports[chip_first(left)].ifindex);
    text_end_line(text);
}

} // namespace

// Callbacks of the core change some of it at any time.
void show_settings(chip_text &text) {
    read_lock_bh(&chip.lock);
    text_put(text, "age %u", chip.age_seconds);
    text_end_line(text);
    text_put(text, "flood %s", chip.software_flood ? "software" : "hardware");
    text_end_line(text);
    text_put(text, "unknown-multicast %s", chip.unknown_multicast_flood ? "on" : "off");
    text_end_line(text);
    text_put(text, "sflow %u", chip.sample_rate);
    text_end_line(text);
    text_put(text, "filter");
    for (u32 i = 0; i < CHIP_FILTER_TYPES; i++)
        if (i == 0 || chip.filter_types[i] != 0)
            text_put(text, " %x", chip.filter_types[i]);
    text_end_line(text);
    read_unlock_bh(&chip.lock);
}

void show_ports(chip_text &text) {
    read_lock_bh(&chip.lock);
    for (u64 left = chip.present; left; left &= left - 1)
        _port(text, chip_first(left));
    read_unlock_bh(&chip.lock);
}

void show_vlans(chip_text &text) {
    read_lock_bh(&chip.lock);
    for (u32 vid = 1; vid <= CHIP_VID_LAST; vid++)
        if (chip.members[vid] != 0)
            _vlan(text, vid);
    read_unlock_bh(&chip.lock);
}

// The switch's own addresses, as the core says them, and then the table.
void show_addresses(chip_text &text) {
    reach_forget();
    read_lock_bh(&chip.lock);
    for (u32 vid = 1; vid <= CHIP_VID_LAST; vid++)
        if (u64 own = chip.vlans[vid].own)
            _address(text, {.key = own << 16 | vid, .ports = 0, .heard = 0, .kind = FDB_OWN});
    read_unlock_bh(&chip.lock);
    u32 position = 0;
    fdb_entry entry;
    while (fdb_next(position, entry))
        _address(text, entry);
}

void show_traps(chip_text &text) {
    for (u32 row = 0; row < trap_count(); row++) {
        const chip_trap &trap = trap_row(row);
        text_put(text, "trap %s %s cpu_code %u code %u flags %u queue %u hits %lu", trap.name,
                 _mode_names[chip.traps[row]], trap.cpu_code, trap.code, trap.flags, trap.queue,
                 read_once(chip.trap_hits[row]));
        text_end_line(text);
    }
}
