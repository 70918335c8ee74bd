#include "chip_fdb.h"

#include "chip_state.h"
#include "kernel/errno.h"
#include "kernel/random.h"
#include "kernel/time.h"

namespace {

constexpr u32 BUCKET_BITS = 10;
constexpr u32 WAYS = 8;
constexpr u32 ENTRIES = (1u << BUCKET_BITS) * WAYS;

constinit rwlock_t _lock{};
constinit fdb_entry _table[ENTRIES]{};
constinit u64 _seed = 0; // so that nobody outside can fill one bucket on purpose

fdb_entry *_bucket(u64 key) {
    u64 mixed = (key ^ _seed) * 0x9E3779B97F4A7C15u;
    mixed = (mixed ^ mixed >> 32) * 0xD6E8FEB86659FD93u;
    return _table + (mixed >> (64 - BUCKET_BITS)) * WAYS;
}

bool _is_old(const fdb_entry &entry, unsigned long now) {
    u32 age = read_once(chip.age_seconds);
    return entry.kind == FDB_LEARNED && age != 0 &&
           now - read_once(entry.heard) >= age * JIFFIES_PER_SECOND;
}

fdb_entry *_find(u64 key) {
    fdb_entry *bucket = _bucket(key);
    for (u32 way = 0; way < WAYS; way++)
        if (bucket[way].kind != FDB_NONE && bucket[way].key == key)
            return &bucket[way];
    return nullptr;
}

// Room for a new entry: a free one, else the learned one unheard of for longest, else null.
fdb_entry *_room(u64 key, unsigned long now) {
    fdb_entry *bucket = _bucket(key), *oldest = nullptr;
    for (fdb_entry *entry = bucket; entry != bucket + WAYS; entry++) {
        if (entry->kind == FDB_NONE)
            return entry;
        if (entry->kind != FDB_LEARNED)
            continue;
        if (!oldest || now - read_once(entry->heard) > now - read_once(oldest->heard))
            oldest = entry;
    }
    return oldest;
}

// The common case: a host that is where it was. Only its time changes, which readers may do.
bool _heard_again(u64 key, u64 port, unsigned long now) {
    read_lock_bh(&_lock);
    fdb_entry *entry = _find(key);
    bool known =
        entry && entry->kind == FDB_LEARNED && entry->ports == port && !_is_old(*entry, now);
    if (known)
        write_once(entry->heard, now);
    read_unlock_bh(&_lock);
    return known;
}

fdb_learned _learn(u64 key, u64 port, unsigned long now) {
    fdb_entry *entry = _find(key);
    if (entry && entry->kind != FDB_LEARNED)
        return FDB_REFUSED;
    fdb_learned what = FDB_NEW;
    if (entry && !_is_old(*entry, now))
        what = entry->ports == port ? FDB_KNOWN : FDB_MOVED;
    if (!entry)
        entry = _room(key, now);
    if (!entry)
        return FDB_REFUSED;
    *entry = {.key = key, .ports = port, .heard = now, .kind = FDB_LEARNED};
    return what;
}

template <typename Test>
void _remove_if(Test test) {
    write_lock_bh(&_lock);
    for (fdb_entry &entry : _table)
        if (entry.kind != FDB_NONE && test(entry))
            entry = {};
    write_unlock_bh(&_lock);
}

} // namespace

void fdb_init() {
    rwlock_init(&_lock, "chip_fdb_lock");
    get_random_bytes(&_seed, sizeof(_seed));
    fdb_clear();
}

void fdb_clear() {
    _remove_if([](const fdb_entry &) { return true; });
}

fdb_entry fdb_find(u64 key) {
    fdb_entry found{};
    read_lock_bh(&_lock);
    const fdb_entry *entry = _find(key);
    if (entry && !_is_old(*entry, get_jiffies()))
        found = {key, entry->ports, read_once(entry->heard), entry->kind};
    read_unlock_bh(&_lock);
    return found;
}

fdb_learned fdb_learn(u64 key, u32 slot) {
    unsigned long now = get_jiffies();
    if (_heard_again(key, chip_bit(slot), now))
        return FDB_KNOWN;
    write_lock_bh(&_lock);
    fdb_learned what = _learn(key, chip_bit(slot), now);
    write_unlock_bh(&_lock);
    return what;
}

int fdb_tell(u64 key, fdb_kind kind, u64 ports) {
    int result = 0;
    write_lock_bh(&_lock);
    fdb_entry *entry = _find(key);
    if (entry && entry->kind != FDB_LEARNED && entry->kind != kind)
        result = -EEXIST;
    else if (!entry && !(entry = _room(key, get_jiffies())))
        result = -ENOMEM;
    else
        *entry = {.key = key, .ports = ports, .heard = 0, .kind = kind};
    write_unlock_bh(&_lock);
    return result;
}

int fdb_forget(u64 key, fdb_kind kind) {
    write_lock_bh(&_lock);
    fdb_entry *entry = _find(key);
    bool found = entry && entry->kind == kind;
    if (found)
        *entry = {};
    write_unlock_bh(&_lock);
    return found ? 0 : -ENOENT;
}

void fdb_flush() {
    _remove_if([](const fdb_entry &entry) { return entry.kind == FDB_LEARNED; });
}

void fdb_drop_port(u32 slot) {
    _remove_if([slot](fdb_entry &entry) {
        if (entry.kind == FDB_OWN)
            return false;
        entry.ports &= ~chip_bit(slot);
        return entry.ports == 0;
    });
}

void fdb_drop_learned(u64 ports) {
    _remove_if([ports](const fdb_entry &entry) {
        return entry.kind == FDB_LEARNED && (entry.ports & ports) != 0;
    });
}

void fdb_drop_unless(bool (*keeps)(u64 ports, u32 vid)) {
    _remove_if([keeps](const fdb_entry &entry) {
        return entry.kind == FDB_LEARNED &&
               !keeps(entry.ports, static_cast<u32>(entry.key & 0xFFFF));
    });
}

void fdb_drop_member(u32 slot, u32 vid) {
    _remove_if([slot, vid](const fdb_entry &entry) {
        return entry.kind == FDB_LEARNED && entry.ports == chip_bit(slot) &&
               (entry.key & 0xFFFF) == vid;
    });
}

void fdb_expire() {
    unsigned long now = get_jiffies();
    _remove_if([now](const fdb_entry &entry) { return _is_old(entry, now); });
}

bool fdb_next(u32 &position, fdb_entry &entry) {
    unsigned long now = get_jiffies();
    bool found = false;
    read_lock_bh(&_lock);
    for (; position < ENTRIES && !found; position++) {
        const fdb_entry &at = _table[position];
        entry = {at.key, at.ports, read_once(at.heard), at.kind};
        found = entry.kind != FDB_NONE && !_is_old(entry, now);
    }
    read_unlock_bh(&_lock);
    return found;
}

i32 fdb_place(u64 key) {
    read_lock_bh(&_lock);
    const fdb_entry *entry = _find(key);
    i32 place = entry ? static_cast<i32>(entry - _table) : -1;
    read_unlock_bh(&_lock);
    return place;
}
