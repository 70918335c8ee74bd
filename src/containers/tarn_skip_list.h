// The skip list: an ordered map of the caller's keys, held by pointer, for tables that are searched
// on the packet path (W. Pugh, Skip Lists, CACM 33(6), 1990).
//
// In: keys and a comparator that must answer exactly -1 for a node's key before the search key, 0
// for an equal one, and anything else for one behind it; another negative number ends a search
// early. It is called with bottom halves off and must not sleep. Out: keys, never nodes. A key
// stays the caller's until a remove or a flush is asked to free it.
//
// Search, add and remove cost the logarithm of the entries, as long as there are not many more than
// expected. The list keeps bottom halves off on its own CPU and has no lock: users have one, and
// searches may run beside each other under it, as only an add or a remove writes `update`.
#pragma once

#include "kernel/types.h"

using tarn_skip_compare = int (*)(const void *node_key, const void *search_key);

struct tarn_skip_node {
    void *key; // null in the head
    tarn_skip_node *back;
    tarn_skip_node *forward[]; // one more than the node's level; the last of a level is the head
};

struct tarn_skip_list {
    tarn_skip_node *head;
    tarn_skip_compare compare;
    i32 level; // highest in use
    i32 max_level;
    tarn_skip_node *update[]; // max_level + 1: where the last add or remove went down
};

// Which entry a search gives:
enum tarn_skip_mode : u32 {
    TARN_SKIP_EQUAL = 0,  // the one equal to the key
    TARN_SKIP_AFTER = 1,  // the first after the key; with no key, the first
    TARN_SKIP_BEFORE = 2, // the one before the key's place; with no key, the last
};

// 0; -EINVAL (null argument, or an expected number below 1); -ENOMEM.
i32 tarn_init_skip_list(tarn_skip_list **list, tarn_skip_compare compare, i32 expected);

// 0; -EINVAL (null argument), -ENOMEM, -EEXIST: then the list and the key are as they were.
i32 tarn_add_skip_node(tarn_skip_list *list, void *key);

// Removes the entry equal to the key, and frees its key with kfree when asked. 0, -ENOENT.
i32 tarn_remove_skip_node(tarn_skip_list *list, const void *key, bool free_key);

// 0; -EINVAL (null list or out pointer); -ENOENT with *found null.
i32 tarn_search_skip_list(tarn_skip_list *list, const void *key, u32 mode, void **found);
i32 tarn_search_skip_list_comp(tarn_skip_list *list, const void *key, u32 mode, void **found,
                               tarn_skip_compare compare);

// Frees the list, its nodes and, when asked, the keys with kfree. 0; -EINVAL for no list. The
// caller sees to it that nobody else uses the list.
i32 tarn_flush_skip_list(tarn_skip_list *list, bool free_key);
