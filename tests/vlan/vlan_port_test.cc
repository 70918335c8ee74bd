// VLAN membership: adding and removing, the bitmaps and the bindings in step.
#include "support/graph_test.h"

#include "vlan/vlan_bits.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr u32 NOBODY = 4242;
constexpr auto MISSING = "4 Failed to find ifpvlan for vid ";

class Membership : public GraphTest {
protected:
    tarn_if *port = port_with(77);
    tarn_if *v10 = vlan(10);

    std::vector<u32> member() { return vids_in(port->vlan_member_bmp); }
    std::vector<u32> tagged() { return vids_in(port->vlan_tagged_bmp); }
    std::vector<u32> disabled() { return vids_in(port->vlan_disabled_bmp); }

    i32 add(u32 ifindex, u32 vid, u32 tag = 0) {
        return configure([&] {
            i32 result = tarn_vlan_add_vlan_to_port(ifindex, vid, tag);
            settle();
            return result;
        });
    }
    i32 add_bulk(u32 ifindex, const Bitmap &bitmap, u32 tag = 0) {
        return configure([&] {
            i32 result = tarn_vlan_add_vlan_to_port_bulk(ifindex, bitmap.words, tag);
            settle();
            return result;
        });
    }
    i32 take(u32 ifindex, u32 vid) { return tarn_vlan_delete_vlan_from_port(ifindex, vid); }
    i32 take_bulk(u32 ifindex, const Bitmap &bitmap) {
        return tarn_vlan_delete_vlan_from_port_bulk(ifindex, bitmap.words);
    }
    std::vector<std::string> flushed() {
        std::vector<std::string> all;
        for (const auto &flush : userlevel::neigh_flushes_take())
            all.push_back(std::string(flush.table) + " " + std::to_string(flush.vid) + " " +
                          (flush.device ? netdev_name(flush.device) : "any") + " " +
                          std::to_string(flush.ifindex));
        return all;
    }
};

// --- adding
// ----------------------------------------------------------------------------------------

TEST_F(Membership, a_port_is_added_with_its_bit_and_its_binding) {
    u32 adds = vlan_port_adds;
    auto calls = seams::calls_of([&] { EXPECT_EQ(add(77, 10), 0); });
    EXPECT_THAT(calls, ElementsAre("bind vlan10 p77", "flags_set vlan10 0x1003"));
    EXPECT_THAT(member(), ElementsAre(10));
    EXPECT_THAT(tagged(), IsEmpty());
    EXPECT_EQ(tarn_ifmgr_isbound(v10, port), 1u);
    EXPECT_EQ(vlan_port_adds, adds + 1);
}

TEST_F(Membership, only_a_flag_of_1_makes_a_member_tagged) {
    for (u32 vid : {11u, 12u, 13u, 14u})
        vlan(vid);
    add(77, 10, 1);
    add(77, 11, 0);
    add(77, 12, 2);
    add(77, 13, 0xFFFFFFFF);
    add_bulk(77, {14}, 1);
    EXPECT_THAT(member(), ElementsAre(10, 11, 12, 13, 14));
    EXPECT_THAT(tagged(), ElementsAre(10, 14));
}

TEST_F(Membership, a_tagged_member_stays_tagged_until_it_is_deleted) {
    add(77, 10, 1);
    add(77, 10, 0);
    EXPECT_THAT(tagged(), ElementsAre(10));
    take(77, 10);
    EXPECT_THAT(tagged(), IsEmpty());
    add(77, 10, 0);
    EXPECT_THAT(tagged(), IsEmpty());
    add(77, 10, 1);
    EXPECT_THAT(tagged(), ElementsAre(10));
}

TEST_F(Membership, an_addition_is_counted_also_when_it_was_there) {
    u32 adds = vlan_port_adds;
    add(77, 10);
    auto calls = seams::calls_of([&] { add(77, 10); });
    EXPECT_THAT(calls, IsEmpty()); // not bound twice
    EXPECT_EQ(vlan_port_adds, adds + 2);
    take(77, 10);
    EXPECT_EQ(vlan_port_adds, adds + 2);
}

TEST_F(Membership, only_ports_are_added) {
    ethernet(78, "eth9");
    u32 adds = vlan_port_adds;
    for (u32 ifindex : {301u, 78u, NOBODY}) {
        EXPECT_EQ(add(ifindex, 10), -EINVAL);
        EXPECT_EQ(add_bulk(ifindex, {10}), -EINVAL);
        EXPECT_EQ(add_bulk(ifindex, {}), -EINVAL);
    }
    EXPECT_EQ(vlan_port_adds, adds);
}

TEST_F(Membership, a_vlan_without_an_interface_is_told_of_and_its_bits_are_set) {
    u32 adds = vlan_port_adds;
    EXPECT_EQ(add(77, 500, 1), 0);
    EXPECT_THAT(log(), ElementsAre(MISSING + std::string("500")));
    EXPECT_THAT(member(), ElementsAre(500));
    EXPECT_THAT(tagged(), ElementsAre(500));
    EXPECT_THAT(named_by(port->parents), IsEmpty());
    EXPECT_EQ(vlan_port_adds, adds + 1);
}

TEST_F(Membership, vids_0_and_4095_may_be_added_one_by_one) {
    EXPECT_EQ(add(77, 0), 0);
    EXPECT_EQ(add(77, 4095), 0);
    EXPECT_THAT(member(), ElementsAre(0, 4095));
    EXPECT_EQ(log().size(), 2u);
    EXPECT_EQ(take(77, 0), 0);
    EXPECT_EQ(take(77, 4095), 0);
    EXPECT_THAT(member(), IsEmpty());
    EXPECT_EQ(log().size(), 1u);
}

TEST_F(Membership, there_is_no_vid_above_4095) {
    u32 adds = vlan_port_adds;
    for (u32 vid : {4096u, 65535u, 0xFFFFFFFFu}) {
        EXPECT_EQ(add(77, vid, 1), -EINVAL);
        EXPECT_EQ(take(77, vid), -EINVAL);
    }
    EXPECT_EQ(vlan_port_adds, adds);
    EXPECT_THAT(member(), IsEmpty());
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Membership, a_bulk_walks_1_to_4094_upwards) {
    u32 adds = vlan_port_adds;
    EXPECT_EQ(add_bulk(77, {0, 1, 9, 10, 4094, 4095}, 1), 0);
    EXPECT_THAT(log(), ElementsAre(MISSING + std::string("9"), MISSING + std::string("4094")));
    EXPECT_THAT(member(), ElementsAre(1, 9, 10, 4094));
    EXPECT_THAT(tagged(), ElementsAre(1, 9, 10, 4094));
    EXPECT_THAT(named_by(port->parents), ElementsAre(v10, vlan1()));
    EXPECT_EQ(vlan_port_adds, adds + 4);
}

TEST_F(Membership, a_vlan_of_one_stack_member_takes_the_ports_that_the_stack_allows) {
    tarn_if *local = vlan(20, TARN_VLAN_OPTION_LOCAL);
    u32 adds = vlan_port_adds;
    seams::ifmgr().refuse_local_members = true;
    auto calls = seams::calls_of([&] { EXPECT_EQ(add_bulk(77, {10, 20, 21}, 1), 0); });
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "local_member_allowed p77"), 1);
    forget_log();
    EXPECT_THAT(member(), ElementsAre(10, 21)); // the others are not asked for
    EXPECT_THAT(tagged(), ElementsAre(10, 21));
    EXPECT_EQ(vlan_port_adds, adds + 2);
    EXPECT_FALSE(tarn_ifmgr_isbound(local, port));
    EXPECT_EQ(refcount_read(&local->refcnt), 1);

    seams::ifmgr().refuse_local_members = false;
    EXPECT_EQ(add(77, 20), 0);
    EXPECT_THAT(member(), ElementsAre(10, 20, 21));
    EXPECT_TRUE(tarn_ifmgr_isbound(local, port));
}

TEST_F(Membership, a_member_of_an_aggregator_has_the_bits_and_the_aggregator_the_binding) {
    tarn_if *lag = aggregator(7001);
    attach(lag, port);
    EXPECT_EQ(add(77, 10, 1), 0);
    EXPECT_THAT(named_by(port->parents), ElementsAre(lag));
    EXPECT_THAT(named_by(v10->children), ElementsAre(lag));
    EXPECT_THAT(member(), ElementsAre(10));
    EXPECT_THAT(tagged(), ElementsAre(10));
    EXPECT_FALSE(tarn_vlan_port_member_check(lag, 10));
    tarn_if *other = port_with(78);
    attach(lag, other);
    EXPECT_EQ(add(78, 10), 0); // bound already
    EXPECT_THAT(named_by(v10->children), ElementsAre(lag));
}

TEST_F(Membership, only_the_first_parent_makes_a_port_a_member_of_an_aggregator) {
    tarn_if *lag = aggregator(7001);
    bind(lag, port);
    bind(vlan1(), port); // stands first
    EXPECT_EQ(add(77, 10), 0);
    EXPECT_TRUE(tarn_ifmgr_isbound(v10, port));
    EXPECT_FALSE(tarn_ifmgr_isbound(v10, lag));
}

TEST_F(Membership, the_bits_of_an_aggregator_are_its_own) {
    tarn_if *lag = aggregator(7001);
    attach(lag, port);
    EXPECT_EQ(add(7001, 10), 0);
    EXPECT_THAT(vids_in(lag->vlan_member_bmp), ElementsAre(10));
    EXPECT_THAT(member(), IsEmpty());
    EXPECT_TRUE(tarn_ifmgr_isbound(v10, lag));
}

TEST_F(Membership, without_memory_for_the_binding_the_bits_are_set) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_vlan_add_vlan_to_port(77, 10, 0), 0);
    EXPECT_THAT(member(), ElementsAre(10));
    EXPECT_FALSE(tarn_ifmgr_isbound(v10, port));
}

// --- removing
// --------------------------------------------------------------------------------------

TEST_F(Membership, a_port_is_removed_with_all_its_bits_its_binding_and_what_was_learned) {
    add(77, 10, 1);
    tarn_vlan_set_vlan_port_disabled(77, 10, 1);
    flushed();
    auto calls = seams::calls_of([&] { EXPECT_EQ(take(77, 10), 0); });
    EXPECT_THAT(calls, ElementsAre("unbind vlan10 p77", "flags_set vlan10 0x1003"));
    EXPECT_THAT(flushed(), ElementsAre("arp -1 vlan10 77", "ndisc -1 vlan10 77"));
    EXPECT_THAT(member(), IsEmpty());
    EXPECT_THAT(tagged(), IsEmpty());
    EXPECT_THAT(disabled(), IsEmpty());
    EXPECT_FALSE(tarn_ifmgr_isbound(v10, port));
}

TEST_F(Membership, a_vid_that_is_no_membership_is_unbound_and_flushed_all_the_same) {
    bind(v10, port); // a binding without its bit
    tarn_vlan_set_vlan_port_disabled(77, 10, 1);
    flushed();
    EXPECT_EQ(take(77, 10), 0);
    EXPECT_FALSE(tarn_ifmgr_isbound(v10, port));
    EXPECT_THAT(disabled(), IsEmpty());
    EXPECT_EQ(flushed().size(), 2u);
    auto calls = seams::calls_of([&] { EXPECT_EQ(take(77, 10), 0); }); // nor even a binding
    EXPECT_THAT(calls, ElementsAre("unbind vlan10 p77"));
    EXPECT_EQ(flushed().size(), 2u);
}

TEST_F(Membership, a_vlan_without_an_interface_is_told_of_once_and_cleared) {
    add(77, 500, 1);
    add(77, 501);
    tarn_vlan_set_vlan_port_disabled(77, 500, 1);
    forget_log();
    EXPECT_EQ(take(77, 500), 0);
    EXPECT_THAT(log(), ElementsAre("3 Failed to find vlan500 when removing from p77\n"));
    EXPECT_THAT(member(), ElementsAre(501));
    EXPECT_THAT(tagged(), IsEmpty());
    EXPECT_THAT(disabled(), IsEmpty());
    EXPECT_EQ(take(77, 501), 0);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(member(), IsEmpty());
    EXPECT_THAT(flushed(), IsEmpty());
}

TEST_F(Membership, a_vlan_without_interface_and_membership_changes_nothing) {
    vlan_bit_write(port->vlan_tagged_bmp, 500, true);
    tarn_vlan_set_vlan_port_disabled(77, 500, 1);
    EXPECT_EQ(take(77, 500), 0);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(tagged(), ElementsAre(500));
    EXPECT_THAT(disabled(), ElementsAre(500));
}

TEST_F(Membership, only_ports_are_removed) {
    ethernet(78, "eth9");
    for (u32 ifindex : {301u, 78u}) {
        EXPECT_EQ(take(ifindex, 10), -EINVAL);
        EXPECT_EQ(take_bulk(ifindex, {10}), -EINVAL);
        EXPECT_EQ(take_bulk(ifindex, {}), -EINVAL);
    }
    EXPECT_EQ(tarn_vlan_delete_vlan_from_port_all(vlan1()), -EINVAL);
    EXPECT_THAT(flushed(), IsEmpty());
}

TEST_F(Membership, an_unknown_port_is_an_error_for_one_and_none_for_many) {
    EXPECT_EQ(take(NOBODY, 10), -EINVAL);
    EXPECT_EQ(take_bulk(NOBODY, {10}), 0);
}

TEST_F(Membership, a_bulk_removes_from_4094_down_to_1) {
    vlan(11);
    add_bulk(77, {1, 10, 11, 4094});
    add(77, 0);
    add(77, 4095);
    forget_log();
    flushed();
    auto calls = seams::calls_of([&] { EXPECT_EQ(take_bulk(77, {0, 10, 11, 4094, 4095}), 0); });
    EXPECT_THAT(calls, ElementsAre("unbind vlan11 p77", "flags_set vlan11 0x1003",
                                   "unbind vlan10 p77", "flags_set vlan10 0x1003"));
    EXPECT_THAT(flushed(), ElementsAre("arp -1 vlan11 77", "ndisc -1 vlan11 77", "arp -1 vlan10 77",
                                       "ndisc -1 vlan10 77"));
    EXPECT_THAT(member(), ElementsAre(0, 1, 4095));
    EXPECT_THAT(log(), ElementsAre("3 Failed to find vlan4094 when removing from p77\n"));
}

TEST_F(Membership, a_port_leaves_all_its_vlans_with_one_flush) {
    vlan(11);
    vlan(4094);
    add_bulk(77, {1, 10, 11, 4094}, 1);
    add(77, 0);
    add(77, 4095);
    forget_log();
    flushed();
    EXPECT_EQ(tarn_vlan_delete_vlan_from_port_all(port), 0);
    EXPECT_THAT(flushed(), ElementsAre("arp -1 any 77", "ndisc -1 any 77"));
    EXPECT_THAT(member(), ElementsAre(0, 4095));
    EXPECT_THAT(tagged(), IsEmpty());
    EXPECT_THAT(named_by(port->parents), IsEmpty());
}

// The bind lies at the aggregator: it stays, and the bits of the port go.
TEST_F(Membership, a_member_of_an_aggregator_is_removed_by_its_bits_alone) {
    tarn_if *lag = aggregator(7001);
    attach(lag, port);
    add(77, 10);
    EXPECT_EQ(take(77, 10), 0);
    EXPECT_THAT(member(), IsEmpty());
    EXPECT_TRUE(tarn_ifmgr_isbound(v10, lag));
}

TEST_F(Membership, one_membership_is_ended_with_or_without_a_flush) {
    EXPECT_EQ(tarn_vlan_unbind_vlan_from_port(nullptr, port, 1), -EINVAL);
    EXPECT_EQ(tarn_vlan_unbind_vlan_from_port(v10, nullptr, 1), -EINVAL);
    EXPECT_THAT(flushed(), IsEmpty());
    add(77, 10, 1);
    EXPECT_EQ(tarn_vlan_unbind_vlan_from_port(v10, port, 0), 0);
    EXPECT_THAT(flushed(), IsEmpty());
    EXPECT_THAT(member(), IsEmpty());
    // What was learned goes before the binding does.
    add(77, 10);
    bool bound = false;
    seams::ifmgr().on_flags_set = [&] { bound = !userlevel::neigh_flushes_take().empty(); };
    EXPECT_EQ(tarn_vlan_unbind_vlan_from_port(v10, port, 1), 0);
    EXPECT_TRUE(bound);
}

TEST_F(Membership, the_bits_go_also_when_the_binding_cannot) {
    add(77, 10, 1);
    seams::ifmgr().unbind_result = TARN_ERR_WRONG_TYPE;
    EXPECT_EQ(tarn_vlan_unbind_vlan_from_port(v10, port, 0), TARN_ERR_WRONG_TYPE);
    EXPECT_THAT(member(), IsEmpty());
    EXPECT_EQ(take(77, 10), 0); // the step itself never fails
}

// --- with aggregators
// ------------------------------------------------------------------------------

TEST_F(Membership, moving_bindings_wants_both) {
    for (u32 attach_flag : {0u, 1u}) {
        EXPECT_EQ(tarn_vlan_agg_port_bind_update(nullptr, port, attach_flag), -EINVAL);
        EXPECT_EQ(tarn_vlan_agg_port_bind_update(port, nullptr, attach_flag), -EINVAL);
    }
    EXPECT_EQ(tarn_vlan_agg_unbind(nullptr), -EINVAL);
}

TEST_F(Membership, bindings_move_up_one_by_one_and_parents_that_are_no_vlan_stay) {
    tarn_if *lag = aggregator(7001), *v11 = vlan(11), *eth = ethernet(78, "eth9");
    add(77, 10);
    add(77, 11);
    bind(eth, port);
    bind(lag, port);
    bind(v11, lag);
    auto calls =
        seams::calls_of([&] { EXPECT_EQ(tarn_vlan_agg_port_bind_update(port, lag, 9), 0); });
    EXPECT_THAT(calls,
                ElementsAre("agg_port_bind_update p77 lag7001 9", "unbind vlan11 p77",
                            "unbind vlan10 p77", "flags_set vlan10 0x1003", "bind vlan10 lag7001"));
    remember();
    EXPECT_THAT(named_by(port->parents), ElementsAre(lag, eth));
    EXPECT_THAT(named_by(v11->children), ElementsAre(lag)); // not bound twice
    EXPECT_THAT(named_by(v10->children), ElementsAre(lag));
}

TEST_F(Membership, bindings_are_copied_down_and_parents_that_are_no_vlan_are_not) {
    tarn_if *lag = aggregator(7001), *top = aggregator(7002), *v11 = vlan(11);
    bind(lag, port);
    bind(v10, lag);
    bind(top, lag);
    bind(v11, lag);
    auto calls =
        seams::calls_of([&] { EXPECT_EQ(tarn_vlan_agg_port_bind_update(port, lag, 0), 0); });
    EXPECT_THAT(calls, ElementsAre("agg_port_bind_update p77 lag7001 0", "bind vlan11 p77",
                                   "bind vlan10 p77"));
    EXPECT_THAT(named_by(port->parents), ElementsAre(v10, v11, lag));
    EXPECT_THAT(named_by(lag->parents), ElementsAre(v11, top, v10));
    remember();
}

TEST_F(Membership, whoever_leaves_without_being_a_member_is_bound_once_however_often) {
    tarn_if *one = aggregator(7001), *other = aggregator(7002), *v11 = vlan(11);
    bind(one, port);
    bind(other, port_with(78));
    bind(v10, one);
    bind(v11, other);
    for (u32 turn = 0; turn < 40; turn++) {
        EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(one, one), 0);
        EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(one, other), 0);
        EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(other, one), 0);
    }
    EXPECT_THAT(named_by(one->parents), ElementsAre(v11, v10));
    EXPECT_THAT(named_by(other->parents), ElementsAre(v10, v11));
    settle();
    remember();
}

TEST_F(Membership, an_aggregator_leaves_all_vlans_and_nothing_else) {
    tarn_if *lag = aggregator(7001), *top = aggregator(7002), *v11 = vlan(11);
    bind(v10, lag);
    bind(top, lag);
    bind(v11, lag);
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_vlan_agg_unbind(lag), 0); });
    EXPECT_THAT(calls, ElementsAre("agg_unbind lag7001", "unbind vlan11 lag7001",
                                   "flags_set vlan11 0x1003", "unbind vlan10 lag7001",
                                   "flags_set vlan10 0x1003"));
    EXPECT_THAT(named_by(lag->parents), ElementsAre(top));
}

} // namespace
