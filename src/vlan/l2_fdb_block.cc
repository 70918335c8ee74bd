#include "vlan/l2_fdb_block.h"

#include "kernel/bytes.h"
#include "kernel/locks.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"

namespace {

struct _link {
    _link *next, *prev;
};

struct _entry {
    _link link; // first
    u8 mac[ETH_ALEN];
    u16 vid;
};

constinit _link *fdb_block_table = nullptr; // made by the first add
constinit rwlock_t fdb_block_table_lock{};
constinit u32 fdb_block_count = 0;

// Under the lock, as all below.
_entry *_tarn_l2_fdb_block_find(const u8 *mac, u16 vid) {
    if (!fdb_block_table || vid == 0 || !mac)
        return nullptr;
    _link *head = &fdb_block_table[_tarn_l2_fdb_block_hash(mac, vid) % FDB_BLOCK_BUCKETS];
    for (_link *link = head->next; link != head; link = link->next) {
        auto *entry = reinterpret_cast<_entry *>(link);
        if (entry->vid == vid && memcmp(entry->mac, mac, ETH_ALEN) == 0)
            return entry;
    }
    return nullptr;
}

void _make_table() {
    if (fdb_block_table)
        return;
    auto *heads = static_cast<_link *>(__kmalloc(FDB_BLOCK_BUCKETS * sizeof(_link), gfp_here()));
    for (u32 i = 0; heads && i < FDB_BLOCK_BUCKETS; i++)
        heads[i] = {.next = &heads[i], .prev = &heads[i]};
    fdb_block_table = heads;
}

void _insert(_link *head, _link *link) {
    *link = {.next = head->next, .prev = head};
    head->next->prev = link;
    head->next = link;
}

void _unlink(_link *link) {
    link->prev->next = link->next;
    link->next->prev = link->prev;
}

i32 _add(const u8 *mac, u16 vid) {
    _make_table();
    if (!fdb_block_table || _tarn_l2_fdb_block_find(mac, vid))
        return -1;
    u32 bucket = _tarn_l2_fdb_block_hash(mac, vid);
    if (bucket == 0 || bucket >= FDB_BLOCK_BUCKETS)
        return -1;
    auto *entry = static_cast<_entry *>(__kmalloc(sizeof(_entry), gfp_here()));
    if (!entry)
        return -1;
    memcpy(entry->mac, mac, ETH_ALEN);
    entry->vid = vid;
    _insert(&fdb_block_table[bucket], &entry->link);
    if (fdb_block_count++ == 0)
        enable_redirect(L2_FDB_DROP_SLOT, 1);
    return 0;
}

i32 _remove(const u8 *mac, u16 vid) {
    _entry *entry = _tarn_l2_fdb_block_find(mac, vid);
    if (!entry)
        return -1;
    _unlink(&entry->link);
    kfree(entry);
    if (fdb_block_count != 0 && --fdb_block_count == 0)
        enable_redirect(L2_FDB_DROP_SLOT, 0);
    return 0;
}

} // namespace

i32 tarn_l2_fdb_block_add(const u8 *mac, u16 vid) {
    write_lock_bh(&fdb_block_table_lock);
    i32 result = _add(mac, vid);
    write_unlock_bh(&fdb_block_table_lock);
    return result;
}

i32 tarn_l2_fdb_block_remove(const u8 *mac, u16 vid) {
    write_lock_bh(&fdb_block_table_lock);
    i32 result = _remove(mac, vid);
    write_unlock_bh(&fdb_block_table_lock);
    return result;
}

i32 tarn_l2_fdb_block_exists(const u8 *mac, u16 vid) {
    read_lock_bh(&fdb_block_table_lock);
    bool found = _tarn_l2_fdb_block_find(mac, vid);
    read_unlock_bh(&fdb_block_table_lock);
    return found;
}

void l2_fdb_block_init() {
    rwlock_init(&fdb_block_table_lock, "fdb_block_table_lock");
}
