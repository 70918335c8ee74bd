// The bind graph, and the questions that are asked of it.
#include "support/graph_test.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Bind : public GraphTest {
protected:
    // A put that may not be the last.
    tarn_if *let_go(tarn_if *ifp) {
        tarn_ifmgr_if_ref_put(ifp);
        return ifp;
    }
    tarn_if *xmit_port(tarn_if *ifp) { return let_go(tarn_ifmgr_get_L2_xmit_port(ifp)); }
    tarn_if *l3_port(tarn_if *ifp, u32 vid) {
        return let_go(tarn_ifmgr_get_matching_L3_port(ifp, vid));
    }
};

// --- which may stand under which -----------------------------------------------------------------

TEST_F(Bind, a_layer_3_interface_cannot_stand_under_a_port_or_aggregator) {
    tarn_if *port = port_with(77), *lag = aggregator(7001), *eth = ethernet(78, "eth9");
    tarn_if *routed = port_with(79);
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(79, 9), 0);
    for (tarn_if *parent : {port, lag})
        for (tarn_if *child : {vlan1(), eth, routed}) {
            EXPECT_NE(tarn_ifmgr_is_child_l3_and_parent_l2(parent, child), 0u);
            EXPECT_EQ(tarn_ifmgr_bind(parent, child), TARN_ERR_WRONG_TYPE);
            EXPECT_EQ(tarn_ifmgr_unbind(parent, child), TARN_ERR_WRONG_TYPE);
            EXPECT_EQ(tarn_ifmgr_isbound(parent, child), 0u);
            EXPECT_EQ(parent->children, nullptr);
        }
    for (tarn_if *parent : {vlan1(), eth})
        for (tarn_if *child : {port, lag, routed})
            EXPECT_EQ(tarn_ifmgr_is_child_l3_and_parent_l2(parent, child), 0u);
    EXPECT_EQ(tarn_ifmgr_is_child_l3_and_parent_l2(lag, port), 0u);
}

TEST_F(Bind, a_refused_binding_changes_nothing) {
    tarn_if *lag = aggregator(7001);
    u32 flags = lag->flags;
    auto calls = seams::calls_of([&] { tarn_ifmgr_bind(lag, vlan1()); });
    EXPECT_THAT(calls, ElementsAre("bind lag7001 vlan1"));
    EXPECT_EQ(lag->flags, flags);
}

TEST_F(Bind, an_interface_cannot_stand_under_itself_or_under_one_below_it) {
    tarn_if *a = aggregator(7001), *b = aggregator(7002), *c = port_with(77, LINK);
    bind(a, b);
    bind(b, c);
    u32 flags = c->flags;
    for (tarn_if *child : {a, b, c}) {
        auto calls =
            seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_bind(c, child), TARN_ERR_WRONG_TYPE); });
        EXPECT_EQ(calls.size(), 1u); // no file is made for a binding that is none
    }
    EXPECT_EQ(tarn_ifmgr_bind(a, a), TARN_ERR_WRONG_TYPE);
    EXPECT_EQ(c->flags, flags);
    EXPECT_EQ(c->children, nullptr);
    EXPECT_EQ(tarn_ifmgr_aggregator_port_attach(7001, 7001), TARN_ERR_WRONG_TYPE);
    forget_log();
}

// --- binding
// ---------------------------------------------------------------------------------------

TEST_F(Bind, new_bindings_stand_first_on_both_lists) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *a = port_with(77), *b = port_with(78);
    bind(v10, a);
    bind(v10, b);
    bind(v11, a);
    EXPECT_THAT(named_by(v10->children), ElementsAre(b, a));
    EXPECT_THAT(named_by(a->parents), ElementsAre(v11, v10));
    EXPECT_THAT(named_by(v11->children), ElementsAre(a));
    EXPECT_EQ(refcount_read(&a->refcnt), 1); // a binding holds nothing
    EXPECT_EQ(refcount_read(&v10->refcnt), 1);
}

TEST_F(Bind, the_first_child_lends_its_flags_and_a_second_does_not) {
    tarn_if *lag = aggregator(7001);
    bind(lag, port_with(77, 0x1102));
    EXPECT_EQ(lag->flags, 0x1102u);
    bind(lag, port_with(78, 0x1003));
    EXPECT_EQ(lag->flags, 0x1102u);
}

struct FlagsRow {
    u32 parent, child, expected;
};
class BindFlags : public GraphTest, public ::testing::WithParamInterface<FlagsRow> {};

TEST_P(BindFlags, the_parent_keeps_its_own_up_and_takes_the_rest) {
    tarn_if *lag = aggregator(7001);
    lag->flags = GetParam().parent;
    bind(lag, port_with(77, GetParam().child));
    EXPECT_EQ(lag->flags, GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(Rows, BindFlags,
                         ::testing::Values(FlagsRow{0, 0x1002, 0x1002}, FlagsRow{1, 0x1002, 0x1003},
                                           FlagsRow{0xFFFE, 0x2, 0x2}, FlagsRow{0xFFFF, 0x2, 0x3},
                                           FlagsRow{0, 0x1003, 0x1003},
                                           FlagsRow{0, 0x1043, 0x1043}));

TEST_F(Bind, the_first_child_of_a_vlan_sets_the_flags_of_its_device) {
    tarn_if *v10 = vlan(10);
    tarn_if *port = port_with(77, LINK);
    auto calls = seams::calls_of([&] { bind(v10, port); });
    // 0x1043 is not what the device has: told at once, and once more by the count.
    EXPECT_THAT(calls,
                ElementsAre("bind vlan10 p77", "flags_set vlan10 0x1043", "flags_set vlan10 0x40"));
    EXPECT_EQ(dev_get_flags(v10->netdev) & TARN_IF_LINK, TARN_IF_LINK);
}

TEST_F(Bind, flags_that_the_device_has_already_are_not_set_again) {
    tarn_if *v10 = vlan(10);
    tarn_os_l3_if_flags_set(v10, 0x1003);
    settle();
    auto calls = seams::calls_of([&] { bind(v10, port_with(77, NO_LINK)); });
    EXPECT_THAT(calls, ElementsAre("create_proc p77", "bind vlan10 p77"));
}

TEST_F(Bind, flags_are_compared_with_the_device_and_not_with_the_record) {
    tarn_if *v10 = vlan(10); // record 0x1003, device 0x1002
    auto calls = seams::calls_of([&] { bind(v10, port_with(77, NO_LINK)); });
    EXPECT_THAT(calls,
                ElementsAre("create_proc p77", "bind vlan10 p77", "flags_set vlan10 0x1003"));
}

TEST_F(Bind, without_a_device_flags_are_compared_with_the_record) {
    tarn_if *a = port_with(77, LINK), *b = port_with(78, NO_LINK);
    // A port that takes over link has it from then on, as a leaf no more.
    b->flags = LINK;
    auto calls = seams::calls_of([&] { bind(b, a); });
    EXPECT_THAT(calls, ElementsAre("bind p78 p77", "on_bind p78"));
    EXPECT_EQ(b->oper_count, 1);
}

TEST_F(Bind, the_files_of_a_parent_are_made_with_its_first_child_and_not_for_a_vlan) {
    tarn_if *lag = aggregator(7001), *a = port_with(77), *b = port_with(78);
    EXPECT_THAT(seams::calls_of([&] { bind(lag, a); }),
                ElementsAre("bind lag7001 p77", "on_bind lag7001"));
    EXPECT_THAT(seams::calls_of([&] { bind(lag, b); }), ElementsAre("bind lag7001 p78"));
    EXPECT_THAT(seams::calls_of([&] { bind(vlan(10), a); }),
                ::testing::Not(::testing::Contains("on_bind vlan10")));
}

TEST_F(Bind, the_hooks_may_be_missing) {
    p_tarn_if_db->on_bind = nullptr;
    p_tarn_if_db->on_unbind = nullptr;
    tarn_if *lag = aggregator(7001), *port = port_with(77);
    auto calls = seams::calls_of([&] {
        bind(lag, port);
        EXPECT_EQ(tarn_ifmgr_unbind(lag, port), 0);
    });
    EXPECT_THAT(calls, ElementsAre("bind lag7001 p77", "unbind lag7001 p77"));
    EXPECT_EQ(lag->flags, 0x1003u);
}

TEST_F(Bind, nodes_come_from_their_cache_and_are_asked_for_without_sleeping) {
    tarn_if *v10 = vlan(10), *port = port_with(77);
    auto before = userlevel::take_snapshot();
    EXPECT_EQ(tarn_ifmgr_bind(v10, port), 0);
    auto nodes = userlevel::leaked_since(before);
    ASSERT_EQ(nodes.size(), 2u);
    for (const auto &node : nodes) {
        EXPECT_STREQ(node.kind, "ifmgr_free_list");
        EXPECT_EQ(node.bytes, sizeof(tarn_ifmgr_list_node));
        EXPECT_EQ(node.flags, GFP_ATOMIC);
    }
    remember();
}

TEST_F(Bind, without_memory_neither_side_is_bound_and_the_flags_stay_changed) {
    tarn_if *lag = aggregator(7001), *port = port_with(77, LINK);
    // The parent's node fails first, behind the file "members"; that file stays, so that the
    // child's node is next.
    for (bool first : {true, false}) {
        lag->flags = 0;
        userlevel::fail_allocation(2);
        auto calls =
            seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_bind(lag, port), TARN_ERR_NO_MEMORY); });
        EXPECT_THAT(calls, ElementsAre("bind lag7001 p77", "on_bind lag7001"));
        EXPECT_EQ(lag->flags, LINK);
        EXPECT_EQ(lag->children, nullptr);
        EXPECT_EQ(port->parents, nullptr);
        EXPECT_EQ(lag->oper_count, 0);
        if (first)
            remember();
        expect_nothing_leaked();
    }
}

TEST_F(Bind, a_lost_update_of_the_count_does_not_fail_the_binding) {
    tarn_if *v10 = vlan(10), *port = port_with(77, LINK);
    userlevel::fail_allocation(3);
    EXPECT_EQ(tarn_ifmgr_bind(v10, port), 0);
    EXPECT_EQ(v10->oper_count, 1);
    EXPECT_THAT(waiting(), IsEmpty());
    remember();
}

// --- unbinding
// -------------------------------------------------------------------------------------

TEST_F(Bind, unbinding_takes_both_nodes) {
    tarn_if *v10 = vlan(10), *a = port_with(77, LINK), *b = port_with(78, LINK);
    bind(v10, a);
    bind(v10, b);
    EXPECT_EQ(v10->oper_count, 2);
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_unbind(v10, a), 0); });
    EXPECT_THAT(calls, ElementsAre("unbind vlan10 p77"));
    EXPECT_THAT(named_by(v10->children), ElementsAre(b));
    EXPECT_THAT(named_by(a->parents), IsEmpty());
    EXPECT_EQ(v10->oper_count, 1);
    EXPECT_EQ(a->oper_count, 1);
    EXPECT_NE(v10->flags & IFF_RUNNING, 0u);
}

TEST_F(Bind, the_last_child_of_a_vlan_takes_running_along) {
    tarn_if *v10 = vlan(10), *port = port_with(77, LINK);
    bind(v10, port);
    auto calls = seams::calls_of([&] { tarn_ifmgr_unbind(v10, port); });
    EXPECT_THAT(calls, ElementsAre("unbind vlan10 p77", "flags_set vlan10 0x1003"));
    EXPECT_EQ(v10->flags, 0x1003u);
    EXPECT_EQ(v10->oper_count, 0);
    EXPECT_THAT(waiting(), ElementsAre(v10));
    calls = seams::calls_of([&] { settle(); });
    EXPECT_THAT(calls, ElementsAre("flags_unset vlan10 0x40"));
    EXPECT_EQ(dev_get_flags(v10->netdev) & IFF_RUNNING, 0u);
}

TEST_F(Bind, the_last_child_of_an_aggregator_takes_its_files_along) {
    tarn_if *lag = aggregator(7001), *a = port_with(77, LINK), *b = port_with(78);
    bind(lag, a);
    bind(lag, b);
    EXPECT_THAT(seams::calls_of([&] { tarn_ifmgr_unbind(lag, a); }),
                ElementsAre("unbind lag7001 p77"));
    lag->flags = 0xFFFF;
    EXPECT_THAT(seams::calls_of([&] { tarn_ifmgr_unbind(lag, b); }),
                ElementsAre("unbind lag7001 p78", "on_unbind lag7001"));
    EXPECT_EQ(lag->flags, 0x1003u);
}

TEST_F(Bind, unbinding_what_is_not_bound_does_nothing) {
    tarn_if *v10 = vlan(10), *port = port_with(77, LINK);
    v10->flags = 0x1043;
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_unbind(v10, port), 0); });
    EXPECT_THAT(calls, ElementsAre("unbind vlan10 p77"));
    EXPECT_EQ(v10->flags, 0x1043u);
    EXPECT_EQ(update_data.work.queued, false);
}

TEST_F(Bind, unbinding_a_child_that_only_knows_its_parent_changes_no_count) {
    tarn_if *v10 = vlan(10), *port = port_with(77, LINK);
    bind(v10, port);
    tarn_ifmgr_list_remove(&v10->children, port);
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_unbind(v10, port), 0); });
    EXPECT_THAT(calls, ElementsAre("unbind vlan10 p77"));
    EXPECT_THAT(named_by(port->parents), IsEmpty());
    EXPECT_EQ(v10->oper_count, 1); // told wrong by the list that was broken, and left so
    v10->oper_count = 0;
}

TEST_F(Bind, unbinding_a_child_that_does_not_know_its_parent_counts) {
    tarn_if *v10 = vlan(10), *port = port_with(77, LINK);
    bind(v10, port);
    tarn_ifmgr_list_remove(&port->parents, v10);
    EXPECT_EQ(tarn_ifmgr_unbind(v10, port), 0);
    EXPECT_THAT(named_by(v10->children), IsEmpty());
    EXPECT_EQ(v10->oper_count, 0);
}

// --- is it bound
// -----------------------------------------------------------------------------------

TEST_F(Bind, a_binding_is_there_when_both_sides_know_it) {
    tarn_if *v10 = vlan(10), *a = port_with(77), *b = port_with(78);
    EXPECT_EQ(tarn_ifmgr_isbound(v10, a), 0u);
    bind(v10, a);
    bind(vlan1(), b);
    EXPECT_EQ(tarn_ifmgr_isbound(v10, a), 1u);
    EXPECT_EQ(tarn_ifmgr_isbound(v10, b), 0u);
    EXPECT_EQ(tarn_ifmgr_isbound(vlan1(), a), 0u);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Bind, a_binding_one_way_is_told_of_and_does_not_count) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *a = port_with(77), *b = port_with(78);
    bind(v10, a);
    bind(v10, b);
    bind(v11, a);
    tarn_ifmgr_list_remove(&v10->children, a);
    EXPECT_EQ(tarn_ifmgr_isbound(v10, a), 0u);
    EXPECT_THAT(log(), ElementsAre("3 Interfaces parent:vlan10 (bound=0) child:p77 (bound=1) are "
                                   "bound only one way, when both way binding is expected.\n"));
    tarn_ifmgr_list_add(&v10->children, a);
    tarn_ifmgr_list_remove(&a->parents, v10);
    EXPECT_EQ(tarn_ifmgr_isbound(v10, a), 0u);
    EXPECT_THAT(log(), ElementsAre("3 Interfaces parent:vlan10 (bound=1) child:p77 (bound=0) are "
                                   "bound only one way, when both way binding is expected.\n"));
    // An empty list answers at once.
    tarn_ifmgr_list_remove(&a->parents, v11);
    EXPECT_EQ(tarn_ifmgr_isbound(v10, a), 0u);
    EXPECT_THAT(log(), IsEmpty());
    graph_is_broken_on_purpose = true;
    remember();
}

// --- through which port
// ----------------------------------------------------------------------------

TEST_F(Bind, a_port_or_ethernet_interface_sends_for_itself) {
    tarn_if *eth = ethernet(78, "eth9");
    for (tarn_if *ifp : {port1(), eth}) {
        EXPECT_EQ(tarn_ifmgr_get_L2_xmit_port(ifp), ifp);
        EXPECT_EQ(refcount_read(&ifp->refcnt), 2);
        tarn_ifmgr_if_ref_put(ifp);
    }
}

TEST_F(Bind, a_port_that_waits_for_its_end_sends_nothing) {
    tarn_if *port = port_with(77, LINK), *lag = aggregator(7001);
    bind(lag, port);
    _tarn_ifmgr_if_hold(port);
    tarn_ifmgr_delete_interface(port);
    tarn_ifmgr_if_ref_put_later(port); // still on the list of its aggregator
    EXPECT_EQ(tarn_ifmgr_get_L2_xmit_port(port), nullptr);
    EXPECT_EQ(tarn_ifmgr_get_L2_xmit_port(lag), nullptr);
    EXPECT_EQ(refcount_read(&port->refcnt), 0);
    settle();
    EXPECT_THAT(log(), IsEmpty());
    remember();
}

TEST_F(Bind, a_vlan_or_nothing_sends_through_no_port) {
    EXPECT_EQ(tarn_ifmgr_get_L2_xmit_port(nullptr), nullptr);
    EXPECT_EQ(tarn_ifmgr_get_L2_xmit_port(vlan1()), nullptr);
}

TEST_F(Bind, an_aggregator_sends_through_the_member_with_link_and_the_highest_ifindex) {
    for (u32 type : {TARN_AGG_TYPE_STATIC, TARN_AGG_TYPE_DYNAMIC}) {
        tarn_if *lag = aggregator(7000 + type, type);
        EXPECT_EQ(xmit_port(lag), nullptr);
        u32 base = 1000 * type;
        tarn_if *high = port_with(base + 9), *low = port_with(base + 1), *mid = port_with(base + 5);
        bind(lag, high); // bound first, so last on the list
        bind(lag, low);
        bind(lag, mid);
        EXPECT_EQ(xmit_port(lag), nullptr); // none has link
        set_flags(low, LINK);
        settle();
        EXPECT_EQ(xmit_port(lag), low);
        set_flags(high, LINK);
        EXPECT_EQ(xmit_port(lag), high);
        set_flags(mid, LINK);
        settle();
        EXPECT_EQ(xmit_port(lag), high);
        set_flags(high, IFF_RUNNING); // running, but not up
        EXPECT_EQ(xmit_port(lag), mid);
        EXPECT_EQ(tarn_ifmgr_get_L2_xmit_port(lag), mid);
        EXPECT_EQ(refcount_read(&mid->refcnt), 2);
        tarn_ifmgr_if_ref_put(mid);
        settle();
        EXPECT_EQ(refcount_read(&lag->refcnt), 1);
    }
}

TEST_F(Bind, the_logical_port_is_the_aggregator_that_stands_first) {
    tarn_if *lag = aggregator(7001), *port = port_with(77);
    EXPECT_EQ(tarn_ifmgr_logical_port(port), port);
    bind(lag, port);
    EXPECT_EQ(tarn_ifmgr_logical_port(port), lag);
    bind(vlan1(), port); // stands first now
    EXPECT_EQ(tarn_ifmgr_logical_port(port), port);
    configure([&] { tarn_ifmgr_unbind(vlan1(), port); });
    EXPECT_EQ(tarn_ifmgr_logical_port(port), lag);
    configure([&] { tarn_ifmgr_unbind(lag, port); });
    EXPECT_EQ(tarn_ifmgr_logical_port(port), port);
    EXPECT_EQ(tarn_ifmgr_logical_port(vlan1()), vlan1());
}

// --- to which layer 3 interface
// ----------------------------------------------------------------------

TEST_F(Bind, an_ethernet_interface_and_a_routed_port_are_their_own_layer_3) {
    tarn_if *eth = ethernet(78, "eth9");
    EXPECT_EQ(l3_port(eth, 1), eth);
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(5001, 9), 0);
    EXPECT_EQ(tarn_ifmgr_get_matching_L3_port(port1(), 1), port1());
    EXPECT_EQ(refcount_read(&port1()->refcnt), 2);
    tarn_ifmgr_if_ref_put(port1());
    tarn_ifmgr_l3_switchport_set(5001, 0);
}

TEST_F(Bind, one_that_waits_for_its_end_is_nobodys_layer_3) {
    tarn_if *port = port_with(77, LINK, 1);
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(77, 9), 0);
    _tarn_ifmgr_if_hold(port);
    tarn_ifmgr_delete_interface(port);
    tarn_ifmgr_if_ref_put_later(port);
    EXPECT_EQ(tarn_ifmgr_get_matching_L3_port(port, 1), nullptr);
    EXPECT_EQ(refcount_read(&port->refcnt), 0);
    EXPECT_THAT(log(), IsEmpty());
    settle();
    remember();
}

TEST_F(Bind, one_on_top_that_waits_for_its_end_is_nobodys_layer_3) {
    tarn_if *eth = ethernet(78, "eth9"), *port = port_with(77);
    bind(eth, port);
    _tarn_ifmgr_if_hold(eth);
    tarn_ifmgr_delete_interface(eth);
    tarn_ifmgr_if_ref_put_later(eth);
    EXPECT_EQ(tarn_ifmgr_get_matching_L3_port(port, 1), nullptr);
    EXPECT_EQ(refcount_read(&eth->refcnt), 0);
    EXPECT_THAT(log(), IsEmpty());
    settle();
    log(); // it had no device
    remember();
}

TEST_F(Bind, a_frame_belongs_to_its_own_vlan_and_not_to_the_first_above_its_port) {
    tarn_if *v10 = vlan(10);
    EXPECT_EQ(l3_port(port1(), 1), vlan1());
    EXPECT_EQ(l3_port(port1(), 10), v10);
    EXPECT_EQ(l3_port(port1(), 11), nullptr); // no such VLAN
    EXPECT_EQ(tarn_ifmgr_get_matching_L3_port(port1(), 10), v10);
    EXPECT_EQ(refcount_read(&v10->refcnt), 2);
    tarn_ifmgr_if_ref_put(v10);
}

TEST_F(Bind, a_port_without_a_vlan_above_it_has_no_layer_3) {
    tarn_if *port = port_with(77), *lag = aggregator(7001);
    EXPECT_EQ(l3_port(port, 1), nullptr);
    bind(lag, port); // the top is an aggregator
    EXPECT_EQ(l3_port(port, 1), nullptr);
    bind(vlan1(), lag);
    EXPECT_EQ(l3_port(port, 1), vlan1());
    EXPECT_EQ(l3_port(lag, 1), vlan1());
}

TEST_F(Bind, a_vlan_interface_itself_gets_none) {
    EXPECT_EQ(l3_port(vlan1(), 1), nullptr);
}

TEST_F(Bind, an_ethernet_interface_on_top_is_the_layer_3_of_all_below) {
    tarn_if *eth = ethernet(78, "eth9"), *port = port_with(77);
    bind(eth, port);
    EXPECT_EQ(tarn_ifmgr_get_matching_L3_port(port, 1), eth);
    EXPECT_EQ(refcount_read(&eth->refcnt), 2);
    tarn_ifmgr_if_ref_put(eth);
}

TEST_F(Bind, the_way_up_takes_the_first_parent_at_each_level) {
    tarn_if *eth = ethernet(78, "eth9"), *port = port_with(77);
    bind(eth, port);
    bind(vlan1(), port); // stands first
    EXPECT_EQ(l3_port(port, 1), vlan1());
    tarn_if *lag = aggregator(7001);
    bind(lag, port); // stands first, and has nobody above
    EXPECT_EQ(l3_port(port, 1), nullptr);
    bind(eth, lag);
    EXPECT_EQ(l3_port(port, 1), eth);
}

} // namespace
