// The address table: (MAC, VID) -> where frames to it go.
//
// Of fixed size: a bucket holds a few entries, and a new address takes the place of the one unheard
// of for longest. Entries that were told by a command neither age nor give way.
#pragma once

#include "kernel/types.h"

enum fdb_kind : u8 {
    FDB_NONE,
    FDB_LEARNED,
    FDB_STATIC, // told: on `port`
    FDB_OWN,    // told: the switch itself
    FDB_GROUP,  // told: a group, on all of `ports`
};

struct fdb_entry {
    u64 key;   // fdb_key()
    u64 ports; // set of slots
    unsigned long heard;
    fdb_kind kind;
};

enum fdb_learned { FDB_KNOWN, FDB_NEW, FDB_MOVED, FDB_REFUSED };

constexpr u64 fdb_key(const u8 *mac, u32 vid) {
    u64 key = 0;
    for (int i = 0; i < 6; i++)
        key = key << 8 | mac[i];
    return key << 16 | vid;
}

void fdb_init();
void fdb_clear(); // told entries too

// By value; kind FDB_NONE when there is none or it has grown old.
fdb_entry fdb_find(u64 key);

// The source of a frame of port `slot`. FDB_REFUSED: another kind of entry has this address.
fdb_learned fdb_learn(u64 key, u32 slot);

// Makes or replaces an entry that does not age: 0, -EEXIST when the address is told as another
// kind, -ENOMEM when its bucket is full of entries that do not give way.
int fdb_tell(u64 key, fdb_kind kind, u64 ports);
int fdb_forget(u64 key, fdb_kind kind); // -ENOENT

void fdb_flush();                 // learned ones
void fdb_drop_port(u32 slot);     // every entry loses the port, and goes when it was the last
void fdb_drop_learned(u64 ports); // what was learned on one of them
void fdb_drop_member(u32 slot, u32 vid);                 // learned ones of the port on this VLAN
void fdb_drop_unless(bool (*keeps)(u64 ports, u32 vid)); // learned ones, by port and VLAN
void fdb_expire();

// Walks the table: the entry at `position` or after it, which is advanced past it; false at the
// end.
bool fdb_next(u32 &position, fdb_entry &entry);
// Its place in the table, or -1.
i32 fdb_place(u64 key);
