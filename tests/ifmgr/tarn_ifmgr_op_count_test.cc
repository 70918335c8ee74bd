// The operational count, and the deferred work that its edges produce.
#include "support/graph_test.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class OpCount : public GraphTest {
protected:
    void raise(tarn_if *ifp, u32 delta = 1) {
        EXPECT_EQ(_tarn_ifmgr_op_count_post(ifp, TARN_OP_RAISE, delta), 0);
    }
    void lower(tarn_if *ifp, u32 delta = 1) {
        EXPECT_EQ(_tarn_ifmgr_op_count_post(ifp, TARN_OP_LOWER, delta), 0);
    }
    bool runs(const tarn_if *ifp) { return ifp->flags & IFF_RUNNING; }
};

TEST_F(OpCount, nothing_can_be_counted_on_no_interface) {
    EXPECT_EQ(_tarn_ifmgr_op_count_post(nullptr, TARN_OP_RAISE, 1), TARN_ERR_BAD_ARG);
    EXPECT_THAT(log(), ElementsAre("3 Failed to update op count ret -201\n"));
    EXPECT_FALSE(update_data.work.queued);
}

TEST_F(OpCount, no_interface_is_asked_for_before_nothing_to_count) {
    EXPECT_EQ(_tarn_ifmgr_op_count_post(nullptr, TARN_OP_LOWER, 0), TARN_ERR_BAD_ARG);
    forget_log();
}

TEST_F(OpCount, counting_nothing_changes_nothing_but_still_queues_the_work) {
    tarn_if *port = port_with(77);
    raise(port, 0);
    EXPECT_EQ(port->oper_count, 0);
    EXPECT_FALSE(runs(port));
    EXPECT_THAT(waiting(), IsEmpty());
    EXPECT_TRUE(update_data.work.queued);
}

struct Row {
    u32 op;
    u32 before, delta, after;
    bool ran, runs, queued;
    u32 if_flags = 0;
};
class Update : public GraphTest, public ::testing::WithParamInterface<Row> {};

TEST_P(Update, only_the_edges_change_running_and_queue) {
    Row row = GetParam();
    tarn_if *port = port_with(77, row.ran ? 0x40 : 0);
    port->oper_count = static_cast<u8>(row.before);
    port->if_flags |= row.if_flags;
    EXPECT_EQ(_tarn_ifmgr_op_count_post(port, row.op, row.delta), 0);
    EXPECT_EQ(port->oper_count, row.after);
    EXPECT_EQ(port->flags, row.runs ? 0x40u : 0u);
    EXPECT_EQ(waiting().size(), row.queued ? 1u : 0u);
    EXPECT_EQ(refcount_read(&port->refcnt), row.queued ? 2 : 1);
    settle();
    EXPECT_EQ(refcount_read(&port->refcnt), 1);
}

constexpr u32 UP = TARN_OP_RAISE, LOW = TARN_OP_LOWER, ANY = 7;
constexpr u32 DYNAMIC = TARN_IF_F_AGG_DYNAMIC, STATIC = TARN_IF_F_AGG_STATIC,
              ALWAYS = TARN_IF_F_ALWAYS_UP;
INSTANTIATE_TEST_SUITE_P(
    Rows, Update,
    ::testing::Values(
        // op, before, delta, after, ran, runs, queued
        Row{UP, 0, 1, 1, false, true, true},           // the edge from 0
        Row{UP, 0, 3, 3, false, true, true},           //
        Row{UP, 1, 1, 2, false, false, false},         // no edge
        Row{UP, 2, 2, 4, true, true, false},           //
        Row{UP, 255, 1, 0, true, true, false},         // a byte wraps
        Row{UP, 250, 10, 4, false, false, false},      //
        Row{UP, 0, 256, 0, false, false, false},       // the sum is not the delta
        Row{UP, 0, 1, 1, false, false, true, DYNAMIC}, // runs when told so, and is queued
        Row{UP, 0, 1, 1, true, true, true, DYNAMIC},   //
        Row{UP, 0, 1, 1, false, true, true, STATIC},   //
        Row{UP, 0, 1, 1, false, true, true, ALWAYS},   //
        Row{ANY, 0, 1, 1, false, true, true},          // whatever is no lowering raises
        Row{LOW, 3, 1, 2, true, true, false},          // no edge
        Row{LOW, 1, 1, 0, true, false, true},          // the edge to 0
        Row{LOW, 3, 3, 0, true, false, true},          //
        Row{LOW, 1, 2, 0, true, false, true},          // never below
        Row{LOW, 0, 1, 0, true, false, true},          // and from 0 again
        Row{LOW, 0, 300, 0, false, false, true},       //
        Row{LOW, 1, 1, 0, true, true, false, ALWAYS},  // runs without running ports
        Row{LOW, 2, 1, 1, true, true, false, ALWAYS},  //
        Row{LOW, 1, 1, 0, true, false, true, DYNAMIC}));

TEST_F(OpCount, all_above_count_each_once_for_each_way_up) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *lag = aggregator(7001), *port = port_with(77);
    bind(v10, lag);
    bind(v11, lag);
    bind(lag, port);
    bind(v11, port);
    raise(port);
    EXPECT_EQ(port->oper_count, 1);
    EXPECT_EQ(lag->oper_count, 1);
    EXPECT_EQ(v10->oper_count, 1);
    EXPECT_EQ(v11->oper_count, 2);
    port->flags = LINK;
    EXPECT_EQ(count_problems(), "");
}

// The batch is built at its head.
TEST_F(OpCount, what_was_reached_last_is_updated_first) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *lag = aggregator(7001), *port = port_with(77);
    bind(v10, lag);
    bind(v11, lag); // first on the list
    bind(lag, port);
    raise(port);
    EXPECT_THAT(waiting(), ElementsAre(v10, v11, lag, port));
}

TEST_F(OpCount, batches_wait_in_the_order_in_which_they_came) {
    tarn_if *v10 = vlan(10), *a = port_with(77), *b = port_with(78);
    bind(v10, a);
    raise(b);
    raise(a);
    lower(b);
    EXPECT_THAT(waiting(), ElementsAre(b, v10, a, b));
    EXPECT_EQ(refcount_read(&b->refcnt), 3);
}

TEST_F(OpCount, a_lost_node_loses_one_update_and_not_the_walk) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *lag = aggregator(7001), *port = port_with(77);
    bind(v10, lag);
    bind(v11, lag);
    bind(lag, port);
    userlevel::fail_allocation(3); // v11's
    raise(port);
    EXPECT_THAT(waiting(), ElementsAre(v10, lag, port));
    EXPECT_EQ(v11->oper_count, 1);
    EXPECT_TRUE(runs(v11));
    EXPECT_EQ(refcount_read(&v11->refcnt), 1);
    EXPECT_EQ(v10->oper_count, 1);
}

TEST_F(OpCount, nodes_are_asked_for_without_sleeping) {
    tarn_if *port = port_with(77);
    auto before = userlevel::take_snapshot();
    raise(port);
    auto nodes = userlevel::leaked_since(before);
    ASSERT_EQ(nodes.size(), 1u);
    EXPECT_STREQ(nodes[0].kind, "ifmgr_free_list");
    EXPECT_EQ(nodes[0].flags, GFP_ATOMIC);
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), 0u);
}

TEST_F(OpCount, a_record_whose_count_of_references_is_0_is_counted_and_not_queued) {
    tarn_if *port = port_with(77);
    refcount_set(&port->refcnt, 0);
    raise(port);
    EXPECT_EQ(port->oper_count, 1);
    EXPECT_THAT(waiting(), IsEmpty());
    EXPECT_THAT(log(), IsEmpty());
    refcount_set(&port->refcnt, 1);
}

// --- the work ------------------------------------------------------------------------------------

TEST_F(OpCount, the_work_tells_the_devices_of_vlans_alone) {
    tarn_if *v10 = vlan(10), *lag = aggregator(7001), *port = port_with(77, 0x3, 1);
    tarn_if *eth = ethernet(78, "eth9");
    bind(v10, lag);
    bind(lag, port);
    bind(eth, lag);
    raise(port);
    EXPECT_THAT(waiting(), ::testing::UnorderedElementsAre(v10, lag, port, eth));
    auto calls = seams::calls_of([&] { settle(); });
    EXPECT_THAT(calls, ElementsAre("flags_set vlan10 0x40"));
    EXPECT_THAT(waiting(), IsEmpty());
    lower(port);
    calls = seams::calls_of([&] { settle(); });
    EXPECT_THAT(calls, ElementsAre("flags_unset vlan10 0x40"));
    for (tarn_if *ifp : {v10, lag, port, eth})
        EXPECT_EQ(refcount_read(&ifp->refcnt), 1);
}

TEST_F(OpCount, a_flap_settles_on_the_last_state_once_for_each_node) {
    tarn_if *v10 = vlan(10), *port = port_with(77);
    bind(v10, port);
    set_flags(port, LINK);
    set_flags(port, NO_LINK);
    set_flags(port, LINK);
    set_flags(port, NO_LINK);
    EXPECT_EQ(waiting().size(), 8u);
    auto calls = seams::calls_of([&] { settle(); });
    EXPECT_THAT(calls, ElementsAre("flags_unset vlan10 0x40", "flags_unset vlan10 0x40",
                                   "flags_unset vlan10 0x40", "flags_unset vlan10 0x40"));
    EXPECT_EQ(dev_get_flags(v10->netdev) & IFF_RUNNING, 0u);

    set_flags(port, LINK);
    set_flags(port, NO_LINK);
    set_flags(port, LINK);
    calls = seams::calls_of([&] { settle(); });
    EXPECT_THAT(calls, ElementsAre("flags_set vlan10 0x40", "flags_set vlan10 0x40",
                                   "flags_set vlan10 0x40"));
    EXPECT_NE(v10->flags & IFF_RUNNING, 0u);
}

TEST_F(OpCount, the_work_is_queued_once_however_much_waits) {
    tarn_if *port = port_with(77);
    raise(port);
    lower(port);
    raise(port);
    EXPECT_EQ(settle(), 1u);
    EXPECT_EQ(settle(), 0u);
}

TEST_F(OpCount, what_is_queued_while_the_work_runs_waits_for_its_next_run) {
    tarn_if *v10 = vlan(10), *a = port_with(77), *b = port_with(78);
    bind(v10, a);
    raise(a);
    bool once = true;
    u32 queued = 0;
    seams::ifmgr().on_flags_set = [&] {
        if (!std::exchange(once, false))
            return;
        raise(b); // the lock is free, and the list is the work's own
        queued = static_cast<u32>(waiting().size());
    };
    settle();
    EXPECT_EQ(queued, 1u);
    EXPECT_THAT(waiting(), IsEmpty());
    EXPECT_EQ(refcount_read(&b->refcnt), 1);
}

TEST_F(OpCount, a_vlan_deleted_while_it_waits_ends_with_its_last_node) {
    tarn_if *v10 = vlan(10), *port = port_with(77, LINK);
    bind(v10, port);
    set_flags(port, NO_LINK);
    set_flags(port, LINK); // two nodes each
    tarn_if *found = tarn_ifmgr_lookup_by_index(310);
    tarn_ifmgr_delete_interface(found);
    tarn_ifmgr_if_ref_put(found);
    EXPECT_EQ(refcount_read(&v10->refcnt), 2);
    auto calls = seams::calls_of([&] { settle(); });
    EXPECT_THAT(calls, ElementsAre("flags_set vlan10 0x40", "flags_set vlan10 0x40",
                                   "unbind_vlan vlan10 p77 1", "unbind vlan10 p77",
                                   "flags_set vlan10 0x1003", "unconfigure vlan10"));
    EXPECT_EQ(refcount_read(&v10->refcnt), 0);
    EXPECT_EQ(v10->if_flags & TARN_IF_F_VALID, 0u);
    forget_log();
    remember();
}

TEST_F(OpCount, the_last_running_port_of_three_goes_one_at_a_time) {
    tarn_if *v10 = vlan(10);
    tarn_if *ports[] = {port_with(71, LINK), port_with(72, LINK), port_with(73, LINK)};
    for (tarn_if *port : ports)
        bind(v10, port);
    EXPECT_EQ(v10->oper_count, 3);
    set_flags(ports[0], NO_LINK);
    EXPECT_EQ(v10->oper_count, 2);
    EXPECT_TRUE(runs(v10));
    EXPECT_THAT(waiting(), ElementsAre(ports[0]));
    set_flags(ports[1], NO_LINK);
    set_flags(ports[2], NO_LINK);
    EXPECT_FALSE(runs(v10));
    EXPECT_THAT(waiting(), ElementsAre(ports[0], ports[1], v10, ports[2]));
}

TEST_F(OpCount, the_last_running_port_of_a_vlan_that_is_always_up_changes_the_count_alone) {
    tarn_if *v10 = vlan(10, TARN_VLAN_OPTION_ALWAYS_UP), *port = port_with(77, LINK);
    bind(v10, port);
    set_flags(port, NO_LINK);
    EXPECT_EQ(v10->oper_count, 0);
    EXPECT_TRUE(runs(v10));
    EXPECT_THAT(waiting(), ElementsAre(port));
    settle();
    EXPECT_NE(dev_get_flags(v10->netdev) & IFF_RUNNING, 0u);
}

TEST_F(OpCount, two_running_members_of_an_aggregator_add_two_to_each_of_its_vlans) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *lag = aggregator(7001);
    attach(lag, port_with(77, LINK));
    attach(lag, port_with(78, LINK));
    bind(v10, lag);
    bind(v11, lag);
    EXPECT_EQ(v10->oper_count, 2);
    EXPECT_EQ(v11->oper_count, 2);
    tarn_ifmgr_unbind(v10, lag);
    EXPECT_EQ(v10->oper_count, 0);
    EXPECT_EQ(v11->oper_count, 2);
    EXPECT_EQ(count_problems(), "");
}

} // namespace
