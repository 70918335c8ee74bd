// The words of the chip. Each is a row: its name, what follows it, and the function that does it.
#include "chip.h"
#include "chip_fdb.h"
#include "chip_follow.h"
#include "chip_reach.h"
#include "chip_show.h"
#include "chip_state.h"
#include "chip_text.h"
#include "chip_trap.h"
#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "port.h"

namespace {

constexpr u32 AGE_LIMIT = 1000000; // seconds; times 100 it still fits a jiffies word

struct chip_word {
    const char *name;
    const char *usage;
    u32 words; // with the name, at least and at most
    u32 words_at_most;
    int (*run)(const chip_words &words, chip_text &reply);
};

// --- arguments: each says what was wrong, and what to do -----------------------------------------

int _wrong(chip_text &reply, const char *what, const char *word, const char *advice) {
    text_put(reply, "%s '%s': %s", what, word, advice);
    text_end_line(reply);
    return -EINVAL;
}

int _port(const char *word, chip_text &reply, u32 &slot) {
    u32 ifindex;
    if (!word_number(word, 10, ~0u, ifindex) || ifindex == 0)
        return _wrong(reply, "bad IFINDEX", word, "give a number from 1 to 4294967295");
    slot = chip_slot_of(ifindex);
    if (slot < CHIP_PORTS)
        return 0;
    _wrong(reply, "no port", word, "add it with 'port IFINDEX DEVICE'; 'show ports' lists them");
    return -ENODEV;
}

int _vid(const char *word, chip_text &reply, u32 lowest, u32 &vid) {
    if (word_number(word, 10, CHIP_VID_LAST, vid) && vid >= lowest)
        return 0;
    return _wrong(reply, "bad VID", word,
                  lowest == 0 ? "give a number from 0 to 4094" : "give a number from 1 to 4094");
}

int _choice(const char *word, chip_text &reply, const char *yes, const char *no, bool &choice) {
    choice = word_is(word, yes);
    if (choice || word_is(word, no))
        return 0;
    text_put(reply, "bad choice '%s': say '%s' or '%s'", word, yes, no);
    text_end_line(reply);
    return -EINVAL;
}

int _address(const chip_words &words, chip_text &reply, bool group, u64 &key) {
    u8 mac[6];
    u32 vid;
    if (!word_mac(words.word[1], mac))
        return _wrong(reply, "bad MAC", words.word[1], "write it as 02:00:00:00:00:01");
    if ((mac[0] & 1) != group)
        return _wrong(reply, "bad MAC", words.word[1],
                      group ? "a group has an odd first byte" : "this is the address of a group");
    if (int result = _vid(words.word[2], reply, 1, vid))
        return result;
    key = fdb_key(mac, vid);
    return 0;
}

// --- helpers ------------------------------------------------------------------------------------

void _set(u64 &set, u64 bits, bool on) {
    write_lock_bh(&chip.lock);
    set = on ? set | bits : set & ~bits;
    write_unlock_bh(&chip.lock);
}

int _told(int result, chip_text &reply, const chip_words &words) {
    if (result == -EEXIST)
        _wrong(reply, "address in use", words.word[1],
               "it was told as another kind; take that away first ('show fdb' lists it)");
    if (result == -ENOMEM)
        _wrong(reply, "no room for", words.word[1],
               "too many told addresses share its place; take one away");
    if (result == -ENOENT)
        _wrong(reply, "not told", words.word[1], "'show fdb' lists what there is");
    return result;
}

// What the core says of a port that it knows stands: a word that says the same is heard, one that
// contradicts is refused.
template <typename Test, typename Change>
int _say(u32 slot, chip_text &reply, Test is_so, Change change) {
    write_lock_bh(&chip.lock);
    bool known = chip.known & chip_bit(slot), so = is_so();
    if (!known)
        change();
    write_unlock_bh(&chip.lock);
    if (!known)
        return 0;
    text_put(reply, "port %u: %s", chip.ports[slot].ifindex,
             so ? "the switch says so already"
                : "the switch says otherwise: tell it, as with 'tarnctl', and not the chip");
    text_end_line(reply);
    return so ? 0 : -EBUSY;
}

u64 _with(u64 set, u32 slot, bool on) {
    return on ? set | chip_bit(slot) : set & ~chip_bit(slot);
}

u64 _group_ports(u64 key) {
    fdb_entry entry = fdb_find(key);
    return entry.kind == FDB_GROUP ? entry.ports : 0;
}

// --- ports --------------------------------------------------------------------------------------

int _check_new_port(const chip_words &words, chip_text &reply, u32 &ifindex) {
    const char *device = words.word[2];
    if (!word_number(words.word[1], 10, ~0u - 1, ifindex) || ifindex == 0)
        return _wrong(reply, "bad IFINDEX", words.word[1], "give a number from 1 to 4294967294");
    if (device[CHIP_NAME - 1] != '\0')
        return _wrong(reply, "bad DEVICE", device, "a device name has at most 15 characters");
    if (chip_slot_of(ifindex) < CHIP_PORTS) {
        _wrong(reply, "port in use", words.word[1], "take it away first with 'noport IFINDEX'");
        return -EEXIST;
    }
    for (u64 left = chip.present; left; left &= left - 1)
        if (word_is(chip.ports[chip_first(left)].name, device)) {
            _wrong(reply, "device in use", device, "it is a port already; see 'show ports'");
            return -EEXIST;
        }
    return 0;
}

void _install_port(u32 slot, chip_device *device, u32 ifindex, const char *name) {
    write_lock_bh(&chip.lock);
    chip_port &port = chip.ports[slot];
    port.device = device;
    port.ifindex = ifindex;
    memcpy(port.name, name, CHIP_NAME);
    chip.present |= chip_bit(slot);
    chip.learning |= chip_bit(slot);
    chip_reset_port(slot);
    write_unlock_bh(&chip.lock);
    follow_port(slot);
}

int _add_port(const chip_words &words, chip_text &reply) {
    u32 ifindex;
    if (int result = _check_new_port(words, reply, ifindex))
        return result;
    if (chip.present == ~u64{0}) {
        _wrong(reply, "no room for port", words.word[1], "the chip has 64; take one away first");
        return -ENOMEM;
    }
    u32 slot = chip_first(~chip.present);
    chip_device *device = nullptr;
    int result = chip_port_open(words.word[2], slot, &device);
    if (result == 0) {
        _install_port(slot, device, ifindex, words.word[2]);
        return 0;
    }
    text_put(reply, "cannot open '%s' (error %d): give an Ethernet device that exists and is free",
             words.word[2], -result);
    text_end_line(reply);
    return result;
}

int _remove_port(const chip_words &words, chip_text &reply) {
    u32 slot;
    if (int result = _port(words.word[1], reply, slot))
        return result;
    chip_remove_port(slot);
    return 0;
}

int _link(const chip_words &words, chip_text &reply) {
    u32 slot;
    bool up;
    if (int result = _port(words.word[1], reply, slot))
        return result;
    if (int result = _choice(words.word[2], reply, "up", "down", up))
        return result;
    u64 wanted = chip_bit(slot) * up;
    return _say(
        slot, reply, [=] { return (chip.up & chip_bit(slot)) == wanted; },
        [=] { chip.up = _with(chip.up, slot, up); });
}

int _switch_port(const chip_words &words, chip_text &reply, u64 &set) {
    u32 slot;
    bool on;
    if (int result = _port(words.word[1], reply, slot))
        return result;
    if (int result = _choice(words.word[2], reply, "on", "off", on))
        return result;
    _set(set, chip_bit(slot), on);
    return 0;
}

int _learn(const chip_words &words, chip_text &reply) {
    return _switch_port(words, reply, chip.learning);
}

int _trusted(const chip_words &words, chip_text &reply) {
    return _switch_port(words, reply, chip.trusted);
}

// --- VLANs --------------------------------------------------------------------------------------

int _vlan(const chip_words &words, chip_text &reply) {
    u32 slot, vid;
    bool tagged;
    if (int result = _port(words.word[1], reply, slot))
        return result;
    if (int result = _vid(words.word[2], reply, 1, vid))
        return result;
    if (int result = _choice(words.word[3], reply, "tagged", "untagged", tagged))
        return result;
    u64 bit = chip_bit(slot);
    return _say(
        slot, reply,
        [=] { return (chip.members[vid] & bit) && !(chip.untagged[vid] & bit) == tagged; },
        [=] {
            chip.untagged[vid] = _with(chip.untagged[vid], slot, !tagged);
            chip.members[vid] |= bit;
        });
}

int _novlan(const chip_words &words, chip_text &reply) {
    u32 slot, vid;
    if (int result = _port(words.word[1], reply, slot))
        return result;
    if (int result = _vid(words.word[2], reply, 1, vid))
        return result;
    return _say(
        slot, reply, [=] { return !(chip.members[vid] & chip_bit(slot)); },
        [=] {
            chip.members[vid] = _with(chip.members[vid], slot, false);
            chip.untagged[vid] = _with(chip.untagged[vid], slot, false);
            fdb_drop_member(slot, vid);
        });
}

int _pvid(const chip_words &words, chip_text &reply) {
    u32 slot, vid;
    if (int result = _port(words.word[1], reply, slot))
        return result;
    if (int result = _vid(words.word[2], reply, 0, vid))
        return result;
    u32 &pvid = chip.ports[slot].pvid;
    return _say(
        slot, reply, [&] { return pvid == vid; }, [&] { pvid = vid; });
}

// --- addresses ----------------------------------------------------------------------------------

int _mac(const chip_words &words, chip_text &reply) {
    u64 key;
    if (int result = _address(words, reply, false, key))
        return result;
    return _told(fdb_tell(key, FDB_OWN, 0), reply, words);
}

int _nomac(const chip_words &words, chip_text &reply) {
    u64 key;
    if (int result = _address(words, reply, false, key))
        return result;
    return _told(fdb_forget(key, FDB_OWN), reply, words);
}

int _static(const chip_words &words, chip_text &reply) {
    u64 key;
    u32 slot;
    if (int result = _address(words, reply, false, key))
        return result;
    if (int result = _port(words.word[3], reply, slot))
        return result;
    return _told(fdb_tell(key, FDB_STATIC, chip_bit(slot)), reply, words);
}

int _nostatic(const chip_words &words, chip_text &reply) {
    u64 key;
    if (int result = _address(words, reply, false, key))
        return result;
    return _told(fdb_forget(key, FDB_STATIC), reply, words);
}

int _group(const chip_words &words, chip_text &reply) {
    u64 key;
    u32 slot;
    if (int result = _address(words, reply, true, key))
        return result;
    if (int result = _port(words.word[3], reply, slot))
        return result;
    return _told(fdb_tell(key, FDB_GROUP, _group_ports(key) | chip_bit(slot)), reply, words);
}

int _nogroup(const chip_words &words, chip_text &reply) {
    u64 key, ports = 0;
    u32 slot;
    if (int result = _address(words, reply, true, key))
        return result;
    if (words.count == 4) {
        if (int result = _port(words.word[3], reply, slot))
            return result;
        ports = _group_ports(key);
        if (!(ports & chip_bit(slot)))
            return _told(-ENOENT, reply, words);
        ports &= ~chip_bit(slot);
    }
    return _told(ports != 0 ? fdb_tell(key, FDB_GROUP, ports) : fdb_forget(key, FDB_GROUP), reply,
                 words);
}

int _fdb(const chip_words &words, chip_text &reply) {
    if (!word_is(words.word[1], "flush"))
        return _wrong(reply, "bad choice", words.word[1], "say 'fdb flush'");
    fdb_flush();
    return 0;
}

int _age(const chip_words &words, chip_text &reply) {
    u32 seconds;
    if (!word_number(words.word[1], 10, AGE_LIMIT, seconds))
        return _wrong(reply, "bad SECONDS", words.word[1],
                      "give a number up to 1000000, or 0 to keep addresses for ever");
    write_once(chip.age_seconds, seconds);
    return 0;
}

// --- forwarding and traps -----------------------------------------------------------------------

int _flood(const chip_words &words, chip_text &reply) {
    bool software;
    if (int result = _choice(words.word[1], reply, "software", "hardware", software))
        return result;
    write_lock_bh(&chip.lock);
    chip.software_flood = software;
    write_unlock_bh(&chip.lock);
    chip_register();
    return 0;
}

int _sflow(const chip_words &words, chip_text &reply) {
    u32 rate;
    if (!word_number(words.word[1], 10, ~0u, rate))
        return _wrong(reply, "bad RATE", words.word[1],
                      "give N to sample one frame in N, or 0 for none");
    write_lock_bh(&chip.lock);
    chip.sample_rate = rate;
    write_once(chip.sample_turn, 0);
    chip.traps[trap_of_report(CHIP_SAMPLE)] = rate != 0 ? CHIP_TRAP_COPY : CHIP_TRAP_OFF;
    write_unlock_bh(&chip.lock);
    return 0;
}

int _filter(const chip_words &words, chip_text &reply) {
    u32 types[CHIP_FILTER_TYPES] = {};
    for (u32 i = 1; i < words.count; i++)
        if (!word_number(words.word[i], 16, 0xFFFF, types[i - 1]))
            return _wrong(reply, "bad TYPE", words.word[i], "give an Ethernet type such as 88b5");
    write_lock_bh(&chip.lock);
    memcpy(chip.filter_types, types, sizeof(types));
    write_unlock_bh(&chip.lock);
    return 0;
}

int _trap(const chip_words &words, chip_text &reply) {
    u32 row = 0;
    while (row < trap_count() && !word_is(words.word[1], trap_row(row).name))
        row++;
    if (row == trap_count()) {
        _wrong(reply, "no trap", words.word[1], "'show traps' lists them");
        return -ENOENT;
    }
    chip_trap_mode mode = trap_row(row).mode;
    if (word_is(words.word[2], "off"))
        mode = CHIP_TRAP_OFF;
    else if (word_is(words.word[2], "only") && trap_row(row).match)
        mode = CHIP_TRAP_ONLY;
    else if (word_is(words.word[2], "copy"))
        mode = CHIP_TRAP_COPY;
    else if (!word_is(words.word[2], "on"))
        return _wrong(reply, "bad choice", words.word[2],
                      "say 'on', 'off', 'copy' or, where the CPU alone may have it, 'only'");
    write_lock_bh(&chip.lock);
    chip.traps[row] = mode;
    write_unlock_bh(&chip.lock);
    return 0;
}

// --- show ---------------------------------------------------------------------------------------

struct chip_view {
    const char *name;
    void (*show)(chip_text &text);
};

constexpr chip_view _views[] = {
    {"settings", show_settings}, {"ports", show_ports},   {"vlans", show_vlans},
    {"traps", show_traps},       {"fdb", show_addresses},
};

int _show(const chip_words &words, chip_text &reply) {
    bool shown = false;
    for (const chip_view &view : _views) {
        if (words.count == 2 && !word_is(words.word[1], view.name))
            continue;
        view.show(reply);
        shown = true;
    }
    if (shown)
        return 0;
    return _wrong(reply, "nothing called", words.word[1],
                  "say settings, ports, vlans, traps, fdb, or 'show' alone for all");
}

int _help(const chip_words &words, chip_text &reply);

constexpr chip_word _words[] = {
    {"port", "port IFINDEX DEVICE", 3, 3, _add_port},
    {"noport", "noport IFINDEX", 2, 2, _remove_port},
    {"link", "link IFINDEX up|down", 3, 3, _link},
    {"learn", "learn IFINDEX on|off", 3, 3, _learn},
    {"trusted", "trusted IFINDEX on|off", 3, 3, _trusted},
    {"vlan", "vlan IFINDEX VID tagged|untagged", 4, 4, _vlan},
    {"novlan", "novlan IFINDEX VID", 3, 3, _novlan},
    {"pvid", "pvid IFINDEX VID", 3, 3, _pvid},
    {"mac", "mac MAC VID", 3, 3, _mac},
    {"nomac", "nomac MAC VID", 3, 3, _nomac},
    {"static", "static MAC VID IFINDEX", 4, 4, _static},
    {"nostatic", "nostatic MAC VID", 3, 3, _nostatic},
    {"group", "group MAC VID IFINDEX", 4, 4, _group},
    {"nogroup", "nogroup MAC VID [IFINDEX]", 3, 4, _nogroup},
    {"fdb", "fdb flush", 2, 2, _fdb},
    {"age", "age SECONDS", 2, 2, _age},
    {"flood", "flood hardware|software", 2, 2, _flood},
    {"trap", "trap NAME on|off|only|copy", 3, 3, _trap},
    {"filter", "filter TYPE...", 2, 1 + CHIP_FILTER_TYPES, _filter},
    {"sflow", "sflow RATE", 2, 2, _sflow},
    {"show", "show [settings|ports|vlans|traps|fdb]", 1, 2, _show},
    {"help", "help", 1, 1, _help},
};

int _help(const chip_words &, chip_text &reply) {
    for (const chip_word &word : _words) {
        text_put(reply, "%s", word.usage);
        text_end_line(reply);
    }
    return 0;
}

int _run(const chip_words &words, chip_text &reply) {
    if (words.count == 0)
        return 0; // an empty line
    for (const chip_word &word : _words) {
        if (!word_is(words.word[0], word.name))
            continue;
        if (words.count >= word.words && words.count <= word.words_at_most)
            return word.run(words, reply);
        return _wrong(reply, "wrong number of words after", word.name, word.usage);
    }
    return _wrong(reply, "unknown word", words.word[0], "'help' lists the words");
}

} // namespace

int chip_command(const char *line, char *reply, size_t size) {
    chip_text text;
    chip_words words;
    text_begin(text, reply, size);
    words_split(words, line);
    chip_commands_begin();
    int result = _run(words, text);
    chip_commands_end();
    text_finish(text);
    return result;
}
