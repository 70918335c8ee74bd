// The interface database.
#include "support/chance.h"
#include "support/switch_test.h"

#include "control/control.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_index.h"
#include "module/tarn_module.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstring>
#include <set>
#include <thread>

using ::testing::ElementsAre;

namespace {

class Database : public SwitchTest {
protected:
    // Deletes the port's record as a command does: marked, and the database's reference dropped.
    void drop_last(tarn_if *ifp) {
        ifp->if_flags |= TARN_IF_F_DELETED;
        _tarn_ifmgr_if_put(ifp);
    }
    static inline std::vector<tarn_if *> destroyed;
    static i32 destroy(tarn_if *ifp) {
        EXPECT_NE(ifp->if_flags & TARN_IF_F_VALID, 0u) << "cleared before the destructor ran";
        destroyed.push_back(ifp);
        return 0;
    }
};

TEST(BeforeStart, a_lookup_finds_nothing) {
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(5001), nullptr);
}

TEST(BeforeStart, an_install_is_refused) {
    tarn_if record{.ifindex = 1};
    tarn_if *out = nullptr;
    EXPECT_EQ(_tarn_ifmgr_if_install(&record, &out, false), TARN_ERR_BAD_ARG);
}

TEST(Start, fails_without_memory_and_leaves_nothing_behind) {
    tarn_avl_cache_init();
    auto before = userlevel::take_snapshot();
    for (u64 n : {1, 2}) {
        userlevel::fail_allocation(n);
        EXPECT_EQ(tarn_ifmgr_init(), TARN_ERR_INIT);
        EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before)), "");
        EXPECT_EQ(tarn_ifmgr_lookup_by_index(1), nullptr);
    }
    EXPECT_EQ(tarn_ifmgr_init(), 0);
    auto database = p_tarn_if_db;
    EXPECT_EQ(tarn_ifmgr_init(), 0); // a second time changes nothing
    EXPECT_EQ(p_tarn_if_db, database);
}

TEST_F(Database, a_lookup_takes_a_reference) {
    EXPECT_EQ(refcount_read(&port1()->refcnt), 1);
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(5001), port1());
    EXPECT_EQ(refcount_read(&port1()->refcnt), 2);
    tarn_ifmgr_if_ref_put(port1());
}

TEST_F(Database, a_lookup_of_what_is_not_there_finds_nothing) {
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(0), nullptr);
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(5002), nullptr);
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(0xFFFFFFFF), nullptr);
}

TEST_F(Database, a_vlan_has_its_vid_and_300_for_an_ifindex) {
    EXPECT_EQ(tarn_ifmgr_lookup_by_vid(1), vlan1());
    tarn_ifmgr_if_ref_put(vlan1());
    EXPECT_EQ(vlan1()->ifindex, 301u);
    tarn_if *none = add_vlan(0);
    EXPECT_EQ(none->ifindex, 300u);
    EXPECT_EQ(tarn_ifmgr_lookup_by_vid(0), none);
    tarn_ifmgr_if_ref_put(none);
}

TEST_F(Database, ifindexes_compare_unsigned) {
    tarn_if *high = configure([] {
        tarn_if *record = _tarn_ifmgr_if_alloc();
        record->ifindex = 0xFFFFFFF0;
        record->type = TARN_IF_TYPE_SWITCHPORT;
        tarn_if *out = nullptr;
        EXPECT_EQ(_tarn_ifmgr_if_install(record, &out, true), 0);
        return out;
    });
    tarn_avl_node *node = tarn_avl_first_node(p_tarn_if_db->tree);
    std::vector<u32> order;
    for (; node; node = tarn_avl_next_node(node))
        order.push_back(static_cast<tarn_if *>(node->info)->ifindex);
    EXPECT_THAT(order, ElementsAre(301, 5001, 0xFFFFFFF0));
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(0xFFFFFFF0), high);
    tarn_ifmgr_if_ref_put(high);
}

TEST_F(Database, holds_what_a_set_of_its_numbers_holds) {
    struct : Chance {
        // Neighbours, in every part of the range.
        u32 number() { return below(64) + (below(8) << 29); }
    } chance;
    std::set<u32> numbers{301, 5001};
    auto is_found = [](u32 ifindex) {
        tarn_if *found = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(found);
        return found && found->ifindex == ifindex;
    };
    for (u32 step = 0; step < 1000; step++) {
        u32 number = chance.number();
        ASSERT_EQ(is_found(number), numbers.contains(number)) << number;
        if (numbers.insert(number).second)
            configure([=] {
                tarn_if *record = _tarn_ifmgr_if_alloc(), *out = nullptr;
                record->ifindex = number;
                record->type = TARN_IF_TYPE_SWITCHPORT;
                EXPECT_EQ(_tarn_ifmgr_if_install(record, &out, true), 0);
            });
        ASSERT_TRUE(is_found(number)) << number;
    }
    std::vector<u32> order;
    for (tarn_avl_node *node = tarn_avl_first_node(p_tarn_if_db->tree); node;
         node = tarn_avl_next_node(node))
        order.push_back(static_cast<tarn_if *>(node->info)->ifindex);
    EXPECT_TRUE(std::ranges::equal(order, numbers));
    EXPECT_GT(numbers.size(), 300u);
}

TEST_F(Database, numbers_that_share_a_place_of_the_index_are_told_apart) {
    constexpr u32 OTHER = 5001 + TARN_IF_INDEX_PLACES;
    auto install = [this](u32 ifindex) {
        return configure([=] {
            tarn_if *record = _tarn_ifmgr_if_alloc();
            record->ifindex = ifindex;
            record->type = TARN_IF_TYPE_SWITCHPORT;
            tarn_if *out = nullptr;
            EXPECT_EQ(_tarn_ifmgr_if_install(record, &out, true), 0);
            return out;
        });
    };
    auto finds = [](u32 ifindex) {
        tarn_if *found = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(found);
        return found;
    };
    EXPECT_EQ(finds(OTHER), nullptr);
    tarn_if *other = install(OTHER);
    EXPECT_EQ(finds(OTHER), other);
    EXPECT_EQ(finds(5001), port1());

    // A record that takes the place of another is the one that is found.
    tarn_if *again = install(OTHER);
    EXPECT_EQ(finds(OTHER), again);
    EXPECT_EQ(finds(5001), port1());
    tarn_if *first_again = install(5001);
    EXPECT_EQ(finds(5001), first_again);
    EXPECT_EQ(finds(OTHER), again);
}

TEST_F(Database, a_deleted_record_is_not_found_but_its_holders_go_on) {
    tarn_if *held = tarn_ifmgr_lookup_by_index(5001);
    held->if_flags |= TARN_IF_F_DELETED;
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(5001), nullptr);
    EXPECT_STREQ(held->name, "port1");
    held->if_flags &= ~TARN_IF_F_DELETED;
    tarn_ifmgr_if_ref_put(held);
}

TEST_F(Database, a_record_that_is_not_valid_is_not_found) {
    port1()->if_flags &= ~TARN_IF_F_VALID;
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(5001), nullptr);
    port1()->if_flags |= TARN_IF_F_VALID;
}

TEST_F(Database, null_references_are_ignored) {
    tarn_ifmgr_if_ref_get(nullptr);
    tarn_ifmgr_if_ref_put(nullptr);
}

TEST_F(Database, references_are_taken_and_dropped) {
    tarn_ifmgr_if_ref_get(port1());
    _tarn_ifmgr_if_hold(port1());
    EXPECT_EQ(refcount_read(&port1()->refcnt), 3);
    tarn_ifmgr_if_ref_put(port1());
    _tarn_ifmgr_if_put(port1());
    EXPECT_EQ(refcount_read(&port1()->refcnt), 1);
}

TEST_F(Database, the_last_reference_runs_the_destructor_and_ends_the_record) {
    port1()->destructor = destroy;
    tarn_if *held = tarn_ifmgr_lookup_by_index(5001);
    drop_last(port1());
    EXPECT_TRUE(destroyed.empty()); // somebody holds it
    tarn_ifmgr_if_ref_put(held);
    EXPECT_THAT(destroyed, ElementsAre(port1()));
    EXPECT_EQ(port1()->if_flags & TARN_IF_F_VALID, 0u);
    EXPECT_EQ(refcount_read(&port1()->refcnt), 0);
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(5001), nullptr);
    remember();
}

TEST_F(Database, the_last_reference_of_a_record_not_deleted_is_an_error) {
    port1()->destructor = destroy;
    _tarn_ifmgr_if_put(port1());
    EXPECT_THAT(log(), ElementsAre("3 Invalid deletion of interface port1\n"));
    EXPECT_TRUE(destroyed.empty());
    EXPECT_EQ(refcount_read(&port1()->refcnt), 0);
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(5001), nullptr); // the count is 0
    remember();
}

TEST_F(Database, the_last_reference_of_a_record_not_valid_is_an_error) {
    port1()->destructor = destroy;
    port1()->if_flags &= ~TARN_IF_F_VALID;
    drop_last(port1());
    EXPECT_THAT(log(), ElementsAre("3 Invalid deletion of interface (not valid) port1\n"));
    EXPECT_TRUE(destroyed.empty());
    remember();
}

TEST_F(Database, a_name_that_fills_its_field_is_printed_whole) {
    std::memset(port1()->name, 'n', sizeof(port1()->name));
    _tarn_ifmgr_if_put(port1());
    EXPECT_THAT(log(),
                ElementsAre("3 Invalid deletion of interface " + std::string(16, 'n') + "\n"));
    remember();
}

TEST_F(Database, one_reference_too_many_dropped_is_reported) {
    port1()->destructor = destroy;
    drop_last(port1());
    _tarn_ifmgr_if_put(port1());
    EXPECT_THAT(log(), ElementsAre("4 refcount_t: underflow; use-after-free.\n"));
    EXPECT_EQ(destroyed.size(), 1u);
    remember();
}

TEST_F(Database, too_many_references_are_reported_and_saturate) {
    refcount_set(&port1()->refcnt, __INT32_MAX__);
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(5001), port1());
    EXPECT_THAT(log(), ElementsAre("4 refcount_t: saturated; leaking memory.\n"));
    refcount_set(&port1()->refcnt, __INT32_MAX__);
    tarn_ifmgr_if_ref_get(port1());
    EXPECT_THAT(log(), ElementsAre("4 refcount_t: saturated; leaking memory.\n"));
    refcount_set(&port1()->refcnt, 0);
    tarn_ifmgr_if_ref_get(port1());
    EXPECT_THAT(log(), ElementsAre("4 refcount_t: addition on 0; use-after-free.\n"));
    refcount_set(&port1()->refcnt, 1);
}

TEST_F(Database, a_record_without_destructor_stops_the_kernel) {
    port1()->destructor = nullptr;
    EXPECT_DEATH(drop_last(port1()), "kernel BUG at .*tarn_ifmgr.cc");
}

TEST_F(Database, an_install_wants_a_record_and_a_place_for_it) {
    tarn_if record{.ifindex = 9};
    tarn_if *out = nullptr;
    EXPECT_EQ(_tarn_ifmgr_if_install(nullptr, &out, false), TARN_ERR_BAD_ARG);
    EXPECT_EQ(_tarn_ifmgr_if_install(&record, nullptr, true), TARN_ERR_BAD_ARG);
}

TEST_F(Database, an_install_starts_a_record_by_its_type) {
    struct Row {
        u32 type, auth_state, stp_state;
    };
    u32 ifindex = 100;
    for (Row row : {Row{2, 3, 3}, Row{3, 3, 4}, Row{4, 1, 4}, Row{9, 1, 3}}) {
        configure([&] {
            tarn_if record{.ifindex = ifindex++, .type = row.type, .auth_state = 1};
            record.auth_guest_vlan = 5;
            record.guest_fwd_count = record.auth_fwd_count = 5;
            record.auth_arp_forward = record.stp_instance = 5;
            tarn_if *out = nullptr;
            ASSERT_EQ(_tarn_ifmgr_if_install(&record, &out, false), 0);
            EXPECT_NE(out, &record);
            EXPECT_EQ(out->auth_state, row.auth_state) << row.type;
            for (u32 state : out->stp_state)
                EXPECT_EQ(state, row.stp_state) << row.type;
            EXPECT_EQ(out->destructor != nullptr, row.type <= 4);
            EXPECT_EQ(refcount_read(&out->refcnt), 1);
            EXPECT_EQ(out->if_flags, TARN_IF_F_VALID);
            EXPECT_EQ(out->auth_guest_vlan, 0);
            EXPECT_EQ(out->guest_fwd_count, 0u);
            EXPECT_EQ(out->auth_fwd_count, 0);
            EXPECT_EQ(out->auth_arp_forward, 0);
            EXPECT_EQ(out->stp_instance, 0);
        });
    }
}

TEST_F(Database, an_install_reports_that_memory_ran_out) {
    tarn_if record{.ifindex = 100, .type = TARN_IF_TYPE_SWITCHPORT};
    tarn_if *out = nullptr;
    userlevel::fail_allocation(1); // the copy
    EXPECT_EQ(_tarn_ifmgr_if_install(&record, &out, false), TARN_ERR_NO_MEMORY);
    userlevel::fail_allocation(2); // its place in the tree
    EXPECT_EQ(_tarn_ifmgr_if_install(&record, &out, false), TARN_ERR_TREE_INSERT);
    tarn_if *mine = _tarn_ifmgr_if_alloc();
    mine->ifindex = 100;
    userlevel::fail_allocation(1);
    EXPECT_EQ(_tarn_ifmgr_if_install(mine, &out, true), TARN_ERR_TREE_INSERT);
    kfree(mine); // a template stays with the caller on failure
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(100), nullptr);
}

TEST_F(Database, a_copy_reuses_the_memory_of_a_destroyed_record) {
    port1()->destructor = destroy;
    drop_last(port1());
    remember();
    tarn_if record{.ifindex = 5001, .type = TARN_IF_TYPE_SWITCHPORT, .name = "again"};
    tarn_if *out = nullptr;
    EXPECT_EQ(_tarn_ifmgr_if_install(&record, &out, false), 0);
    EXPECT_EQ(out, port1());
    EXPECT_STREQ(out->name, "again");
    EXPECT_EQ(refcount_read(&out->refcnt), 1);
    remember();
}

TEST_F(Database, a_new_vlan_takes_the_place_of_a_destroyed_one) {
    vlan1()->destructor = destroy;
    drop_last(vlan1());
    tarn_if *again = plain_switch::add_vlan(1);
    EXPECT_EQ(tarn_ifmgr_lookup_by_vid(1), again);
    tarn_ifmgr_if_ref_put(again);
    remember();
    EXPECT_EQ(tarn_avl_get_tree_size(p_tarn_if_db->tree), 2u);
}

// The last reference goes on a packet path while a command makes the VLAN anew.
TEST_F(Database, a_creation_waits_for_a_destructor_that_runs) {
    static std::thread command;
    static std::atomic<tarn_if *> again;
    again = nullptr;
    vlan1()->destructor = [](tarn_if *) {
        command = std::thread([] { again = plain_switch::add_vlan(1); });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(again, nullptr);
        return 0;
    };
    drop_last(vlan1());
    command.join();
    remember();
    EXPECT_EQ(tarn_ifmgr_lookup_by_vid(1), again);
    tarn_ifmgr_if_ref_put(again);
}

// As one ends, so may another.
TEST_F(Database, a_destructor_may_drop_the_last_reference_of_another) {
    static tarn_if *other;
    other = vlan1();
    destroyed.clear();
    other->destructor = destroy;
    port1()->destructor = [](tarn_if *ifp) {
        other->if_flags |= TARN_IF_F_DELETED;
        tarn_ifmgr_if_ref_put(other);
        return destroy(ifp);
    };
    drop_last(port1());
    EXPECT_THAT(destroyed, ElementsAre(port1(), vlan1()));
    userlevel::work_run();
    EXPECT_EQ(destroyed.size(), 2u);
    remember();
}

TEST_F(Database, a_vlan_that_is_still_held_keeps_its_memory_when_replaced) {
    tarn_if *held = tarn_ifmgr_lookup_by_vid(1);
    tarn_if *again = plain_switch::add_vlan(1);
    remember();
    EXPECT_NE(again, held);
    EXPECT_STREQ(held->name, "vlan1"); // the sanitizer would say otherwise
    EXPECT_EQ(refcount_read(&held->refcnt), 2);
}

// Lookups must not grow with the number of interfaces, but with its logarithm. Counted, not timed:
// the database's tree is asked with a comparator that counts.
int comparisons = 0;
int counting_compare(const void *key, const void *info) {
    comparisons++;
    u32 wanted = *static_cast<const u32 *>(key);
    u32 there = *static_cast<const u32 *>(info);
    return wanted < there ? -1 : wanted > there;
}

TEST(ManyInterfaces, a_lookup_costs_the_logarithm) {
    tarn_avl_cache_init();
    ASSERT_EQ(_module_create_proc(), 0);
    ASSERT_EQ(tarn_ifmgr_init(), 0);
    u32 installed = 0;
    for (u32 count : {100u, 1000u, 10000u, 100000u}) {
        for (; installed < count; installed++) {
            tarn_if *record = _tarn_ifmgr_if_alloc();
            record->ifindex = installed * 7919 % 100003; // in no order
            record->type = TARN_IF_TYPE_SWITCHPORT;
            ASSERT_EQ(_tarn_ifmgr_if_install(record, &record, true), 0);
        }
        int (*real)(const void *, const void *) = p_tarn_if_db->tree->compare;
        p_tarn_if_db->tree->compare = counting_compare;
        int most = 0;
        for (u32 i = 0; i < count; i++) {
            comparisons = 0;
            tarn_if *found = tarn_ifmgr_lookup_by_index(i * 7919 % 100003);
            ASSERT_NE(found, nullptr);
            tarn_ifmgr_if_ref_put(found);
            most = std::max(most, comparisons);
        }
        p_tarn_if_db->tree->compare = real;
        EXPECT_LE(most, 1.44 * std::bit_width(count) + 1) << count << " interfaces";
    }
}

TEST(Threads, lookups_and_installs_beside_each_other) {
    ASSERT_EQ(init_module(), 0);
    for (u32 k = 1; k <= 8; k++)
        plain_switch::add_port(k);
    std::atomic<bool> stop = false;
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 2; reader++)
        readers.emplace_back([&] {
            while (!stop)
                for (u32 k = 1; k <= 16; k++)
                    tarn_ifmgr_if_ref_put(tarn_ifmgr_lookup_by_index(5000 + k));
        });
    for (u32 k = 9; k <= 300; k++)
        plain_switch::add_port(k);
    stop = true;
    for (std::thread &reader : readers)
        reader.join();
    for (u32 k = 1; k <= 300; k++) {
        tarn_if *port = tarn_ifmgr_lookup_by_index(5000 + k);
        ASSERT_NE(port, nullptr);
        EXPECT_EQ(refcount_read(&port->refcnt), 2);
    }
}

} // namespace
