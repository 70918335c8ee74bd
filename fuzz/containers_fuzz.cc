// Tree and skip list against a model. The first byte bounds the tree (0: unbounded) and says how
// many entries the skip list expects; then two bytes are one operation and its key.
#include "containers/tarn_avl.h"
#include "containers/tarn_skip_list.h"
#include "control.h"
#include "kernel/errno.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <map>
#include <vector>

namespace {

struct Key {
    int value;
};

int compare(const void *left, const void *right) {
    int a = static_cast<const Key *>(left)->value;
    int b = static_cast<const Key *>(right)->value;
    return a < b ? -1 : a > b;
}

void must(bool holds) {
    if (!holds)
        std::abort();
}

constexpr unsigned VALUES = 64;
std::array<Key, VALUES> pool;

int value_of(const void *key) {
    return static_cast<const Key *>(key)->value;
}

int checked_height(const tarn_avl_node *node, const tarn_avl_node *parent, u8 side) {
    if (!node)
        return 0;
    must(node->parent == parent && node->side == side);
    int left = checked_height(node->left, node, 0);
    int right = checked_height(node->right, node, 1);
    must(node->balance == right - left && std::abs(right - left) <= 1);
    return std::max(left, right) + 1;
}

// The tree holds records that may be equal; the model, how many of each.
struct TreePair {
    tarn_avl_tree *tree = nullptr;
    std::map<int, unsigned> model;
    unsigned size = 0;

    void insert(Key *key, bool no_memory) {
        bool room = tree->max_nodes != 0 ? size < tree->max_nodes : tree->free_nodes || !no_memory;
        userlevel::fail_allocation(no_memory ? 1 : 0);
        must(tarn_avl_insert(tree, key) == (room ? 0 : -1));
        userlevel::fail_allocation(0);
        if (!room)
            return;
        model[key->value]++;
        size++;
    }
    void remove(const Key *key) {
        must(tarn_avl_delete(tree, key) == 0);
        auto found = model.find(key->value);
        if (found == model.end())
            return;
        size--;
        if (--found->second == 0)
            model.erase(found);
    }
    void check(const Key *key) const {
        const tarn_avl_node *node = tarn_avl_lookup(tree, key);
        must((node != nullptr) == model.contains(key->value));
        must(!node || value_of(node->info) == key->value);
        must(tarn_avl_get_tree_size(tree) == size);
        checked_height(tree->root, nullptr, 0);
    }
    void check_walks() const {
        const tarn_avl_node *node = tarn_avl_first_node(tree);
        for (auto [value, times] : model)
            for (unsigned i = 0; i < times; i++, node = tarn_avl_next_node(node))
                must(node && value_of(node->info) == value);
        must(!node);
        unsigned visited = 0;
        for (node = tarn_avl_top(tree); node && visited <= size; node = tarn_avl_next(node))
            visited++;
        must(visited == size);
    }
};

struct ListPair {
    tarn_skip_list *list = nullptr;
    std::map<int, Key *> model;

    void add(Key *key, bool no_memory) {
        i32 expected = no_memory ? -ENOMEM : model.contains(key->value) ? -EEXIST : 0;
        userlevel::fail_allocation(no_memory ? 1 : 0);
        must(tarn_add_skip_node(list, key) == expected);
        userlevel::fail_allocation(0);
        if (expected == 0)
            model[key->value] = key;
    }
    void remove(const Key *key) {
        must(tarn_remove_skip_node(list, key, false) == (model.erase(key->value) ? 0 : -ENOENT));
    }
    Key *expected(const Key *key, u32 mode) const {
        if (model.empty())
            return nullptr;
        auto at = key ? model.lower_bound(key->value) : model.begin();
        if (!key && mode == TARN_SKIP_BEFORE)
            return model.rbegin()->second;
        if (at == model.end() || (!key && mode != TARN_SKIP_AFTER))
            return nullptr;
        bool equal = key && at->first == key->value;
        if (mode == TARN_SKIP_EQUAL)
            return equal ? at->second : nullptr;
        if (mode == TARN_SKIP_BEFORE)
            return at == model.begin() ? nullptr : std::prev(at)->second;
        if (mode != TARN_SKIP_AFTER)
            return nullptr;
        if (equal)
            ++at;
        return at == model.end() ? nullptr : at->second;
    }
    void search(const Key *key, u32 mode) const {
        void *found = list;
        Key *wanted = expected(key, mode);
        must(tarn_search_skip_list(list, key, mode, &found) == (wanted ? 0 : -ENOENT));
        must(found == wanted);
    }
    void check_walks() const {
        const tarn_skip_node *node = list->head->forward[0];
        for (auto [value, key] : model) {
            must(node->key == key && node->forward[0]->back == node);
            node = node->forward[0];
        }
        must(node == list->head);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    static const bool started = (tarn_avl_cache_init(), true);
    (void)started;
    if (size == 0)
        return 0;
    for (unsigned i = 0; i < VALUES; i++)
        pool[i].value = static_cast<int>(i);
    userlevel::random_seed(size);
    auto before = userlevel::take_snapshot();

    TreePair tree;
    ListPair list;
    must(tarn_avl_create(&tree.tree, data[0] & 15, compare) == 0);
    must(tarn_init_skip_list(&list.list, compare, 1 + (data[0] >> 4) * 8) == 0);
    for (std::size_t i = 1; i + 1 < size; i += 2) {
        Key *key = &pool[data[i + 1] % VALUES];
        bool rare = data[i] >= 0xF0;
        switch (data[i] & 7) {
        case 0:
        case 1:
            tree.insert(key, rare);
            break;
        case 2:
            tree.remove(key);
            break;
        case 3:
        case 4:
            list.add(key, rare);
            break;
        case 5:
            list.remove(key);
            break;
        default:
            list.search(rare ? nullptr : key, data[i + 1] / VALUES);
        }
        tree.check(key);
    }
    tree.check_walks();
    list.check_walks();
    must(tarn_flush_skip_list(list.list, false) == 0);
    must(tarn_avl_tree_free(&tree.tree, nullptr) == 0 && !tree.tree);
    must(userlevel::leaked_since(before).empty());
    return 0;
}
