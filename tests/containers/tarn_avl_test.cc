// The ordered tree.
#include "containers/tarn_avl.h"

#include "control.h"
#include "kernel/memory.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct Record {
    int key;
};

int by_key(const void *key, const void *info) {
    return static_cast<const Record *>(key)->key - static_cast<const Record *>(info)->key;
}

const Record *record_of(const tarn_avl_node *node) {
    return static_cast<const Record *>(node->info);
}

// The height of a subtree, with every rule of the tree checked on the way.
int checked_height(const tarn_avl_node *node, const tarn_avl_node *parent, u8 side) {
    if (!node)
        return 0;
    EXPECT_EQ(node->parent, parent);
    EXPECT_EQ(node->side, side);
    int left = checked_height(node->left, node, 0);
    int right = checked_height(node->right, node, 1);
    EXPECT_EQ(node->balance, right - left);
    EXPECT_LE(std::abs(right - left), 1);
    return std::max(left, right) + 1;
}

class Tree : public ::testing::Test {
protected:
    Tree() {
        tarn_avl_cache_init();
        before_ = userlevel::take_snapshot();
    }
    ~Tree() override {
        EXPECT_EQ(tarn_avl_tree_free(&tree, nullptr), 0);
        EXPECT_EQ(tree, nullptr);
        EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), "");
    }

    void create(int max_nodes = 0) { ASSERT_EQ(tarn_avl_create(&tree, max_nodes, by_key), 0); }
    Record *add(int key) {
        records_.push_back(std::make_unique<Record>(Record{key}));
        EXPECT_EQ(tarn_avl_insert(tree, records_.back().get()), 0);
        return records_.back().get();
    }
    void add_all(std::initializer_list<int> keys) {
        for (int key : keys)
            add(key);
    }
    void remove(int key) {
        Record wanted{key};
        EXPECT_EQ(tarn_avl_delete(tree, &wanted), 0);
    }
    tarn_avl_node *find(int key) {
        Record wanted{key};
        return tarn_avl_lookup(tree, &wanted);
    }
    std::vector<int> in_order() {
        std::vector<int> keys;
        for (auto *node = tarn_avl_first_node(tree); node; node = tarn_avl_next_node(node))
            keys.push_back(record_of(node)->key);
        return keys;
    }
    std::vector<int> in_pre_order() {
        std::vector<int> keys;
        for (auto *node = tarn_avl_top(tree); node; node = tarn_avl_next(node))
            keys.push_back(record_of(node)->key);
        return keys;
    }
    int check() { return checked_height(tree->root, nullptr, 0); }

    tarn_avl_tree *tree = nullptr;

private:
    userlevel::snapshot before_;
    std::vector<std::unique_ptr<Record>> records_;
};

TEST_F(Tree, an_empty_tree_has_nothing) {
    create();
    EXPECT_EQ(find(1), nullptr);
    remove(1);
    EXPECT_EQ(tarn_avl_top(tree), nullptr);
    EXPECT_EQ(tarn_avl_first_node(tree), nullptr);
    EXPECT_EQ(tarn_avl_get_tree_size(tree), 0u);
}

TEST_F(Tree, null_is_an_empty_tree_where_it_is_allowed) {
    EXPECT_EQ(tarn_avl_get_tree_size(nullptr), 0u);
    EXPECT_EQ(tarn_avl_next_node(nullptr), nullptr);
    EXPECT_EQ(tarn_avl_tree_free(&tree, nullptr), 0);
    EXPECT_EQ(tarn_avl_tree_free(nullptr, nullptr), 0);
    Record record{1};
    EXPECT_EQ(tarn_avl_insert(nullptr, &record), -1);
    EXPECT_EQ(tarn_avl_delete(nullptr, &record), 0);
    EXPECT_EQ(tarn_avl_lookup(nullptr, &record), nullptr);
    EXPECT_EQ(tarn_avl_top(nullptr), nullptr);
    EXPECT_EQ(tarn_avl_first_node(nullptr), nullptr);
}

TEST_F(Tree, finds_what_was_inserted) {
    create();
    Record *five = add(5);
    add_all({3, 8});
    ASSERT_NE(find(5), nullptr);
    EXPECT_EQ(find(5)->info, five);
    EXPECT_EQ(find(4), nullptr);
    EXPECT_EQ(tarn_avl_get_tree_size(tree), 3u);
}

TEST_F(Tree, walks_in_the_order_of_the_keys) {
    create();
    add_all({5, 1, 9, 3, 7});
    EXPECT_THAT(in_order(), ElementsAre(1, 3, 5, 7, 9));
}

TEST_F(Tree, the_cheap_walk_is_in_pre_order) {
    create();
    add_all({4, 2, 6, 1, 3, 5, 7});
    EXPECT_THAT(in_pre_order(), ElementsAre(4, 2, 1, 3, 6, 5, 7));
}

TEST_F(Tree, the_cheap_walk_visits_every_node_once) {
    create();
    std::vector<int> keys(100);
    std::iota(keys.begin(), keys.end(), 0);
    for (int key : keys)
        add(key);
    EXPECT_THAT(in_pre_order(), ::testing::UnorderedElementsAreArray(keys));
}

TEST_F(Tree, ascending_descending_and_zigzag_keys_stay_balanced) {
    for (auto keys : {std::vector{1, 2, 3}, {3, 2, 1}, {1, 3, 2}, {3, 1, 2}}) {
        create();
        for (int key : keys)
            add(key);
        EXPECT_EQ(check(), 2);
        EXPECT_EQ(record_of(tree->root)->key, 2);
        tarn_avl_tree_free(&tree, nullptr);
    }
    create();
}

TEST_F(Tree, an_equal_record_stands_before_the_earlier_one) {
    create();
    Record *first = add(5);
    Record *second = add(5);
    Record *third = add(5);
    std::vector<void *> order;
    for (auto *node = tarn_avl_first_node(tree); node; node = tarn_avl_next_node(node))
        order.push_back(node->info);
    EXPECT_THAT(order, ElementsAre(third, second, first));
    EXPECT_NE(find(5), nullptr);
}

TEST_F(Tree, a_delete_removes_one_of_several_equal_records) {
    create();
    add_all({5, 5, 5});
    remove(5);
    EXPECT_EQ(tarn_avl_get_tree_size(tree), 2u);
    remove(5);
    remove(5);
    EXPECT_EQ(find(5), nullptr);
    remove(5);
    EXPECT_EQ(tarn_avl_get_tree_size(tree), 0u);
}

TEST_F(Tree, the_first_equal_node_on_the_way_down_is_the_one_removed) {
    create();
    Record *low = add(5);
    Record *root = add(5);
    Record *third = add(5); // root is now the second
    ASSERT_EQ(tree->root->info, root);
    remove(5);
    std::vector<void *> left;
    for (auto *node = tarn_avl_first_node(tree); node; node = tarn_avl_next_node(node))
        left.push_back(node->info);
    EXPECT_THAT(left, ElementsAre(third, low));
}

TEST_F(Tree, nodes_keep_their_record_when_another_is_deleted) {
    create();
    add_all({4, 2, 6, 1, 3, 5, 7});
    std::map<int, tarn_avl_node *> nodes;
    for (int key : {1, 2, 3, 5, 6, 7})
        nodes[key] = find(key);
    remove(4); // has two children: its successor takes its place
    for (auto [key, node] : nodes) {
        EXPECT_EQ(find(key), node);
        EXPECT_EQ(record_of(node)->key, key);
    }
    EXPECT_THAT(in_order(), ElementsAre(1, 2, 3, 5, 6, 7));
    EXPECT_EQ(record_of(tree->root)->key, 5);
    check();
}

TEST_F(Tree, a_node_whose_successor_is_its_child_can_go) {
    create();
    add_all({2, 1, 3});
    remove(2);
    EXPECT_THAT(in_order(), ElementsAre(1, 3));
    check();
    remove(3);
    remove(1);
    EXPECT_THAT(in_order(), IsEmpty());
}

TEST_F(Tree, a_removed_node_is_the_first_to_be_used_again) {
    create();
    add_all({1, 2, 3});
    tarn_avl_node *node = find(2);
    remove(2);
    EXPECT_EQ(tree->free_nodes, node);
    EXPECT_EQ(node->left, nullptr);
    auto made = userlevel::allocations_made();
    add(9);
    EXPECT_EQ(find(9), node);
    EXPECT_EQ(userlevel::allocations_made(), made);
    EXPECT_EQ(tree->free_nodes, nullptr);
}

TEST_F(Tree, a_bounded_tree_takes_its_nodes_up_front) {
    create(3);
    EXPECT_EQ(tree->max_nodes, 3u);
    auto made = userlevel::allocations_made();
    add_all({1, 2, 3});
    EXPECT_EQ(userlevel::allocations_made(), made);
    Record fourth{4};
    EXPECT_EQ(tarn_avl_insert(tree, &fourth), -1);
    EXPECT_EQ(tarn_avl_get_tree_size(tree), 3u);
    EXPECT_THAT(in_order(), ElementsAre(1, 2, 3));
    check();
    remove(2);
    add(4);
    EXPECT_THAT(in_order(), ElementsAre(1, 3, 4));
}

TEST_F(Tree, an_insert_without_memory_changes_nothing) {
    create();
    add_all({1, 2});
    userlevel::fail_allocation(1);
    Record third{3};
    EXPECT_EQ(tarn_avl_insert(tree, &third), -1);
    EXPECT_EQ(tarn_avl_get_tree_size(tree), 2u);
    EXPECT_EQ(find(3), nullptr);
    check();
}

TEST_F(Tree, nodes_come_from_their_cache_as_the_context_allows) {
    create();
    auto before = userlevel::take_snapshot();
    add(1);
    local_bh_disable();
    add(2);
    local_bh_enable();
    auto nodes = userlevel::leaked_since(before);
    ASSERT_EQ(nodes.size(), 2u);
    for (const userlevel::object &node : nodes) {
        EXPECT_STREQ(node.kind, "avl_node_cache");
        EXPECT_EQ(node.bytes, sizeof(tarn_avl_node));
    }
    EXPECT_EQ(nodes[0].flags, GFP_KERNEL);
    EXPECT_EQ(nodes[1].flags, GFP_ATOMIC);
}

TEST_F(Tree, nodes_of_a_bounded_tree_come_from_one_block) {
    auto before = userlevel::take_snapshot();
    create(1000);
    add(1);
    auto blocks = userlevel::leaked_since(before);
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[0].bytes, sizeof(tarn_avl_tree));
    EXPECT_EQ(blocks[1].bytes, 1000 * sizeof(tarn_avl_node));
    for (const userlevel::object &block : blocks)
        EXPECT_EQ(block.flags, GFP_KERNEL | __GFP_ZERO);
}

TEST_F(Tree, the_first_argument_of_the_comparator_is_what_is_sought) {
    static const void *sought;
    static int calls;
    ASSERT_EQ(tarn_avl_create(&tree, 0,
                              [](const void *key, const void *info) {
                                  calls++;
                                  EXPECT_EQ(key, sought);
                                  EXPECT_NE(info, sought);
                                  return by_key(key, info);
                              }),
              0);
    Record first{1}, second{2}, wanted{1};
    sought = &first;
    EXPECT_EQ(tarn_avl_insert(tree, &first), 0);
    sought = &second;
    EXPECT_EQ(tarn_avl_insert(tree, &second), 0);
    sought = &wanted;
    EXPECT_EQ(tarn_avl_lookup(tree, &wanted)->info, &first);
    EXPECT_EQ(tarn_avl_delete(tree, &wanted), 0);
    EXPECT_EQ(calls, 3);
}

TEST_F(Tree, a_create_that_fails_leaves_nothing) {
    for (u64 n : {1, 2}) {
        userlevel::fail_allocation(n);
        EXPECT_EQ(tarn_avl_create(&tree, 10, by_key), -1);
        EXPECT_EQ(tree, nullptr);
    }
    userlevel::fail_allocation(0);
    EXPECT_EQ(tarn_avl_create(&tree, -1, by_key), -1);
    EXPECT_EQ(tree, nullptr);
}

TEST_F(Tree, freeing_gives_every_record_to_the_function_once) {
    for (int max_nodes : {0, 7}) {
        create(max_nodes);
        static std::vector<int> freed;
        freed.clear();
        add_all({4, 2, 6, 1, 3, 5, 7});
        remove(3);
        tarn_avl_tree_free(&tree,
                           [](void *info) { freed.push_back(static_cast<Record *>(info)->key); });
        EXPECT_THAT(freed, ElementsAre(1, 2, 5, 7, 6, 4)); // leaves first, left before right
        EXPECT_EQ(tree, nullptr);
    }
}

// What the log got for a tree printed from that depth, with each record's key for its address.
class TreePrint : public Tree {
protected:
    std::string print(int depth) {
        userlevel::log_take();
        tarn_avl_print(tarn_avl_top(tree), depth);
        std::string printed;
        for (const auto &line : userlevel::log_take())
            printed += line.text;
        for (auto *node = tarn_avl_first_node(tree); node; node = tarn_avl_next_node(node)) {
            char address[32];
            std::snprintf(address, sizeof(address), "%p", node->info);
            printed.replace(printed.find(address), std::strlen(address),
                            std::to_string(record_of(node)->key));
        }
        return printed;
    }
};

TEST_F(TreePrint, a_left_child_follows_and_a_right_one_has_its_own_line) {
    create();
    add_all({4, 2, 6, 1, 3, 5, 7});
    EXPECT_EQ(print(0), "4-2-1\n"
                        "|        +3\n"
                        "+6-5\n"
                        "|        +7");
}

TEST_F(TreePrint, the_depth_given_indents_every_line) {
    create();
    add_all({2, 1, 3});
    EXPECT_EQ(print(0), "2-1\n+3");
    EXPECT_EQ(print(2), "2-1\n|        |        +3");
}

TEST_F(TreePrint, an_empty_tree_prints_nothing) {
    create();
    EXPECT_EQ(print(0), "");
}

// Comparisons, not a clock: the same on every machine.
class TreeCost : public Tree {
protected:
    static constexpr int COUNT = 100000;
    static inline int compares = 0;
    static int counted(const void *key, const void *info) {
        compares++;
        return by_key(key, info);
    }
    // The dearest of what `operation` does with each key.
    template <typename F>
    int dearest(const std::vector<int> &keys, F operation) {
        int most = 0;
        for (int key : keys) {
            compares = 0;
            operation(key);
            most = std::max(most, compares);
        }
        return most;
    }
};

TEST_F(TreeCost, operations_cost_the_logarithm_at_a_hundred_thousand_entries) {
    const double limit = 1.44 * std::log2(COUNT) + 2;
    std::vector<int> sorted(COUNT);
    for (int i = 0; i < COUNT; i++)
        sorted[static_cast<std::size_t>(i)] = 2 * i;
    std::vector<int> shuffled = sorted;
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
    std::vector<int> gaps = sorted;
    for (int &gap : gaps)
        gap--;
    for (const auto &keys : {sorted, shuffled}) {
        ASSERT_EQ(tarn_avl_create(&tree, 0, counted), 0);
        EXPECT_LE(dearest(keys, [&](int key) { add(key); }), limit);
        EXPECT_LE(dearest(shuffled, [&](int key) { EXPECT_NE(find(key), nullptr); }), limit);
        EXPECT_LE(dearest(gaps, [&](int key) { EXPECT_EQ(find(key), nullptr); }), limit);
        EXPECT_LE(dearest(shuffled, [&](int key) { remove(key); }), limit);
        EXPECT_EQ(tarn_avl_get_tree_size(tree), 0u);
        tarn_avl_tree_free(&tree, nullptr);
    }
}

TEST_F(Tree, an_unhooked_record_is_out_of_the_tree_when_it_is_freed) {
    create();
    add_all({4, 2, 6, 1, 3, 5, 7});
    static tarn_avl_tree *freed;
    static u32 left;
    freed = tree;
    left = 7;
    tarn_avl_tree_free(&tree, [](void *info) {
        left--;
        EXPECT_EQ(tarn_avl_get_tree_size(freed), left);
        u32 nodes = 0;
        for (auto *node = tarn_avl_top(freed); node; node = tarn_avl_next(node), nodes++)
            EXPECT_NE(node->info, info);
        EXPECT_EQ(nodes, left);
    });
    EXPECT_EQ(left, 0u);
}

TEST(TreeStart, without_its_cache_a_tree_takes_no_record) {
    userlevel::fail_allocation(1);
    tarn_avl_cache_init();
    auto before = userlevel::take_snapshot();
    tarn_avl_tree *tree = nullptr;
    ASSERT_EQ(tarn_avl_create(&tree, 0, by_key), 0);
    Record record{1};
    EXPECT_EQ(tarn_avl_insert(tree, &record), -1);
    EXPECT_EQ(tarn_avl_get_tree_size(tree), 0u);
    EXPECT_EQ(tarn_avl_top(tree), nullptr);
    EXPECT_EQ(tarn_avl_tree_free(&tree, nullptr), 0);
    // A bounded tree has its own nodes.
    ASSERT_EQ(tarn_avl_create(&tree, 1, by_key), 0);
    EXPECT_EQ(tarn_avl_insert(tree, &record), 0);
    EXPECT_EQ(tarn_avl_tree_free(&tree, nullptr), 0);
    EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before)), "");
}

TEST(TreeLayout, fields_stand_in_their_documented_order) {
    EXPECT_EQ(offsetof(tarn_avl_tree, max_nodes), 0u);
    EXPECT_LT(offsetof(tarn_avl_tree, max_nodes), offsetof(tarn_avl_tree, compare));
    EXPECT_LT(offsetof(tarn_avl_tree, compare), offsetof(tarn_avl_tree, node_block));
    EXPECT_LT(offsetof(tarn_avl_tree, node_block), offsetof(tarn_avl_tree, root));
    EXPECT_LT(offsetof(tarn_avl_tree, root), offsetof(tarn_avl_tree, free_nodes));
    EXPECT_LT(offsetof(tarn_avl_tree, free_nodes), offsetof(tarn_avl_tree, count));
    EXPECT_EQ(offsetof(tarn_avl_node, left), 0u);
    EXPECT_LT(offsetof(tarn_avl_node, left), offsetof(tarn_avl_node, right));
    EXPECT_LT(offsetof(tarn_avl_node, right), offsetof(tarn_avl_node, parent));
    EXPECT_LT(offsetof(tarn_avl_node, parent), offsetof(tarn_avl_node, info));
    EXPECT_LT(offsetof(tarn_avl_node, info), offsetof(tarn_avl_node, balance));
    EXPECT_EQ(offsetof(tarn_avl_node, balance) + 1, offsetof(tarn_avl_node, side));
}

} // namespace
