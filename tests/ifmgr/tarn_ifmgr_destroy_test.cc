// How interface records leave the database.
#include "support/graph_test.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

class Destroy : public GraphTest {
protected:
    // What the deletion calls.
    std::vector<std::string> calls_of_removal(tarn_if *ifp) {
        return seams::calls_of([&] { remove(ifp); });
    }
    bool is_gone(tarn_if *ifp) {
        return refcount_read(&ifp->refcnt) == 0 && !(ifp->if_flags & TARN_IF_F_VALID);
    }
};

TEST_F(Destroy, a_deletion_marks_the_record_and_drops_one_reference) {
    tarn_if *port = port_with(77);
    _tarn_ifmgr_if_hold(port);
    tarn_ifmgr_delete_interface(port);
    EXPECT_EQ(port->if_flags, TARN_IF_F_VALID | TARN_IF_F_DELETED);
    EXPECT_EQ(refcount_read(&port->refcnt), 1);
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(77), nullptr);
    tarn_ifmgr_if_ref_put(port);
    EXPECT_TRUE(is_gone(port));
    remember();
}

TEST_F(Destroy, the_two_references_may_go_in_either_order) {
    tarn_if *port = port_with(77);
    tarn_if *found = tarn_ifmgr_lookup_by_index(77);
    tarn_ifmgr_if_ref_put(found);
    tarn_ifmgr_delete_interface(port);
    EXPECT_TRUE(is_gone(port));
    EXPECT_THAT(log(), IsEmpty());
    remember();
}

// The last reference goes under a lock, on the transmit path.
TEST_F(Destroy, a_record_that_ends_where_nobody_may_sleep_is_torn_down_later) {
    tarn_if *port = port_with(77, LINK, 1);
    _tarn_ifmgr_if_hold(port);
    tarn_ifmgr_delete_interface(port);
    local_bh_disable();
    auto calls = seams::calls_of([&] { tarn_ifmgr_if_ref_put(port); });
    EXPECT_THAT(calls, IsEmpty());
    local_bh_enable();
    EXPECT_FALSE(is_gone(port));
    calls = seams::calls_of([&] { settle(); });
    EXPECT_THAT(calls, ElementsAre("delete_all p77", "remove_proc p77", "unconfigure p77"));
    EXPECT_TRUE(is_gone(port));
    remember();
}

TEST_F(Destroy, a_record_that_waits_is_torn_down_before_another_takes_its_device) {
    tarn_if *port = port_with(77, LINK, 1);
    tarn_ifmgr_if_ref_get(port);
    tarn_ifmgr_delete_interface(port);
    tarn_ifmgr_if_ref_put_later(port);
    EXPECT_FALSE(is_gone(port));
    remember();
    EXPECT_EQ(port_with(77, LINK, 1), port);
    EXPECT_THAT(userlevel::netdevs(), Contains(port->netdev));
    EXPECT_EQ(refcount_read(&port->refcnt), 1);

    tarn_if *old = vlan(10);
    tarn_ifmgr_if_ref_get(old);
    tarn_ifmgr_delete_interface(old);
    tarn_ifmgr_if_ref_put_later(old);
    remember();
    tarn_if *again = vlan(10);
    EXPECT_THAT(userlevel::netdevs(), Contains(again->netdev));
}

// --- Ethernet ----------------------------------------------------------------------------------

TEST_F(Destroy, an_ethernet_interface_lets_go_of_its_device) {
    net_device *device = configure([] { return userlevel::netdev_create("eth9"); });
    i32 references = device->references;
    tarn_if *ifp = ethernet(77, "eth9");
    EXPECT_EQ(device->references, references + 1);
    EXPECT_THAT(calls_of_removal(ifp), IsEmpty());
    EXPECT_EQ(device->references, references);
    EXPECT_EQ(ifp->netdev, nullptr);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(userlevel::netdevs(), Contains(device));
}

TEST_F(Destroy, an_ethernet_interface_without_a_device_says_so) {
    remove(ethernet(77, "eth9"));
    EXPECT_THAT(log(), ElementsAre("3 netdevice for eth9 not found\n"));
}

TEST_F(Destroy, an_ethernet_interface_leaves_the_graph) {
    tarn_if *ifp = ethernet(77, "eth9");
    tarn_if *port = port_with(78, LINK);
    bind(ifp, port);
    remove(ifp);
    forget_log();
    EXPECT_THAT(named_by(port->parents), IsEmpty());
}

// --- VLANs -------------------------------------------------------------------------------------

TEST_F(Destroy, a_vlan_takes_its_device_along) {
    tarn_if *ifp = vlan(10);
    net_device *device = ifp->netdev;
    EXPECT_THAT(calls_of_removal(ifp), ElementsAre("unconfigure vlan10"));
    EXPECT_EQ(ifp->netdev, nullptr);
    EXPECT_THAT(userlevel::netdevs(), Not(Contains(device)));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Destroy, a_vlan_without_a_device_says_so) {
    tarn_if *ifp = vlan(10);
    tarn_os_l3_if_unconfigure(ifp);
    ifp->netdev = nullptr;
    EXPECT_THAT(calls_of_removal(ifp), IsEmpty());
    EXPECT_THAT(log(), ElementsAre("3 netdevice for vlan10 not found\n"));
}

TEST_F(Destroy, a_vlan_unbinds_each_of_its_children_with_a_warning) {
    tarn_if *ifp = vlan(10);
    tarn_if *a = port_with(77, LINK), *b = port_with(78);
    add_member(a, 10, 1);
    add_member(b, 10);
    userlevel::neigh_flushes_take();
    net_device *device = ifp->netdev;
    EXPECT_THAT(calls_of_removal(ifp),
                ElementsAre("unbind_vlan vlan10 p78 1", "unbind vlan10 p78",
                            "unbind_vlan vlan10 p77 1", "unbind vlan10 p77",
                            "flags_set vlan10 0x1003", "unconfigure vlan10"));
    EXPECT_THAT(log(), ElementsAre("4 Child interface p78 found while deleting vlan10\n",
                                   "4 Child interface p77 found while deleting vlan10\n"));
    EXPECT_THAT(named_by(a->parents), IsEmpty());
    EXPECT_FALSE(tarn_vlan_port_member_check(a, 10));
    EXPECT_FALSE(tarn_vlan_egress_tagged(a, 10));
    EXPECT_FALSE(tarn_vlan_port_member_check(b, 10));
    auto flushes = userlevel::neigh_flushes_take();
    ASSERT_EQ(flushes.size(), 4u);
    EXPECT_EQ(flushes[0].device, device);
    EXPECT_EQ(flushes[0].ifindex, 78u);
    EXPECT_EQ(a->oper_count, 1);
    EXPECT_EQ(refcount_read(&a->refcnt), 1);
}

TEST_F(Destroy, a_vlan_says_when_a_child_stays) {
    tarn_if *ifp = vlan(10);
    tarn_if *port = port_with(77);
    add_member(port, 10);
    seams::ifmgr().unbind_vlan_result = -EINVAL;
    remove(ifp);
    EXPECT_THAT(log(), ElementsAre("4 Child interface p77 found while deleting vlan10\n",
                                   "3 Failed to remove p77 from vlan10\n"));
    EXPECT_EQ(refcount_read(&port->refcnt), 1);
    EXPECT_THAT(named_by(port->parents), IsEmpty()); // it is cut off all the same
}

TEST_F(Destroy, a_vlan_holds_its_child_while_it_is_taken_off) {
    tarn_if *ifp = vlan(10);
    tarn_if *port = port_with(77);
    add_member(port, 10);
    i32 held = 0;
    seams::ifmgr().on_unbind_vlan = [&] { held = refcount_read(&port->refcnt); };
    remove(ifp);
    forget_log();
    EXPECT_EQ(held, 2);
}

// Both end under a lock, so both destructors wait.
TEST_F(Destroy, a_vlan_may_have_a_child_that_waits_for_its_own_end) {
    tarn_if *ifp = vlan(10);
    tarn_if *port = port_with(77, LINK);
    add_member(port, 10);
    for (tarn_if *one : {port, ifp}) {
        _tarn_ifmgr_if_hold(one);
        tarn_ifmgr_delete_interface(one);
    }
    local_bh_disable();
    tarn_ifmgr_if_ref_put(port);
    tarn_ifmgr_if_ref_put(ifp); // the last to come is torn down first
    local_bh_enable();
    auto calls = seams::calls_of([&] { settle(); });
    EXPECT_THAT(log(), ElementsAre("4 Child interface p77 found while deleting vlan10\n"));
    EXPECT_THAT(calls, ElementsAre("unbind_vlan vlan10 p77 1", "unbind vlan10 p77",
                                   "flags_set vlan10 0x1003", "unconfigure vlan10",
                                   "delete_all p77", "remove_proc p77"));
    EXPECT_TRUE(is_gone(port));
    EXPECT_TRUE(is_gone(ifp));
    remember();
}

// Its count goes to 0 on the way, which must not queue what is going away.
TEST_F(Destroy, a_vlan_with_a_running_port_is_not_queued_again) {
    tarn_if *ifp = vlan(10);
    tarn_if *port = port_with(77, LINK);
    add_member(port, 10);
    EXPECT_EQ(ifp->oper_count, 1);
    tarn_if *found = tarn_ifmgr_lookup_by_index(310);
    tarn_ifmgr_delete_interface(found);
    tarn_ifmgr_if_ref_put(found);
    EXPECT_THAT(waiting(), IsEmpty());
    EXPECT_TRUE(is_gone(ifp));
    EXPECT_EQ(ifp->oper_count, 0);
    forget_log();
    remember();
}

TEST_F(Destroy, a_vlan_gives_its_upstream_list_back) {
    tarn_if *ifp = vlan(10);
    configure([&] {
        tarn_ifmgr_vlan_upstream_if_add(ifp, port1());
        tarn_ifmgr_vlan_upstream_if_add(ifp, port1());
    });
    remove(ifp);
    EXPECT_EQ(ifp->upstream_ifs, nullptr);
}

// --- ports -------------------------------------------------------------------------------------

TEST_F(Destroy, a_port_leaves_its_vlans_and_its_files) {
    tarn_if *port = port_with(77, LINK);
    add_member(port, 1);
    vlan(10);
    add_member(port, 10);
    userlevel::neigh_flushes_take();
    EXPECT_THAT(calls_of_removal(port),
                ElementsAre("delete_all p77", "unbind vlan10 p77", "flags_set vlan10 0x1003",
                            "unbind vlan1 p77", "remove_proc p77", "flags_unset vlan10 0x40"));
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(named_by(vlan1()->children), ElementsAre(port1()));
    EXPECT_EQ(vlan1()->oper_count, 1);
    // One flush for all, on any device.
    auto flushes = userlevel::neigh_flushes_take();
    ASSERT_EQ(flushes.size(), 2u);
    EXPECT_STREQ(flushes[0].table, "arp");
    EXPECT_STREQ(flushes[1].table, "ndisc");
    for (const auto &flush : flushes) {
        EXPECT_EQ(flush.vid, -1);
        EXPECT_EQ(flush.device, nullptr);
        EXPECT_EQ(flush.ifindex, 77u);
    }
}

TEST_F(Destroy, a_port_takes_its_device_along_at_the_end) {
    tarn_if *port = port_with(77, LINK, 1);
    net_device *device = port->netdev;
    EXPECT_THAT(calls_of_removal(port),
                ElementsAre("delete_all p77", "remove_proc p77", "unconfigure p77"));
    EXPECT_THAT(userlevel::netdevs(), Not(Contains(device)));
    EXPECT_EQ(port->netdev, nullptr);
}

TEST_F(Destroy, a_port_leaves_its_aggregator) {
    tarn_if *lag = aggregator(7001);
    tarn_if *a = port_with(77, LINK), *b = port_with(78, LINK);
    attach(lag, a);
    attach(lag, b);
    add_member(lag, 1);
    EXPECT_EQ(vlan1()->oper_count, 3);
    EXPECT_THAT(calls_of_removal(b),
                ElementsAre("delete_all p78", "unbind lag7001 p78", "remove_proc p78"));
    EXPECT_THAT(named_by(lag->children), ElementsAre(a));
    EXPECT_EQ(lag->oper_count, 1);
    EXPECT_EQ(vlan1()->oper_count, 2);
    EXPECT_TRUE(tarn_ifmgr_isbound(vlan1(), lag));

    // The last one takes the aggregator out of its VLANs.
    EXPECT_THAT(calls_of_removal(a),
                ElementsAre("delete_all p77", "unbind lag7001 p77", "on_unbind lag7001",
                            "agg_unbind lag7001", "unbind vlan1 lag7001", "remove_proc p77"));
    EXPECT_EQ(lag->oper_count, 0);
    EXPECT_EQ(vlan1()->oper_count, 1);
    EXPECT_FALSE(tarn_ifmgr_isbound(vlan1(), lag));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Destroy, a_port_that_cannot_leave_its_aggregator_says_so_and_is_cut_off) {
    tarn_if *lag = aggregator(7001);
    tarn_if *port = port_with(77, LINK);
    attach(lag, port);
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(77, 9), 0); // routed while it is a member
    remove(port);
    EXPECT_THAT(log(), ElementsAre("3 Error removing p77 from lag7001 ret -204\n",
                                   "3 Parent interface lag7001 found while deleting p77\n"));
    EXPECT_THAT(named_by(lag->children), IsEmpty());
    EXPECT_EQ(lag->oper_count, 0);
}

// A membership whose bit is gone, left by a defect elsewhere.
TEST_F(Destroy, a_port_says_when_it_has_a_parent_that_is_no_aggregator) {
    tarn_if *port = port_with(77, LINK);
    bind(vlan1(), port);
    EXPECT_EQ(vlan1()->oper_count, 2);
    auto calls = calls_of_removal(port);
    EXPECT_THAT(calls, ElementsAre("delete_all p77", "remove_proc p77"));
    EXPECT_THAT(log(), ElementsAre("3 Unexpected parent vlan1 found for p77\n",
                                   "3 Parent interface vlan1 found while deleting p77\n"));
    EXPECT_THAT(named_by(vlan1()->children), ElementsAre(port1()));
    EXPECT_EQ(vlan1()->oper_count, 1); // what is gone does not run
}

TEST_F(Destroy, a_port_that_leaves_one_parent_of_two_names_the_other) {
    tarn_if *lag = aggregator(7001);
    tarn_if *port = port_with(77, LINK);
    bind(vlan1(), port);
    bind(lag, port);
    remove(port);
    EXPECT_THAT(log(), ElementsAre("3 Unexpected parent vlan1 found for p77\n",
                                   "3 Parent interface vlan1 found while deleting p77\n"));
}

TEST_F(Destroy, an_aggregator_names_its_first_child_once) {
    tarn_if *lag = aggregator(7001);
    tarn_if *a = port_with(77, LINK), *b = port_with(78, LINK);
    attach(lag, a);
    attach(lag, b);
    auto calls = calls_of_removal(lag);
    EXPECT_THAT(calls,
                ElementsAre("delete_all lag7001", "on_unbind lag7001", "remove_proc lag7001"));
    EXPECT_THAT(log(), ElementsAre("3 Child interface p78 found while deleting lag7001\n"));
    EXPECT_THAT(named_by(a->parents), IsEmpty());
    EXPECT_EQ(tarn_ifmgr_logical_port(b), b);
    EXPECT_EQ(a->oper_count, 1);
}

TEST_F(Destroy, an_aggregator_leaves_the_vlans_that_its_ports_brought_and_they_stop_running) {
    tarn_if *lag = aggregator(7001);
    tarn_if *ifp = vlan(10);
    tarn_if *port = port_with(77, LINK);
    add_member(port, 10);
    attach(lag, port);
    EXPECT_EQ(ifp->oper_count, 1);
    remove(lag);
    EXPECT_THAT(log(), ElementsAre("3 Child interface p77 found while deleting lag7001\n",
                                   "3 Unexpected parent vlan10 found for lag7001\n",
                                   "3 Parent interface vlan10 found while deleting lag7001\n"));
    EXPECT_THAT(named_by(ifp->children), IsEmpty());
    EXPECT_EQ(ifp->oper_count, 0);
    EXPECT_EQ(dev_get_flags(ifp->netdev) & IFF_RUNNING, 0u);
}

TEST_F(Destroy, a_record_of_no_known_type_stops_the_kernel) {
    tarn_if *odd = configure([&] {
        tarn_if record{.ifindex = 77, .type = 9};
        tarn_if *out = nullptr;
        EXPECT_EQ(_tarn_ifmgr_if_install(&record, &out, false), 0);
        return out;
    });
    EXPECT_DEATH(tarn_ifmgr_delete_interface(odd), "kernel BUG at");
}

} // namespace
