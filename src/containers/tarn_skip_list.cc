#include "containers/tarn_skip_list.h"

#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/random.h"

namespace {

// One level up is won by a 31-bit number up to here: about every second time.
constexpr u32 LEVEL_UP_AT_MOST = 0x3FFFFFFE;

void *_tarn_skip_list_zalloc(std::size_t bytes) {
    return __kmalloc(bytes, gfp_here() | __GFP_ZERO);
}

tarn_skip_node *_new_node(i32 level) {
    return static_cast<tarn_skip_node *>(_tarn_skip_list_zalloc(
        sizeof(tarn_skip_node) + (static_cast<u32>(level) + 1) * sizeof(tarn_skip_node *)));
}

i32 _max_level_for(i32 expected) {
    i32 level = 0;
    for (; expected > 2; expected >>= 1)
        level++;
    return level;
}

i32 _draw_level(const tarn_skip_list *list) {
    i32 level = 0;
    for (;;) {
        u32 number;
        get_random_bytes(&number, sizeof(number));
        if ((number & 0x7FFFFFFF) > LEVEL_UP_AT_MOST || level >= list->max_level)
            return level;
        level++;
    }
}

// The search position: the first node whose key is not before the search key, or the head. `update`
// (null: not wanted) gets the node before it on each level. A search does not ask for it, so that
// searches leave the list untouched and may run beside each other.
tarn_skip_node *_tarn_skip_list_find(const tarn_skip_list *list, tarn_skip_node **update,
                                     const void *key, tarn_skip_compare compare) {
    tarn_skip_node *node = list->head;
    for (i32 level = list->level; level >= 0; level--) {
        while (node->forward[level] != list->head && compare(node->forward[level]->key, key) == -1)
            node = node->forward[level];
        if (update)
            update[level] = node;
    }
    return node->forward[0];
}

bool _is_entry(const tarn_skip_list *list, const tarn_skip_node *node, const void *key,
               tarn_skip_compare compare) {
    return node != list->head && compare(node->key, key) == 0;
}

void _link(tarn_skip_list *list, tarn_skip_node *node, i32 level) {
    for (; list->level < level; list->level++)
        list->update[list->level + 1] = list->head;
    for (i32 i = 0; i <= level; i++) {
        node->forward[i] = list->update[i]->forward[i];
        list->update[i]->forward[i] = node;
    }
    node->back = node->forward[0]->back;
    node->forward[0]->back = node;
}

void _unlink(tarn_skip_list *list, tarn_skip_node *node) {
    // The node behind must not keep a way back into freed memory.
    node->forward[0]->back = node->back;
    for (i32 i = 0; i <= list->level && list->update[i]->forward[i] == node; i++)
        list->update[i]->forward[i] = node->forward[i];
    while (list->level > 0 && list->head->forward[list->level] == list->head)
        list->level--;
}

// The node that a search gives; the head stands for none.
tarn_skip_node *_pick(const tarn_skip_list *list, const void *key, u32 mode,
                      tarn_skip_compare compare) {
    tarn_skip_node *head = list->head;
    if (!key) {
        if (mode == TARN_SKIP_AFTER)
            return head->forward[0];
        return mode == TARN_SKIP_BEFORE ? head->back : head;
    }
    tarn_skip_node *node = _tarn_skip_list_find(list, nullptr, key, compare);
    if (node == head)
        return head;
    bool equal = compare(node->key, key) == 0;
    switch (mode) {
    case TARN_SKIP_EQUAL:
        return equal ? node : head;
    case TARN_SKIP_AFTER:
        return equal ? node->forward[0] : node;
    case TARN_SKIP_BEFORE:
        return node->back;
    default:
        return head;
    }
}

} // namespace

i32 tarn_init_skip_list(tarn_skip_list **list, tarn_skip_compare compare, i32 expected) {
    if (!list || !compare || expected <= 0)
        return -EINVAL;
    i32 max_level = _max_level_for(expected);

    auto *made = static_cast<tarn_skip_list *>(_tarn_skip_list_zalloc(
        sizeof(tarn_skip_list) + (static_cast<u32>(max_level) + 1) * sizeof(tarn_skip_node *)));
    if (!made)
        return -ENOMEM;
    made->head = _new_node(max_level);
    if (!made->head) {
        kfree(made);
        return -ENOMEM;
    }
    made->compare = compare;
    made->max_level = max_level;
    for (i32 i = 0; i <= max_level; i++)
        made->head->forward[i] = made->head;
    made->head->back = made->head;
    *list = made;
    return 0;
}

i32 tarn_add_skip_node(tarn_skip_list *list, void *key) {
    if (!list || !key)
        return -EINVAL;
    i32 level = _draw_level(list);
    tarn_skip_node *node = _new_node(level);
    if (!node)
        return -ENOMEM;

    local_bh_disable();
    tarn_skip_node *at = _tarn_skip_list_find(list, list->update, key, list->compare);
    if (_is_entry(list, at, key, list->compare)) {
        local_bh_enable();
        kfree(node);
        return -EEXIST;
    }
    node->key = key;
    _link(list, node, level);
    local_bh_enable();
    return 0;
}

i32 tarn_remove_skip_node(tarn_skip_list *list, const void *key, bool free_key) {
    if (!list || !key)
        return -ENOENT;
    local_bh_disable();
    tarn_skip_node *node = _tarn_skip_list_find(list, list->update, key, list->compare);
    if (!_is_entry(list, node, key, list->compare)) {
        local_bh_enable();
        return -ENOENT;
    }
    _unlink(list, node);
    local_bh_enable();
    if (free_key)
        kfree(node->key);
    kfree(node);
    return 0;
}

i32 tarn_search_skip_list(tarn_skip_list *list, const void *key, u32 mode, void **found) {
    return list ? tarn_search_skip_list_comp(list, key, mode, found, list->compare) : -EINVAL;
}

i32 tarn_search_skip_list_comp(tarn_skip_list *list, const void *key, u32 mode, void **found,
                               tarn_skip_compare compare) {
    if (!list || !found)
        return -EINVAL;
    local_bh_disable();
    const tarn_skip_node *node = _pick(list, key, mode, compare);
    *found = node->key;
    local_bh_enable();
    return *found ? 0 : -ENOENT;
}

i32 tarn_flush_skip_list(tarn_skip_list *list, bool free_key) {
    if (!list || !list->head)
        return -EINVAL;
    for (tarn_skip_node *node = list->head->forward[0]; node != list->head;) {
        tarn_skip_node *next = node->forward[0];
        if (free_key)
            kfree(node->key);
        kfree(node);
        node = next;
    }
    kfree(list->head);
    kfree(list);
    return 0;
}
