#include "redirects/flooding_group.h"

#include "containers/tarn_avl.h"
#include "kernel/locks.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "redirects/redirects.h"

namespace {

struct tarn_mc_flood_group {
    u32 fib_id;
    u16 vid;
    u32 group; // network order
};

// The control daemon's commands change it beside the packet path.
constinit rwlock_t _lock{};
constinit tarn_avl_tree *_tree = nullptr; // null: memory was short; the next add makes it
constinit u32 _entries = 0;

// Groups as the word lies in memory. Unsigned, and not by their difference, which is no order: it
// loses those that are 2^31 and more apart.
int _tarn_multicast_flooding_cmp(const void *key, const void *info) {
    const auto *a = static_cast<const tarn_mc_flood_group *>(key);
    const auto *b = static_cast<const tarn_mc_flood_group *>(info);
    if (a->fib_id != b->fib_id)
        return a->fib_id < b->fib_id ? -1 : 1;
    if (a->vid != b->vid)
        return a->vid < b->vid ? -1 : 1;
    if (a->group != b->group)
        return a->group < b->group ? -1 : 1;
    return 0;
}

void _tarn_mcdrop_data_free(void *info) {
    kfree(info);
}

i32 _insert(tarn_mc_flood_group *entry) {
    write_lock_bh(&_lock);
    if (!_tree)
        tarn_avl_create(&_tree, 0, _tarn_multicast_flooding_cmp);
    i32 result = tarn_avl_insert(_tree, entry);
    write_once(_entries, tarn_avl_get_tree_size(_tree));
    write_unlock_bh(&_lock);
    return result;
}

} // namespace

// Equal entries may stand in the table twice.
i32 tarn_mcdrop_flooding_group_add(u32 fib_id, u16 vid, u32 group) {
    auto *entry =
        static_cast<tarn_mc_flood_group *>(__kmalloc(sizeof(tarn_mc_flood_group), gfp_here()));
    if (!entry)
        return -1;
    *entry = {.fib_id = fib_id, .vid = vid, .group = group};
    i32 result = _insert(entry);
    if (result == 0)
        return 0;
    pr_warn("Failed to add MC flooding group to tree %d %d %x\n", static_cast<i32>(fib_id), vid,
            group);
    kfree(entry);
    return result;
}

i32 tarn_mcdrop_flooding_group_remove(u32 fib_id, u16 vid, u32 group) {
    const tarn_mc_flood_group key{.fib_id = fib_id, .vid = vid, .group = group};
    write_lock_bh(&_lock);
    tarn_avl_node *node = tarn_avl_lookup(_tree, &key);
    void *entry = node ? node->info : nullptr;
    if (entry)
        tarn_avl_delete(_tree, &key);
    write_once(_entries, tarn_avl_get_tree_size(_tree));
    write_unlock_bh(&_lock);
    kfree(entry);
    return entry ? 0 : -1;
}

// The table is there again afterwards, empty.
i32 tarn_mcdrop_flooding_group_flush() {
    if (!flooding_group_any())
        return 0;
    tarn_avl_tree *empty = nullptr;
    tarn_avl_create(&empty, 0, _tarn_multicast_flooding_cmp);
    write_lock_bh(&_lock);
    tarn_avl_tree *old = _tree;
    _tree = empty;
    write_once(_entries, 0);
    write_unlock_bh(&_lock);
    tarn_avl_tree_free(&old, _tarn_mcdrop_data_free);
    return 0;
}

bool flooding_group_any() {
    return read_once(_entries) != 0;
}

bool flooding_group_lookup(u32 fib_id, u32 vid, u32 group) {
    const tarn_mc_flood_group key{.fib_id = fib_id, .vid = static_cast<u16>(vid), .group = group};
    read_lock_bh(&_lock);
    bool found = tarn_avl_lookup(_tree, &key);
    read_unlock_bh(&_lock);
    return found;
}

i32 flooding_group_init() {
    rwlock_init(&_lock, "flooding_group_lock");
    return tarn_avl_create(&_tree, 0, _tarn_multicast_flooding_cmp);
}
