// Ports into and out of aggregators.
#include "support/graph_test.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr u32 NOBODY = 4242;

class Aggregator : public GraphTest {
protected:
    tarn_if *lag = aggregator(7001);

    i32 attach_result(u32 agg, u32 port) {
        i32 result = tarn_ifmgr_aggregator_port_attach(agg, port);
        settle();
        return result;
    }
    void detach(tarn_if *port) {
        EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(lag, port), 0);
        settle();
    }
};

TEST_F(Aggregator, both_ends_must_be_there) {
    EXPECT_EQ(attach_result(7001, NOBODY), -EINVAL);
    EXPECT_EQ(attach_result(NOBODY, 5001), -EINVAL);
    EXPECT_EQ(attach_result(NOBODY, NOBODY), -EINVAL);
    EXPECT_EQ(lag->children, nullptr);
}

TEST_F(Aggregator, both_ends_must_be_of_one_type) {
    ethernet(78, "eth9");
    EXPECT_EQ(attach_result(7001, 78), -EINVAL);
    EXPECT_EQ(attach_result(7001, 301), -EINVAL);
    EXPECT_EQ(attach_result(301, 5001), -EINVAL);
    EXPECT_EQ(lag->flags, 0u);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Aggregator, a_port_joins_step_by_step) {
    tarn_if *port = port_with(77, LINK);
    lag->openflow = 9;
    auto calls = seams::calls_of([&] { attach(lag, port); });
    EXPECT_THAT(calls, ElementsAre("bind lag7001 p77", "on_bind lag7001",
                                   "agg_port_bind_update p77 lag7001 1"));
    EXPECT_EQ(tarn_ifmgr_isbound(lag, port), 1u);
    EXPECT_EQ(port->openflow, 9);
    EXPECT_EQ(lag->flags, LINK);
    EXPECT_EQ(lag->oper_count, 1);
    EXPECT_EQ(tarn_ifmgr_logical_port(port), lag);
}

TEST_F(Aggregator, that_is_down_stays_down_with_its_first_port) {
    lag->flags = 0xFF00;
    attach(lag, port_with(77, 0x1002));
    EXPECT_EQ(lag->flags, 0x1002u);
}

TEST_F(Aggregator, the_first_port_lends_its_flags_but_not_up) {
    lag->flags = 0xFF01;
    attach(lag, port_with(77, 0x1002));
    EXPECT_EQ(lag->flags, 0x1003u);
    attach(lag, port_with(78, 0x1102));
    EXPECT_EQ(lag->flags, 0x1003u);
}

TEST_F(Aggregator, a_port_that_is_in_it_already_changes_nothing) {
    tarn_if *port = port_with(77, LINK);
    attach(lag, port);
    lag->openflow = 9;
    auto calls = seams::calls_of([&] { EXPECT_EQ(attach_result(7001, 77), 0); });
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(port->openflow, 0);
    EXPECT_EQ(lag->oper_count, 1);
    EXPECT_EQ(refcount_read(&port->refcnt), 1); // both references are dropped
    EXPECT_EQ(refcount_read(&lag->refcnt), 1);
}

TEST_F(Aggregator, a_port_that_cannot_join_is_told_of) {
    tarn_if *port = port_with(77, LINK);
    tarn_ifmgr_l3_switchport_set(77, 9);
    EXPECT_EQ(attach_result(7001, 77), TARN_ERR_WRONG_TYPE);
    EXPECT_THAT(log(), ElementsAre("3 Failed to bind port p77 to trunk lag7001, error = -204\n"));
    EXPECT_EQ(lag->flags, LINK); // taken before
    tarn_ifmgr_l3_switchport_set(77, 0);
    userlevel::fail_allocation(2); // the first is the file "members"
    EXPECT_EQ(attach_result(7001, 77), TARN_ERR_NO_MEMORY);
    EXPECT_THAT(log(), ElementsAre("3 Failed to bind port p77 to trunk lag7001, error = -205\n"));
    EXPECT_EQ(port->parents, nullptr);
    EXPECT_EQ(refcount_read(&port->refcnt), 1);
    EXPECT_EQ(refcount_read(&lag->refcnt), 1);
    remember(); // that file stays
}

TEST_F(Aggregator, the_vlans_of_a_port_move_up) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *port = port_with(77, LINK);
    add_member(port, 10, 1);
    add_member(port, 11);
    auto calls = seams::calls_of([&] { attach(lag, port); });
    EXPECT_THAT(named_by(port->parents), ElementsAre(lag));
    EXPECT_THAT(named_by(v10->children), ElementsAre(lag));
    EXPECT_THAT(named_by(v11->children), ElementsAre(lag));
    EXPECT_TRUE(tarn_vlan_port_member_check(port, 10)); // the bits stay where they are
    EXPECT_TRUE(tarn_vlan_egress_tagged(port, 10));
    EXPECT_FALSE(tarn_vlan_port_member_check(lag, 10));
    EXPECT_EQ(v10->oper_count, 1);
    EXPECT_EQ(count_problems(), "");
    EXPECT_NE(dev_get_flags(v10->netdev) & IFF_RUNNING, 0u);
}

TEST_F(Aggregator, a_vlan_that_it_has_already_is_not_bound_twice) {
    tarn_if *v10 = vlan(10), *a = port_with(77, LINK), *b = port_with(78, LINK);
    add_member(a, 10);
    add_member(b, 10);
    attach(lag, a);
    attach(lag, b);
    EXPECT_THAT(named_by(v10->children), ElementsAre(lag));
    EXPECT_EQ(v10->oper_count, 2);
}

TEST_F(Aggregator, a_port_that_leaves_takes_a_copy_of_the_vlans_along) {
    tarn_if *v10 = vlan(10), *a = port_with(77, LINK), *b = port_with(78, LINK);
    add_member(a, 10);
    attach(lag, a);
    attach(lag, b);
    auto calls = seams::calls_of([&] { detach(b); });
    EXPECT_THAT(calls, ElementsAre("agg_port_bind_update p78 lag7001 0", "bind vlan10 p78",
                                   "unbind lag7001 p78"));
    EXPECT_THAT(named_by(v10->children), ElementsAre(b, lag));
    EXPECT_THAT(named_by(lag->children), ElementsAre(a));
    EXPECT_EQ(v10->oper_count, 2);
    EXPECT_FALSE(tarn_vlan_port_member_check(b, 10)); // the bit is where it was set
    EXPECT_EQ(count_problems(), "");
    remember();
}

TEST_F(Aggregator, the_last_port_leaves_it_without_vlans) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *port = port_with(77, LINK);
    add_member(port, 10);
    add_member(port, 11);
    attach(lag, port);
    auto calls = seams::calls_of([&] { detach(port); });
    EXPECT_THAT(calls, ElementsAre("agg_port_bind_update p77 lag7001 0", "bind vlan10 p77",
                                   "bind vlan11 p77", "unbind lag7001 p77", "on_unbind lag7001",
                                   "agg_unbind lag7001", "unbind vlan10 lag7001",
                                   "unbind vlan11 lag7001"));
    EXPECT_THAT(named_by(v10->children), ElementsAre(port));
    EXPECT_THAT(named_by(v11->children), ElementsAre(port));
    EXPECT_EQ(lag->parents, nullptr);
    EXPECT_EQ(lag->children, nullptr);
    EXPECT_EQ(lag->oper_count, 0);
    EXPECT_EQ(v10->oper_count, 1);
    EXPECT_NE(dev_get_flags(v10->netdev) & IFF_RUNNING, 0u);
    remember();
}

TEST_F(Aggregator, leaving_wants_both_of_one_type) {
    EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(nullptr, port1()), -EINVAL);
    EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(lag, nullptr), -EINVAL);
    EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(lag, vlan1()), TARN_ERR_TYPE_MISMATCH);
    EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(vlan1(), port1()), TARN_ERR_TYPE_MISMATCH);
}

TEST_F(Aggregator, a_port_that_cannot_leave_is_told_by_the_result) {
    tarn_if *port = port_with(77, LINK);
    attach(lag, port);
    tarn_ifmgr_l3_switchport_set(77, 9);
    auto calls = seams::calls_of(
        [&] { EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(lag, port), TARN_ERR_WRONG_TYPE); });
    EXPECT_THAT(calls, ElementsAre("agg_port_bind_update p77 lag7001 0", "unbind lag7001 p77"));
    EXPECT_TRUE(lag->children != nullptr);
    tarn_ifmgr_l3_switchport_set(77, 0);
}

// What leaves need never have joined, on purpose.
TEST_F(Aggregator, a_port_that_was_not_in_it_gets_its_vlans_all_the_same) {
    tarn_if *v10 = vlan(10), *a = port_with(77), *b = port_with(78);
    add_member(a, 10);
    attach(lag, a);
    detach(b);
    EXPECT_THAT(named_by(v10->children), ElementsAre(b, lag));
    EXPECT_THAT(named_by(lag->children), ElementsAre(a));
    remember();
}

} // namespace
