// The ordered tree against a model, every rule of the tree checked at every step.
#include "containers/tarn_avl.h"

#include "control.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <rapidcheck/gtest.h>
#include <string>
#include <vector>

namespace {

struct Record {
    int key;
    const tarn_avl_node *node = nullptr; // that it must stay on
};

int by_key(const void *key, const void *info) {
    int a = static_cast<const Record *>(key)->key;
    int b = static_cast<const Record *>(info)->key;
    return a < b ? -1 : a > b;
}

// A tree and a multimap that go through the same operations. Each operation answers "" or what was
// wrong.
class Pair {
public:
    explicit Pair(int max_nodes = 0) : max_nodes_(static_cast<u32>(max_nodes)) {
        tarn_avl_cache_init();
        before_ = userlevel::take_snapshot();
        if (tarn_avl_create(&tree_, max_nodes, by_key) != 0)
            std::abort();
    }
    Pair(const Pair &) = delete;
    Pair &operator=(const Pair &) = delete;
    ~Pair() { tarn_avl_tree_free(&tree_, nullptr); }

    std::size_t size() const { return model_.size(); }

    // A later one of equal records stands first.
    std::string insert(int key) {
        auto record = std::make_unique<Record>(Record{key});
        bool room = max_nodes_ != 0 ? size() < max_nodes_ : !out_of_memory_ || spares() != 0;
        if (out_of_memory_)
            userlevel::fail_allocation(1);
        int result = tarn_avl_insert(tree_, record.get());
        userlevel::fail_allocation(0);
        if (result != (room ? 0 : -1))
            return "insert gives " + std::to_string(result);
        if (!room)
            return "";
        record->node = node_of(record.get());
        if (!record->node)
            return "the record is not in its place";
        model_.emplace_hint(model_.lower_bound(key), key, std::move(record));
        most_ = std::max(most_, size());
        return "";
    }

    // The highest of equal records goes.
    std::string remove(int key) {
        Record *gone = highest(key);
        Record wanted{key};
        if (tarn_avl_delete(tree_, &wanted) != 0)
            return "delete does not give 0";
        auto [from, to] = model_.equal_range(key);
        auto entry = std::find_if(from, to, [&](auto &one) { return one.second.get() == gone; });
        if (entry == to)
            return "";
        if (tree_->free_nodes != gone->node || gone->node->left)
            return "the node removed is not the first spare one";
        model_.erase(entry);
        return "";
    }

    std::string lookup(int key) {
        Record wanted{key};
        const tarn_avl_node *node = tarn_avl_lookup(tree_, &wanted);
        const Record *expected = highest(key);
        return (node ? node->info : nullptr) == expected ? "" : "lookup gives another record";
    }

    void out_of_memory(bool is) { out_of_memory_ = is; }

    // The whole tree against its own rules and against the model.
    std::string check() {
        pre_order_.clear();
        in_order_.clear();
        wrong_ = "";
        int height = checked_height(tree_->root, nullptr, 0);
        if (height > 1.4405 * std::log2(static_cast<double>(size()) + 2))
            wrong_ = "too high";
        check_records();
        check_walks();
        if (size() + spares() != (max_nodes_ != 0 ? max_nodes_ : most_))
            wrong_ = "nodes are lost, or taken where a spare one was at hand";
        return wrong_;
    }

    // Frees the tree; "" when every record left was handed over once and nothing stays allocated.
    std::string free() {
        static std::multimap<const void *, int> handed;
        handed.clear();
        if (tarn_avl_tree_free(&tree_, [](void *info) { handed.emplace(info, 0); }) != 0 || tree_)
            return "the tree is still there";
        if (handed.size() != size())
            return "not every record was handed over";
        for (auto &[key, record] : model_)
            if (handed.count(record.get()) != 1)
                return "a record was not handed over once";
        return userlevel::describe(userlevel::leaked_since(before_));
    }

private:
    // The first of its equals lies on the way to everything not after it.
    const tarn_avl_node *node_of(const Record *record) {
        const tarn_avl_node *node = tree_->root;
        while (node && node->info != record)
            node = by_key(record, node->info) > 0 ? node->right : node->left;
        return node;
    }

    // Told without the tree's own walks: the node nearest to the root.
    Record *highest(int key) {
        Record *found = nullptr;
        int least = 0;
        auto [from, to] = model_.equal_range(key);
        for (auto at = from; at != to; ++at) {
            int depth = 0;
            for (auto *node = at->second->node; node->parent; node = node->parent)
                depth++;
            if (!found || depth < least) {
                found = at->second.get();
                least = depth;
            }
        }
        return found;
    }

    std::size_t spares() const {
        std::size_t count = 0;
        for (auto *node = tree_->free_nodes; node; node = node->right)
            count++;
        return count;
    }

    int checked_height(const tarn_avl_node *node, const tarn_avl_node *parent, u8 side) {
        if (!node)
            return 0;
        if (node->parent != parent || node->side != side)
            wrong_ = "a node does not know its place";
        pre_order_.push_back(node);
        int left = checked_height(node->left, node, 0);
        in_order_.push_back(node);
        int right = checked_height(node->right, node, 1);
        if (node->balance != right - left || std::abs(right - left) > 1)
            wrong_ = "a balance is wrong";
        return std::max(left, right) + 1;
    }

    void check_records() {
        if (in_order_.size() != size() || tarn_avl_get_tree_size(tree_) != size()) {
            wrong_ = "another number of nodes";
            return;
        }
        auto node = in_order_.begin();
        for (auto &[key, record] : model_) {
            if ((*node)->info != record.get())
                wrong_ = "another order of the records";
            if (record->node != *node)
                wrong_ = "a record has moved to another node";
            ++node;
        }
    }

    void check_walks() {
        const tarn_avl_node *at = tarn_avl_top(tree_);
        for (auto *node : pre_order_) {
            if (at != node) {
                wrong_ = "the walk in pre-order goes astray";
                return;
            }
            at = tarn_avl_next(at);
        }
        if (at)
            wrong_ = "the walk in pre-order does not end";
        at = tarn_avl_first_node(tree_);
        for (auto *node : in_order_) {
            if (at != node) {
                wrong_ = "the walk in order goes astray";
                return;
            }
            at = tarn_avl_next_node(at);
        }
        if (at)
            wrong_ = "the walk in order does not end";
    }

    tarn_avl_tree *tree_ = nullptr;
    std::multimap<int, std::unique_ptr<Record>> model_;
    u32 max_nodes_;
    bool out_of_memory_ = false;
    std::size_t most_ = 0;
    std::vector<const tarn_avl_node *> pre_order_, in_order_;
    std::string wrong_;
    userlevel::snapshot before_;
};

struct Plan {
    unsigned seed;
    int keys; // few: many records are equal
    std::size_t size;
    int steps;
    int check_every = 1;
    int max_nodes = 0;
    bool memory_fails = false;
};

// Grows and shrinks by turns, between empty and that size.
void run(const Plan &plan) {
    Pair pair(plan.max_nodes);
    std::mt19937 random(plan.seed);
    unsigned inserts_of_ten = 8;
    for (int step = 0; step < plan.steps; step++) {
        if (pair.size() >= plan.size)
            inserts_of_ten = 2;
        if (pair.size() == 0)
            inserts_of_ten = 8;
        if (plan.memory_fails)
            pair.out_of_memory(random() % 4 == 0);
        int key = static_cast<int>(random() % static_cast<unsigned>(plan.keys));
        std::string wrong = random() % 10 < inserts_of_ten ? pair.insert(key) : pair.remove(key);
        if (wrong.empty() && step % plan.check_every == 0)
            wrong = pair.check();
        if (wrong.empty())
            wrong = pair.lookup(static_cast<int>(random() % static_cast<unsigned>(plan.keys)));
        ASSERT_EQ(wrong, "") << "seed " << plan.seed << " step " << step;
    }
    EXPECT_EQ(pair.free(), "");
}

TEST(TreeModel, agrees_over_a_million_operations_on_few_keys) {
    run({.seed = 1, .keys = 12, .size = 48, .steps = 1000000});
}

TEST(TreeModel, agrees_over_a_million_operations_on_many_keys) {
    run({.seed = 2, .keys = 100, .size = 64, .steps = 1000000});
}

TEST(TreeModel, agrees_when_it_is_bounded_and_often_full) {
    run({.seed = 3, .keys = 40, .size = 32, .steps = 200000, .max_nodes = 20});
}

TEST(TreeModel, agrees_when_memory_fails_now_and_then) {
    run({.seed = 4, .keys = 40, .size = 40, .steps = 200000, .memory_fails = true});
}

TEST(TreeModel, agrees_when_it_is_large) {
    run({.seed = 5, .keys = 150000, .size = 50000, .steps = 300000, .check_every = 5000});
}

// Short sequences, shrunk to the smallest that fails.
RC_GTEST_PROP(TreeProperty, agrees_with_a_multimap, (std::vector<std::pair<u8, u8>> steps)) {
    for (int max_nodes : {0, 8}) {
        Pair pair(max_nodes);
        for (auto [what, key] : steps) {
            std::string wrong = what % 3 == 0 ? pair.remove(key % 16) : pair.insert(key % 16);
            RC_ASSERT(wrong == "");
            RC_ASSERT(pair.check() == "");
            RC_ASSERT(pair.lookup(key / 16) == "");
        }
        RC_ASSERT(pair.free() == "");
    }
}

} // namespace
