#include "chip_show.h"

#include "chip_fdb.h"
#include "chip_reach.h"
#include "chip_rows.h"
#include "chip_state.h"
#include "chip_trap.h"
#include "port.h"

#include <iterator>

namespace {

constexpr const char *_drop_names[] = {
    "drop-runt", "drop-link",     "drop-source",  "drop-untagged", "drop-vlan", "drop-stp",
    "drop-own",  "drop-reserved", "drop-nowhere", "drop-memory",   "drop-send", "drop-cpu"};
static_assert(std::size(_drop_names) == CHIP_DROPS);

constexpr const char *_mode_names[] = {"off", "only", "copy"};

const char *_on(u64 set, u32 slot) {
    return set & chip_bit(slot) ? "on" : "off";
}

void _drops(chip_text &text, const chip_port &port) {
    for (u32 why = 0; why < CHIP_DROPS; why++)
        if (unsigned long dropped = read_once(port.count.dropped[why]))
            row_number(text, _drop_names[why], dropped);
    if (unsigned long lost = chip_port_lost(port.device))
        row_number(text, "drop-arrival", lost);
}

void _port(chip_text &text, u32 slot) {
    const chip_port &port = chip.ports[slot];
    row_begin(text, "port");
    row_number(text, "port", port.ifindex, BARE);
    row_word(text, "device", port.name, BARE);
    row_word(text, "link", chip.up & chip_bit(slot) ? "up" : "down");
    row_number(text, "pvid", port.pvid);
    row_word(text, "learn", _on(chip.learning, slot));
    row_word(text, "trusted", _on(chip.trusted, slot));
    row_word(text, "auth", _on(chip.authenticating, slot));
    if (chip.known & chip_bit(slot))
        row_word(text, "name", port.label);
    if (port.aggregator != 0)
        row_number(text, "lag", port.aggregator);
    if (chip.routed & chip_bit(slot))
        row_number(text, "routed", port.routed_vid);
    if (port.mirror != 0)
        row_number(text, "mirror", port.mirror);
    row_number(text, "rx", read_once(port.count.rx));
    row_number(text, "tx", read_once(port.count.tx));
    row_number(text, "learned", read_once(port.count.learned));
    row_number(text, "moved", read_once(port.count.moved));
    _drops(text, port);
    row_end(text);
}

// By its name where the core knows it, else by its number.
void _name_port(chip_text &text, u32 slot) {
    const chip_port &port = chip.ports[slot];
    if (port.label[0] != '\0')
        row_word(text, "port", port.label, BARE);
    else
        row_number(text, "port", port.ifindex, BARE);
}

void _vlan(chip_text &text, u32 vid) {
    row_begin(text, "vlan");
    row_number(text, "vlan", vid, BARE);
    rows_begin(text, "ports");
    for (u64 left = chip.members[vid]; left; left &= left - 1) {
        u32 slot = chip_first(left);
        object_begin(text);
        _name_port(text, slot);
        row_word(text, "frames", chip.untagged[vid] & chip_bit(slot) ? "untagged" : "tagged", BARE);
        object_end(text);
    }
    rows_end(text);
    row_end(text);
}

void _mac(chip_text &text, u64 mac) {
    char word[18];
    for (u32 i = 0; i < 12; i++)
        word[i / 2 * 3 + i % 2] = "0123456789abcdef"[mac >> (44 - 4 * i) & 0xF];
    for (u32 i = 2; i < 17; i += 3)
        word[i] = ':';
    word[17] = '\0';
    row_word(text, "mac", word, BARE);
}

void _address(chip_text &text, const fdb_entry &entry) {
    constexpr const char *kinds[] = {"none", "learned", "static", "own", "group"};
    row_begin(text, "fdb");
    _mac(text, entry.key >> 16);
    row_number(text, "vlan", static_cast<u32>(entry.key & 0xFFFF), BARE);
    row_word(text, "kind", kinds[entry.kind], BARE);
    rows_begin(text, "ports");
    for (u64 left = entry.ports; left; left &= left - 1) {
        object_begin(text);
        _name_port(text, chip_first(left));
        object_end(text);
    }
    rows_end(text);
    row_end(text);
}

// In words a line of its own, as JSON one of the members of the object.
template <typename Put>
void _setting(chip_text &text, const char *name, Put put) {
    if (text.json)
        return put(name);
    row_begin(text, name);
    put(name);
    row_end(text);
}

void _filter(chip_text &text, const char *name) {
    rows_begin(text, name);
    for (u32 i = 0; i < CHIP_FILTER_TYPES; i++)
        if (chip.filter_types[i] != 0 || (i == 0 && !text.json))
            row_hex(text, nullptr, chip.filter_types[i], BARE);
    rows_end(text);
}

} // namespace

// Callbacks of the core change some of it at any time.
void show_settings(chip_text &text, const char *name) {
    object_begin(text, name);
    read_lock_bh(&chip.lock);
    _setting(text, "age", [&](const char *at) { row_number(text, at, chip.age_seconds, BARE); });
    _setting(text, "flood", [&](const char *at) {
        row_word(text, at, chip.software_flood ? "software" : "hardware", BARE);
    });
    _setting(text, "unknown-multicast", [&](const char *at) {
        row_word(text, at, chip.unknown_multicast_flood ? "on" : "off", BARE);
    });
    _setting(text, "sflow", [&](const char *at) { row_number(text, at, chip.sample_rate, BARE); });
    _setting(text, "filter", [&](const char *at) { _filter(text, at); });
    read_unlock_bh(&chip.lock);
    object_end(text);
}

void show_ports(chip_text &text, const char *name) {
    rows_begin(text, name);
    read_lock_bh(&chip.lock);
    for (u64 left = chip.present; left; left &= left - 1)
        _port(text, chip_first(left));
    read_unlock_bh(&chip.lock);
    rows_end(text);
}

void show_vlans(chip_text &text, const char *name) {
    rows_begin(text, name);
    read_lock_bh(&chip.lock);
    for (u32 vid = 1; vid <= CHIP_VID_LAST; vid++)
        if (chip.members[vid] != 0)
            _vlan(text, vid);
    read_unlock_bh(&chip.lock);
    rows_end(text);
}

// The switch's own addresses, as the core says them, and then the table.
void show_addresses(chip_text &text, const char *name) {
    reach_forget();
    rows_begin(text, name);
    read_lock_bh(&chip.lock);
    for (u32 vid = 1; vid <= CHIP_VID_LAST; vid++)
        if (u64 own = chip.vlans[vid].own)
            _address(text, {.key = own << 16 | vid, .ports = 0, .heard = 0, .kind = FDB_OWN});
    read_unlock_bh(&chip.lock);
    u32 position = 0;
    fdb_entry entry;
    while (fdb_next(position, entry)) {
        read_lock_bh(&chip.lock); // names of ports are the core's
        _address(text, entry);
        read_unlock_bh(&chip.lock);
    }
    rows_end(text);
}

void show_traps(chip_text &text, const char *name) {
    rows_begin(text, name);
    for (u32 row = 0; row < trap_count(); row++) {
        const chip_trap &trap = trap_row(row);
        row_begin(text, "trap");
        row_word(text, "name", trap.name, BARE);
        row_word(text, "does", _mode_names[chip.traps[row]], BARE);
        row_number(text, "cpu_code", trap.cpu_code);
        row_number(text, "code", trap.code);
        row_number(text, "flags", trap.flags);
        row_number(text, "queue", trap.queue);
        row_number(text, "hits", read_once(chip.trap_hits[row]));
        row_end(text);
    }
    rows_end(text);
}
