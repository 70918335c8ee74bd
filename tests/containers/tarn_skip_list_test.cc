// The skip list.
#include "containers/tarn_skip_list.h"

#include "control.h"
#include "kernel/errno.h"
#include "kernel/memory.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <rapidcheck/gtest.h>
#include <thread>

using ::testing::ElementsAre;

namespace {

struct Key {
    int value;
};

int compares = 0;
int by_value(const void *node, const void *search) {
    compares++;
    int a = static_cast<const Key *>(node)->value;
    int b = static_cast<const Key *>(search)->value;
    return a < b ? -1 : a > b;
}

// Four random bytes: the first makes a node one level higher, the second ends the drawing.
constexpr u8 UP[] = {0xFE, 0xFF, 0xFF, 0x3F};   // 0x3ffffffe
constexpr u8 STOP[] = {0xFF, 0xFF, 0xFF, 0x3F}; // 0x3fffffff
constexpr u8 UP_SIGNED[] = {0, 0, 0, 0x80};     // the sign bit is cleared

class SkipList : public ::testing::Test {
protected:
    SkipList() { before_ = userlevel::take_snapshot(); }
    ~SkipList() override {
        if (list) {
            EXPECT_EQ(tarn_flush_skip_list(list, false), 0);
        }
        EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), "");
        EXPECT_EQ(preempt_count(), 0u);
    }

    void create(i32 expected = 64) { ASSERT_EQ(tarn_init_skip_list(&list, by_value, expected), 0); }
    Key *add(int value) {
        keys_.push_back(std::make_unique<Key>(Key{value}));
        EXPECT_EQ(tarn_add_skip_node(list, keys_.back().get()), 0);
        return keys_.back().get();
    }
    // A node of exactly that level.
    void add_at_level(int value, int level) {
        std::vector<u8> script;
        for (int i = 0; i < level; i++)
            script.insert(script.end(), std::begin(UP), std::end(UP));
        script.insert(script.end(), std::begin(STOP), std::end(STOP));
        userlevel::random_script(script);
        add(value);
        userlevel::random_script({});
    }
    i32 remove(int value) {
        Key wanted{value};
        return tarn_remove_skip_node(list, &wanted, false);
    }
    // The value found, or the error. The out pointer is set to null on every -ENOENT.
    int search(std::optional<int> value, u32 mode) {
        Key wanted{value.value_or(0)};
        Key marker{-1};
        void *found = &marker;
        i32 result = tarn_search_skip_list(list, value ? &wanted : nullptr, mode, &found);
        if (result == -ENOENT) {
            EXPECT_EQ(found, nullptr);
        }
        return result == 0 ? static_cast<Key *>(found)->value : result;
    }
    std::vector<int> forward() {
        std::vector<int> values;
        for (auto *node = list->head->forward[0]; node->key; node = node->forward[0])
            values.push_back(static_cast<Key *>(node->key)->value);
        return values;
    }
    std::vector<int> backward() {
        std::vector<int> values;
        for (auto *node = list->head->back; node->key; node = node->back)
            values.push_back(static_cast<Key *>(node->key)->value);
        return values;
    }

    tarn_skip_list *list = nullptr;

private:
    userlevel::snapshot before_;
    std::vector<std::unique_ptr<Key>> keys_;
};

TEST_F(SkipList, a_create_wants_all_its_arguments) {
    EXPECT_EQ(tarn_init_skip_list(nullptr, by_value, 5), -EINVAL);
    EXPECT_EQ(tarn_init_skip_list(&list, nullptr, 5), -EINVAL);
    EXPECT_EQ(tarn_init_skip_list(&list, by_value, 0), -EINVAL);
    EXPECT_EQ(tarn_init_skip_list(&list, by_value, -1), -EINVAL);
    EXPECT_EQ(list, nullptr);
}

TEST_F(SkipList, the_level_limit_follows_the_expected_count) {
    struct Row {
        i32 expected, max_level;
    };
    for (Row row : {Row{1, 0}, Row{2, 0}, Row{3, 1}, Row{4, 1}, Row{5, 1}, Row{6, 2}, Row{64, 5},
                    Row{512, 8}, Row{2048, 10}, Row{__INT32_MAX__, 30}}) {
        create(row.expected);
        EXPECT_EQ(list->max_level, row.max_level) << row.expected;
        EXPECT_EQ(list->level, 0);
        tarn_flush_skip_list(list, false);
        list = nullptr;
    }
}

TEST_F(SkipList, a_create_without_memory_leaves_nothing) {
    for (u64 n : {1, 2}) {
        userlevel::fail_allocation(n);
        EXPECT_EQ(tarn_init_skip_list(&list, by_value, 64), -ENOMEM);
        EXPECT_EQ(list, nullptr);
    }
}

TEST_F(SkipList, an_empty_list_points_at_its_head) {
    create();
    EXPECT_EQ(list->head->key, nullptr);
    EXPECT_EQ(list->head->back, list->head);
    for (i32 i = 0; i <= list->max_level; i++)
        EXPECT_EQ(list->head->forward[i], list->head);
}

TEST_F(SkipList, keeps_keys_in_order_both_ways) {
    create();
    for (int value : {5, 1, 9, 3, 7})
        add(value);
    EXPECT_THAT(forward(), ElementsAre(1, 3, 5, 7, 9));
    EXPECT_THAT(backward(), ElementsAre(9, 7, 5, 3, 1));
}

TEST_F(SkipList, an_add_wants_a_list_and_a_key) {
    Key key{1};
    EXPECT_EQ(tarn_add_skip_node(nullptr, &key), -EINVAL);
    create();
    EXPECT_EQ(tarn_add_skip_node(list, nullptr), -EINVAL);
}

TEST_F(SkipList, an_add_without_memory_changes_nothing) {
    create();
    add(1);
    Key key{2};
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_add_skip_node(list, &key), -ENOMEM);
    EXPECT_THAT(forward(), ElementsAre(1));
}

TEST_F(SkipList, an_equal_key_is_refused) {
    create();
    Key *first = add(5);
    Key second{5};
    EXPECT_EQ(tarn_add_skip_node(list, &second), -EEXIST);
    EXPECT_EQ(second.value, 5);
    void *found = nullptr;
    EXPECT_EQ(tarn_search_skip_list(list, &second, TARN_SKIP_EQUAL, &found), 0);
    EXPECT_EQ(found, first);
    EXPECT_THAT(forward(), ElementsAre(5));
}

TEST_F(SkipList, levels_are_drawn_until_one_is_lost) {
    create();
    add_at_level(1, 0);
    EXPECT_EQ(list->level, 0);
    add_at_level(2, 3);
    EXPECT_EQ(list->level, 3);
    for (i32 i = 0; i <= 3; i++)
        EXPECT_NE(list->head->forward[i], list->head);
    EXPECT_EQ(list->head->forward[4], list->head);
}

TEST_F(SkipList, the_sign_bit_of_a_draw_does_not_count) {
    create();
    std::vector<u8> script(std::begin(UP_SIGNED), std::end(UP_SIGNED));
    script.insert(script.end(), std::begin(STOP), std::end(STOP));
    userlevel::random_script(script);
    add(1);
    EXPECT_EQ(list->level, 1);
}

TEST_F(SkipList, levels_end_at_the_limit) {
    create(64);
    add_at_level(1, 40);
    EXPECT_EQ(list->level, 5);
    userlevel::random_script({});
}

TEST_F(SkipList, removing_the_only_node_of_the_top_lowers_the_level) {
    create();
    add_at_level(1, 0);
    add_at_level(2, 2);
    add_at_level(3, 4);
    EXPECT_EQ(remove(3), 0);
    EXPECT_EQ(list->level, 2);
    EXPECT_EQ(remove(2), 0);
    EXPECT_EQ(list->level, 0);
    EXPECT_EQ(remove(1), 0);
    EXPECT_EQ(list->level, 0);
    EXPECT_EQ(list->head->back, list->head);
}

TEST_F(SkipList, a_remove_of_what_is_not_there_fails) {
    create();
    EXPECT_EQ(remove(1), -ENOENT);
    add(1);
    EXPECT_EQ(remove(2), -ENOENT);
    EXPECT_EQ(remove(0), -ENOENT);
    EXPECT_THAT(forward(), ElementsAre(1));
    Key key{1};
    EXPECT_EQ(tarn_remove_skip_node(nullptr, &key, false), -ENOENT);
    EXPECT_EQ(tarn_remove_skip_node(list, nullptr, false), -ENOENT);
}

TEST_F(SkipList, a_remove_frees_the_key_when_asked) {
    create();
    auto *key = static_cast<Key *>(__kmalloc(sizeof(Key), GFP_KERNEL));
    key->value = 3;
    ASSERT_EQ(tarn_add_skip_node(list, key), 0);
    Key wanted{3};
    EXPECT_EQ(tarn_remove_skip_node(list, &wanted, true), 0); // the leak check at the end
}

TEST_F(SkipList, the_way_back_survives_a_remove) {
    create();
    for (int value : {1, 2, 3, 4})
        add(value);
    EXPECT_EQ(remove(3), 0);
    EXPECT_THAT(backward(), ElementsAre(4, 2, 1));
    EXPECT_EQ(search(4, TARN_SKIP_BEFORE), 2);
    EXPECT_EQ(remove(4), 0);
    EXPECT_THAT(backward(), ElementsAre(2, 1));
}

TEST_F(SkipList, mode_0_gives_the_equal_entry) {
    create();
    for (int value : {2, 4, 6})
        add(value);
    EXPECT_EQ(search(4, TARN_SKIP_EQUAL), 4);
    EXPECT_EQ(search(3, TARN_SKIP_EQUAL), -ENOENT);
    EXPECT_EQ(search(7, TARN_SKIP_EQUAL), -ENOENT);
    EXPECT_EQ(search(std::nullopt, TARN_SKIP_EQUAL), -ENOENT);
}

TEST_F(SkipList, mode_1_gives_the_entry_after) {
    create();
    for (int value : {2, 4, 6})
        add(value);
    EXPECT_EQ(search(1, TARN_SKIP_AFTER), 2);
    EXPECT_EQ(search(2, TARN_SKIP_AFTER), 4);
    EXPECT_EQ(search(3, TARN_SKIP_AFTER), 4);
    EXPECT_EQ(search(6, TARN_SKIP_AFTER), -ENOENT); // the last one
    EXPECT_EQ(search(7, TARN_SKIP_AFTER), -ENOENT);
    EXPECT_EQ(search(std::nullopt, TARN_SKIP_AFTER), 2);
}

TEST_F(SkipList, mode_2_gives_the_entry_before) {
    create();
    for (int value : {2, 4, 6})
        add(value);
    EXPECT_EQ(search(2, TARN_SKIP_BEFORE), -ENOENT);
    EXPECT_EQ(search(3, TARN_SKIP_BEFORE), 2);
    EXPECT_EQ(search(4, TARN_SKIP_BEFORE), 2);
    // A search position at the head gives nothing, in every mode.
    EXPECT_EQ(search(7, TARN_SKIP_BEFORE), -ENOENT);
    EXPECT_EQ(search(std::nullopt, TARN_SKIP_BEFORE), 6);
}

TEST_F(SkipList, other_modes_give_nothing) {
    create();
    add(1);
    EXPECT_EQ(search(1, 3), -ENOENT);
    EXPECT_EQ(search(std::nullopt, 3), -ENOENT);
}

TEST_F(SkipList, an_empty_list_gives_nothing_in_every_mode) {
    create();
    for (u32 mode : {0u, 1u, 2u, 9u}) {
        EXPECT_EQ(search(1, mode), -ENOENT);
        EXPECT_EQ(search(std::nullopt, mode), -ENOENT);
    }
}

TEST_F(SkipList, a_search_wants_a_list_and_a_place_for_the_key) {
    create();
    Key key{1};
    void *found = nullptr;
    EXPECT_EQ(tarn_search_skip_list(list, &key, 0, nullptr), -EINVAL);
    EXPECT_EQ(tarn_search_skip_list(nullptr, &key, 0, &found), -EINVAL);
    EXPECT_EQ(tarn_search_skip_list_comp(nullptr, &key, 0, &found, by_value), -EINVAL);
    EXPECT_EQ(tarn_search_skip_list_comp(list, &key, 0, nullptr, by_value), -EINVAL);
}

TEST_F(SkipList, a_search_may_bring_its_own_comparator) {
    create();
    for (int value : {10, 21, 35})
        add(value);
    auto by_tens = [](const void *node, const void *wanted) {
        int a = static_cast<const Key *>(node)->value / 10;
        int b = static_cast<const Key *>(wanted)->value / 10;
        return a < b ? -1 : a > b;
    };
    Key key{29};
    void *found = nullptr;
    EXPECT_EQ(tarn_search_skip_list_comp(list, &key, TARN_SKIP_EQUAL, &found, by_tens), 0);
    EXPECT_EQ(static_cast<Key *>(found)->value, 21);
}

TEST_F(SkipList, comparators_run_with_bottom_halves_off) {
    create();
    add(1);
    static u32 depth;
    Key key{1};
    void *found = nullptr;
    tarn_search_skip_list_comp(list, &key, 0, &found, [](const void *, const void *) {
        depth = preempt_count();
        return 0;
    });
    EXPECT_EQ(depth, SOFTIRQ_DISABLE_OFFSET);
}

TEST_F(SkipList, nodes_are_allocated_as_the_context_allows) {
    auto before = userlevel::take_snapshot();
    create();
    add(1);
    local_bh_disable();
    add(2);
    local_bh_enable();
    auto blocks = userlevel::leaked_since(before);
    ASSERT_EQ(blocks.size(), 4u); // the list, its head, two nodes
    for (std::size_t i = 0; i < 4; i++)
        EXPECT_EQ(blocks[i].flags, (i < 3 ? GFP_KERNEL : GFP_ATOMIC) | __GFP_ZERO);
}

TEST_F(SkipList, fields_stand_in_their_documented_order) {
    EXPECT_EQ(offsetof(tarn_skip_list, head), 0u);
    EXPECT_LT(offsetof(tarn_skip_list, head), offsetof(tarn_skip_list, compare));
    EXPECT_LT(offsetof(tarn_skip_list, compare), offsetof(tarn_skip_list, level));
    EXPECT_LT(offsetof(tarn_skip_list, level), offsetof(tarn_skip_list, max_level));
    EXPECT_LT(offsetof(tarn_skip_list, max_level), offsetof(tarn_skip_list, update));
    EXPECT_EQ(offsetof(tarn_skip_node, key), 0u);
    EXPECT_LT(offsetof(tarn_skip_node, key), offsetof(tarn_skip_node, back));
    EXPECT_LT(offsetof(tarn_skip_node, back), offsetof(tarn_skip_node, forward));
}

TEST_F(SkipList, a_node_at_the_limit_costs_one_draw_more) {
    create(3); // one level up at most
    std::vector<u8> script;
    for (int i = 0; i < 3; i++)
        script.insert(script.end(), std::begin(UP), std::end(UP));
    script.insert(script.end(), std::begin(STOP), std::end(STOP));
    userlevel::random_script(script);
    add(1); // up, up again but for the limit
    add(2); // up, stop
    userlevel::random_script({});
    const tarn_skip_node *first = list->head->forward[1];
    ASSERT_EQ(static_cast<Key *>(first->key)->value, 1);
    ASSERT_NE(first->forward[1], list->head);
    EXPECT_EQ(static_cast<Key *>(first->forward[1]->key)->value, 2);
}

TEST_F(SkipList, a_comparator_that_says_less_in_other_words_ends_the_search) {
    create(1);
    for (int value : {1, 2, 3})
        add(value);
    auto minus_two = [](const void *node, const void *search) {
        int result = by_value(node, search);
        return result < 0 ? -2 : result;
    };
    Key key{3};
    void *found = &key;
    EXPECT_EQ(tarn_search_skip_list_comp(list, &key, TARN_SKIP_EQUAL, &found, minus_two), -ENOENT);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(tarn_search_skip_list_comp(list, &key, TARN_SKIP_AFTER, &found, minus_two), 0);
    EXPECT_EQ(static_cast<Key *>(found)->value, 1);
}

TEST_F(SkipList, a_search_writes_nothing) {
    create();
    for (int value = 0; value < 40; value++)
        add(value);
    std::size_t bytes = sizeof(tarn_skip_list) +
                        static_cast<std::size_t>(list->max_level + 1) * sizeof(tarn_skip_node *);
    std::vector<u8> before(bytes), after(bytes);
    std::memcpy(before.data(), list, bytes);
    for (u32 mode : {0u, 1u, 2u, 3u})
        for (int value = -1; value < 41; value++)
            search(value, mode);
    std::memcpy(after.data(), list, bytes);
    EXPECT_EQ(before, after);
}

TEST_F(SkipList, takes_more_entries_than_expected) {
    create(2);
    for (int value = 99; value >= 0; value--)
        add(value);
    EXPECT_EQ(list->level, 0);
    EXPECT_EQ(forward().size(), 100u);
    EXPECT_EQ(search(50, TARN_SKIP_EQUAL), 50);
}

TEST_F(SkipList, a_flush_frees_keys_only_when_asked) {
    for (bool free_keys : {true, false}) {
        create();
        std::vector<Key *> keys;
        for (int value : {1, 2, 3}) {
            keys.push_back(static_cast<Key *>(__kmalloc(sizeof(Key), GFP_KERNEL)));
            keys.back()->value = value;
            tarn_add_skip_node(list, keys.back());
        }
        EXPECT_EQ(tarn_flush_skip_list(list, free_keys), 0);
        list = nullptr;
        if (!free_keys)
            for (Key *key : keys)
                kfree(key);
    }
    EXPECT_EQ(tarn_flush_skip_list(nullptr, true), -EINVAL);
}

TEST_F(SkipList, a_search_costs_the_logarithm) {
    userlevel::random_seed(1);
    constexpr int COUNT = 100000;
    create(COUNT);
    for (int i = 0; i < COUNT; i++)
        add(static_cast<int>(i * 7919L % COUNT));
    compares = 0;
    for (int value = 0; value < COUNT; value += 100)
        EXPECT_EQ(search(value, TARN_SKIP_EQUAL), value);
    // Two for each level, and a few more; ten times as many would still be no linear search.
    EXPECT_LT(compares / (COUNT / 100), 4 * std::bit_width(unsigned{COUNT}));
}

// Against a model, in all modes.
class SkipListModel : public SkipList {
protected:
    int expected(const std::map<int, int> &model, std::optional<int> value, u32 mode) {
        auto found = model.end();
        if (!value) {
            if (!model.empty() && mode == TARN_SKIP_AFTER)
                found = model.begin();
            if (!model.empty() && mode == TARN_SKIP_BEFORE)
                found = std::prev(model.end());
        } else if (auto at = model.lower_bound(*value); at != model.end()) {
            if (mode == TARN_SKIP_EQUAL && at->first == *value)
                found = at;
            if (mode == TARN_SKIP_AFTER)
                found = at->first == *value ? std::next(at) : at;
            if (mode == TARN_SKIP_BEFORE && at != model.begin())
                found = std::prev(at);
        }
        return found == model.end() ? -ENOENT : found->first;
    }

    // Every level in order, each a part of the one below, none empty but the lowest; the way back
    // is the way forward turned round. "" or what is wrong.
    std::string check(const std::map<int, int> &model) {
        std::vector<const tarn_skip_node *> below;
        const tarn_skip_node *head = list->head;
        auto entry = model.begin();
        for (auto *node = head->forward[0]; node != head; node = node->forward[0], ++entry) {
            if (entry == model.end() || static_cast<Key *>(node->key)->value != entry->first)
                return "other entries";
            if (node->forward[0]->back != node)
                return "a way back goes astray";
            below.push_back(node);
        }
        if (entry != model.end())
            return "entries are lost";
        if (head->forward[0]->back != head || head->key)
            return "the head is not itself";
        for (i32 level = 1; level <= list->max_level; level++) {
            std::vector<const tarn_skip_node *> here;
            auto at = below.begin();
            for (auto *node = head->forward[level]; node != head; node = node->forward[level]) {
                at = std::find(at, below.end(), node);
                if (at == below.end())
                    return "a level is not a part of the one below";
                here.push_back(node);
            }
            if (here.empty() != (level > list->level))
                return "the level in use is not the highest with a node";
            below = here;
        }
        return "";
    }

    void run(int steps, int values, int check_every) {
        std::vector<Key> pool(static_cast<std::size_t>(values));
        std::map<int, int> model;
        std::mt19937 random(7);
        userlevel::random_seed(7);
        for (int step = 0; step < steps; step++) {
            int value = static_cast<int>(random() % static_cast<unsigned>(values));
            Key &key = pool[static_cast<std::size_t>(value)];
            key.value = value;
            switch (random() % 3) {
            case 0:
                ASSERT_EQ(tarn_add_skip_node(list, &key), model.contains(value) ? -EEXIST : 0);
                model[value] = value;
                break;
            case 1:
                ASSERT_EQ(remove(value), model.erase(value) ? 0 : -ENOENT);
                break;
            default:
                u32 mode = random() % 4;
                std::optional<int> wanted;
                if (random() % 8)
                    wanted = value;
                ASSERT_EQ(search(wanted, mode), expected(model, wanted, mode)) << "step " << step;
            }
            if (step % check_every == 0) {
                ASSERT_EQ(check(model), "") << "step " << step;
            }
        }
    }
};

TEST_F(SkipListModel, agrees_with_a_map_over_a_million_operations) {
    create(64);
    run(1200000, 64, 1);
}

TEST_F(SkipListModel, agrees_with_a_map_over_a_million_searches) {
    create(256);
    run(3000000, 500, 1000);
}

TEST_F(SkipListModel, agrees_with_a_map_when_it_is_large) {
    create(20000);
    run(300000, 40000, 20000);
}

TEST_F(SkipListModel, agrees_with_a_map_when_it_is_a_plain_list) {
    create(1); // one level
    run(100000, 30, 1);
}

// Short sequences, shrunk to the smallest that fails.
RC_GTEST_PROP(SkipListProperty, what_was_added_and_not_removed_is_there,
              (std::vector<std::pair<bool, u8>> steps)) {
    tarn_skip_list *list = nullptr;
    RC_ASSERT(tarn_init_skip_list(&list, by_value, 16) == 0);
    std::array<Key, 256> pool;
    std::map<int, int> model;
    for (auto [adds, value] : steps) {
        pool[value].value = value;
        if (adds) {
            RC_ASSERT(tarn_add_skip_node(list, &pool[value]) ==
                      (model.contains(value) ? -EEXIST : 0));
            model[value] = value;
        } else {
            RC_ASSERT(tarn_remove_skip_node(list, &pool[value], false) ==
                      (model.erase(value) ? 0 : -ENOENT));
        }
    }
    auto *node = list->head->forward[0];
    for (auto [value, same] : model) {
        RC_ASSERT(static_cast<Key *>(node->key)->value == value);
        node = node->forward[0];
    }
    RC_ASSERT(node == list->head);
    tarn_flush_skip_list(list, false);
}

TEST(SkipListThreads, searches_beside_each_other_do_not_disturb_one_another) {
    tarn_skip_list *list = nullptr;
    ASSERT_EQ(tarn_init_skip_list(
                  &list,
                  [](const void *node, const void *wanted) {
                      int a = static_cast<const Key *>(node)->value;
                      int b = static_cast<const Key *>(wanted)->value;
                      return a < b ? -1 : a > b;
                  },
                  256),
              0);
    std::vector<Key> keys(256);
    for (int i = 0; i < 256; i++) {
        keys[static_cast<std::size_t>(i)].value = i;
        ASSERT_EQ(tarn_add_skip_node(list, &keys[static_cast<std::size_t>(i)]), 0);
    }
    std::vector<std::thread> searchers;
    for (int t = 0; t < 3; t++)
        searchers.emplace_back([&] {
            for (int round = 0; round < 200; round++)
                for (Key &key : keys) {
                    void *found = nullptr;
                    EXPECT_EQ(tarn_search_skip_list(list, &key, TARN_SKIP_EQUAL, &found), 0);
                    EXPECT_EQ(found, &key);
                }
        });
    for (std::thread &searcher : searchers)
        searcher.join();
    tarn_flush_skip_list(list, false);
}

} // namespace
