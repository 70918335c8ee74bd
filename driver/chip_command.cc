// What the words of the chip do.
#include "chip.h"
#include "chip_fdb.h"
#include "chip_follow.h"
#include "chip_reach.h"
#include "chip_rows.h"
#include "chip_show.h"
#include "chip_state.h"
#include "chip_text.h"
#include "chip_trap.h"
#include "chip_words.h"
#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "port.h"
#include "tarn/rxtx_follow.h"

#include <iterator>

namespace {

constexpr u32 AGE_LIMIT = 1000000; // seconds; times 100 it still fits a jiffies word

// --- arguments: each says what was wrong, and what to do -----------------------------------------

int _wrong(chip_text &reply, const char *what, const char *word, const char *advice) {
    text_put(reply, "%s '%s': %s", what, word, advice);
    text_end_line(reply);
    return -EINVAL;
}

// By its number, or by what the core calls it. 0: neither.
u32 _ifindex(const char *word) {
    u32 ifindex;
    return word_number(word, 10, ~0u - 1, ifindex) ? ifindex : rxtx_follow_ifindex_get(word);
}

int _port(const char *word, chip_text &reply, u32 &slot) {
    u32 ifindex = _ifindex(word);
    slot = ifindex != 0 ? chip_slot_of(ifindex) : CHIP_PORTS;
    if (slot < CHIP_PORTS)
        return 0;
    _wrong(reply, "no port", word, "open it with 'port PORT DEVICE'; 'show ports' lists them");
    return -ENODEV;
}

int _vids(const char *word, chip_text &reply, word_set &vids) {
    if (word_ranges(word, 1, CHIP_VID_LAST, vids))
        return 0;
    return _wrong(reply, "bad VIDS", word, "give numbers from 1 to 4094, such as 10,20-30");
}

int _choice(const char *word, chip_text &reply, const char *yes, const char *no, bool &choice) {
    choice = word_is(word, yes);
    if (choice || word_is(word, no))
        return 0;
    text_put(reply, "bad choice '%s': say '%s' or '%s'", word, yes, no);
    text_end_line(reply);
    return -EINVAL;
}

// What is said of an address, in each of its VLANs.
struct chip_address {
    u8 mac[6];
    word_set vids;
};

int _address(const chip_words &words, chip_text &reply, bool group, chip_address &address) {
    if (!word_mac(words.word[1], address.mac))
        return _wrong(reply, "bad MAC", words.word[1], "write it as 02:00:00:00:00:01");
    if ((address.mac[0] & 1) != group)
        return _wrong(reply, "bad MAC", words.word[1],
                      group ? "a group has an odd first byte" : "this is the address of a group");
    return _vids(words.word[2], reply, address.vids);
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

// Ends at the first that fails.
template <typename Tell>
int _in_each_vlan(const chip_address &address, chip_text &reply, const chip_words &words,
                  Tell tell) {
    int result = 0;
    for (u32 vid = 1; vid <= CHIP_VID_LAST && result == 0; vid++)
        if (address.vids.holds(vid))
            result = tell(fdb_key(address.mac, vid));
    return _told(result, reply, words);
}

template <typename Test>
bool _is_so_in_all(const word_set &vids, Test is_so) {
    for (u32 vid = 1; vid <= CHIP_VID_LAST; vid++)
        if (vids.holds(vid) && !is_so(vid))
            return false;
    return true;
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
    ifindex = _ifindex(words.word[1]);
    if (ifindex == 0) {
        _wrong(reply, "no port", words.word[1], "tell the switch of it first, or give its ifindex");
        return -ENODEV;
    }
    if (device[CHIP_NAME - 1] != '\0')
        return _wrong(reply, "bad DEVICE", device, "a device name has at most 15 characters");
    if (chip_slot_of(ifindex) < CHIP_PORTS) {
        _wrong(reply, "port in use", words.word[1], "take it away first with 'noport PORT'");
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

void _join(u32 slot, u32 vid, bool tagged) {
    chip.untagged[vid] = _with(chip.untagged[vid], slot, !tagged);
    chip.members[vid] |= chip_bit(slot);
}

void _leave(u32 slot, u32 vid) {
    chip.members[vid] = _with(chip.members[vid], slot, false);
    chip.untagged[vid] = _with(chip.untagged[vid], slot, false);
    fdb_drop_member(slot, vid);
}

// Runs the change in each of the VLANs, or says whether they are so already.
template <typename Test, typename Change>
int _say_of_vlans(const chip_words &words, chip_text &reply, Test is_so, Change change) {
    u32 slot;
    word_set vids;
    if (int result = _port(words.word[1], reply, slot))
        return result;
    if (int result = _vids(words.word[2], reply, vids))
        return result;
    return _say(
        slot, reply, [&] { return _is_so_in_all(vids, [&](u32 vid) { return is_so(slot, vid); }); },
        [&] {
            for (u32 vid = 1; vid <= CHIP_VID_LAST; vid++)
                if (vids.holds(vid))
                    change(slot, vid);
        });
}

int _vlan(const chip_words &words, chip_text &reply) {
    bool tagged;
    if (int result = _choice(words.word[3], reply, "tagged", "untagged", tagged))
        return result;
    return _say_of_vlans(
        words, reply,
        [=](u32 slot, u32 vid) {
            u64 bit = chip_bit(slot);
            return (chip.members[vid] & bit) && !(chip.untagged[vid] & bit) == tagged;
        },
        [=](u32 slot, u32 vid) { _join(slot, vid, tagged); });
}

int _novlan(const chip_words &words, chip_text &reply) {
    return _say_of_vlans(
        words, reply, [](u32 slot, u32 vid) { return !(chip.members[vid] & chip_bit(slot)); },
        _leave);
}

int _pvid(const chip_words &words, chip_text &reply) {
    u32 slot, vid;
    if (int result = _port(words.word[1], reply, slot))
        return result;
    if (!word_number(words.word[2], 10, CHIP_VID_LAST, vid))
        return _wrong(reply, "bad VID", words.word[2], "give a number from 0 to 4094");
    u32 &pvid = chip.ports[slot].pvid;
    return _say(
        slot, reply, [&] { return pvid == vid; }, [&] { pvid = vid; });
}

// --- addresses ----------------------------------------------------------------------------------

int _tell_address(const chip_words &words, chip_text &reply, fdb_kind kind) {
    chip_address address;
    if (int result = _address(words, reply, false, address))
        return result;
    u64 ports = 0;
    if (kind == FDB_STATIC) {
        u32 slot;
        if (int result = _port(words.word[3], reply, slot))
            return result;
        ports = chip_bit(slot);
    }
    return _in_each_vlan(address, reply, words,
                         [=](u64 key) { return fdb_tell(key, kind, ports); });
}

int _forget_address(const chip_words &words, chip_text &reply, fdb_kind kind) {
    chip_address address;
    if (int result = _address(words, reply, false, address))
        return result;
    return _in_each_vlan(address, reply, words, [=](u64 key) { return fdb_forget(key, kind); });
}

int _mac(const chip_words &words, chip_text &reply) {
    return _tell_address(words, reply, FDB_OWN);
}

int _nomac(const chip_words &words, chip_text &reply) {
    return _forget_address(words, reply, FDB_OWN);
}

int _static(const chip_words &words, chip_text &reply) {
    return _tell_address(words, reply, FDB_STATIC);
}

int _nostatic(const chip_words &words, chip_text &reply) {
    return _forget_address(words, reply, FDB_STATIC);
}

int _group(const chip_words &words, chip_text &reply) {
    chip_address address;
    u32 slot;
    if (int result = _address(words, reply, true, address))
        return result;
    if (int result = _port(words.word[3], reply, slot))
        return result;
    return _in_each_vlan(address, reply, words, [=](u64 key) {
        return fdb_tell(key, FDB_GROUP, _group_ports(key) | chip_bit(slot));
    });
}

int _leave_group(u64 key, u64 leaving) {
    u64 ports = _group_ports(key);
    if (!(ports & leaving))
        return -ENOENT;
    ports &= ~leaving;
    return ports != 0 ? fdb_tell(key, FDB_GROUP, ports) : fdb_forget(key, FDB_GROUP);
}

int _nogroup(const chip_words &words, chip_text &reply) {
    chip_address address;
    u64 leaving = ~u64{0};
    if (int result = _address(words, reply, true, address))
        return result;
    if (words.count == 4) {
        u32 slot;
        if (int result = _port(words.word[3], reply, slot))
            return result;
        leaving = chip_bit(slot);
    }
    return _in_each_vlan(address, reply, words,
                         [=](u64 key) { return _leave_group(key, leaving); });
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
    void (*show)(chip_text &text, const char *name);
};

constexpr chip_view _views[] = {
    {"settings", show_settings}, {"ports", show_ports},   {"vlans", show_vlans},
    {"traps", show_traps},       {"fdb", show_addresses},
};

void _show_all(chip_text &reply) {
    object_begin(reply);
    for (const chip_view &view : _views)
        view.show(reply, view.name);
    object_end(reply);
}

int _show_one(const char *name, chip_text &reply) {
    for (const chip_view &view : _views) {
        if (!word_is(name, view.name))
            continue;
        view.show(reply, nullptr);
        return 0;
    }
    return _wrong(reply, "nothing called", name,
                  "say settings, ports, vlans, traps, fdb, or 'show' alone for all");
}

int _show(const chip_words &words, chip_text &reply) {
    if (words.count == 2)
        return _show_one(words.word[1], reply);
    _show_all(reply);
    return 0;
}

int _help(const chip_words &, chip_text &reply) {
    rows_begin(reply, nullptr);
    for (const chip_word &word : CHIP_WORDS) {
        row_begin(reply, word.name);
        if (reply.json)
            row_word(reply, "word", word.name);
        if (reply.json || word.arguments[0] != '\0')
            row_word(reply, "arguments", word.arguments, BARE);
        if (!reply.json)
            text_put(reply, ":");
        row_word(reply, "help", word.help, BARE);
        row_end(reply);
    }
    rows_end(reply);
    return 0;
}

// In the order of CHIP_WORDS.
using chip_run = int (*)(const chip_words &words, chip_text &reply);
constexpr chip_run _runs[] = {_add_port, _remove_port, _learn,  _trusted, _mac,  _nomac,
                              _static,   _nostatic,    _group,  _nogroup, _fdb,  _age,
                              _flood,    _trap,        _filter, _sflow,   _show, _link,
                              _vlan,     _novlan,      _pvid,   _help};
static_assert(std::size(_runs) == std::size(CHIP_WORDS));

int _run(const chip_words &words, chip_text &reply) {
    if (words.count == 0)
        return 0; // an empty line
    for (std::size_t i = 0; i < std::size(CHIP_WORDS); i++) {
        const chip_word &word = CHIP_WORDS[i];
        if (!word_is(words.word[0], word.name))
            continue;
        if (words.count >= word.least && words.count <= word.most)
            return _runs[i](words, reply);
        text_put(reply, "wrong number of words after '%s': %s %s", word.name, word.name,
                 word.arguments);
        text_end_line(reply);
        return -EINVAL;
    }
    return _wrong(reply, "unknown word", words.word[0], "'help' lists the words");
}

// JSON that is cut is none.
int _end_json(chip_text &text, int result) {
    if (result == 0 && text.used != 0)
        text_end_line(text);
    if (!text.full)
        return result;
    text_begin(text, text.start, text.size);
    text_put(text, "too long for one reply: ask for less, or for words");
    text_end_line(text);
    return -EMSGSIZE;
}

} // namespace

int chip_command(const char *line, char *reply, size_t size) {
    chip_text text;
    chip_words words;
    text_begin(text, reply, size);
    text.json = words_split(words, line);
    chip_commands_begin();
    int result = _run(words, text);
    chip_commands_end();
    if (text.json)
        result = _end_json(text, result);
    text_finish(text);
    return result;
}
