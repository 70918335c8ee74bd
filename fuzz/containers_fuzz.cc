// Tree and skip list against a model: two bytes are one operation.
#include "containers/tarn_avl.h"
#include "containers/tarn_skip_list.h"
#include "control.h"
#include "kernel/errno.h"

#include <array>
#include <cstdlib>
#include <map>

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

int checked_height(const tarn_avl_node *node, const tarn_avl_node *parent, u8 side) {
    if (!node)
        return 0;
    must(node->parent == parent && node->side == side);
    int left = checked_height(node->left, node, 0);
    int right = checked_height(node->right, node, 1);
    must(node->balance == right - left && std::abs(right - left) <= 1);
    return std::max(left, right) + 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    static const bool started = (tarn_avl_cache_init(), true);
    (void)started;
    userlevel::random_seed(size);
    static std::array<Key, 256> pool;
    std::map<int, bool> model;
    tarn_avl_tree *tree = nullptr;
    tarn_skip_list *list = nullptr;
    must(tarn_avl_create(&tree, 0, compare) == 0 && tarn_init_skip_list(&list, compare, 64) == 0);

    for (std::size_t i = 0; i + 1 < size; i += 2) {
        Key &key = pool[data[i + 1]];
        key.value = data[i + 1];
        bool known = model.contains(key.value);
        if (data[i] & 1) {
            must(tarn_add_skip_node(list, &key) == (known ? -EEXIST : 0));
            if (!known)
                must(tarn_avl_insert(tree, &key) == 0);
            model[key.value] = true;
        } else {
            must(tarn_remove_skip_node(list, &key, false) == (known ? 0 : -ENOENT));
            must(tarn_avl_delete(tree, &key) == 0);
            model.erase(key.value);
        }
        must((tarn_avl_lookup(tree, &key) != nullptr) == model.contains(key.value));
        must(tarn_avl_get_tree_size(tree) == model.size());
        checked_height(tree->root, nullptr, 0);
    }

    const tarn_skip_node *entry = list->head->forward[0];
    const tarn_avl_node *node = tarn_avl_first_node(tree);
    for (auto [value, there] : model) {
        must(static_cast<Key *>(entry->key)->value == value);
        must(static_cast<Key *>(node->info)->value == value);
        entry = entry->forward[0];
        node = tarn_avl_next_node(node);
    }
    must(entry == list->head && !node);
    tarn_flush_skip_list(list, false);
    tarn_avl_tree_free(&tree, nullptr);
    return 0;
}
