// Link state: what the daemon says of a port, and what follows.
#include "support/graph_test.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Link : public GraphTest {
protected:
    bool carrier(const tarn_if *ifp) { return netif_carrier_ok(ifp->netdev); }
    std::vector<std::string> flushed() {
        std::vector<std::string> all;
        for (const auto &flush : userlevel::neigh_flushes_take())
            all.push_back(std::string(flush.table) + " " + std::to_string(flush.vid) + " " +
                          (flush.device ? netdev_name(flush.device) : "any") + " " +
                          std::to_string(flush.ifindex));
        return all;
    }
};

struct Row {
    u32 flags, was_up;
    int change; // of the count
};
class LinkCheck : public GraphTest, public ::testing::WithParamInterface<Row> {};

TEST_P(LinkCheck, acts_on_a_change_alone) {
    tarn_if *port = port_with(77);
    port->oper_count = 5;
    port->flags = GetParam().flags;
    userlevel::neigh_flushes_take();
    tarn_ifmgr_L2_link_state_check(port, GetParam().was_up);
    EXPECT_EQ(port->oper_count, 5 + GetParam().change);
    EXPECT_EQ(userlevel::neigh_flushes_take().size(), GetParam().change < 0 ? 2u : 0u);
    EXPECT_EQ(update_data.work.queued, GetParam().change != 0);
}
INSTANTIATE_TEST_SUITE_P(Rows, LinkCheck,
                         ::testing::Values(Row{0x41, 0, 1}, Row{0x1043, 0, 1}, Row{0x41, 1, 0},
                                           Row{0x1, 0, 0}, Row{0x40, 0, 0}, Row{0, 0, 0},
                                           Row{0x1, 1, -1}, Row{0x40, 1, -1}, Row{0, 1, -1},
                                           Row{0xFFFFFFBE, 1, -1}));

TEST_F(Link, a_port_that_comes_up_counts_and_gets_carrier) {
    tarn_if *port = port_with(77, 0x1, 1);
    EXPECT_FALSE(carrier(port));
    set_flags(port, 0x41);
    EXPECT_EQ(port->oper_count, 1);
    EXPECT_TRUE(carrier(port));
    EXPECT_THAT(flushed(), IsEmpty());
}

TEST_F(Link, a_port_that_goes_down_is_counted_out_flushed_and_loses_carrier) {
    tarn_if *port = port_with(77, 0x41, 1);
    EXPECT_TRUE(carrier(port));
    set_flags(port, 0x1);
    EXPECT_EQ(port->oper_count, 0);
    EXPECT_FALSE(carrier(port));
    EXPECT_THAT(flushed(), ElementsAre("arp -1 any 77", "ndisc -1 any 77"));
}

TEST_F(Link, a_port_without_a_device_has_no_carrier_to_change) {
    tarn_if *port = port_with(77, 0x41);
    set_flags(port, 0x1);
    set_flags(port, 0x41);
    EXPECT_EQ(port->oper_count, 1);
}

// Its members count for it.
TEST_F(Link, an_interface_with_children_is_flushed_but_counts_nothing_of_its_own) {
    tarn_if *lag = aggregator(7001);
    attach(lag, port_with(77, LINK));
    EXPECT_EQ(lag->oper_count, 1);
    set_flags(lag, NO_LINK);
    EXPECT_EQ(lag->oper_count, 1);
    EXPECT_THAT(flushed(), ElementsAre("arp -1 any 7001", "ndisc -1 any 7001"));
    set_flags(lag, LINK);
    EXPECT_EQ(lag->oper_count, 1);
    EXPECT_THAT(waiting(), IsEmpty());
}

TEST_F(Link, a_dynamic_aggregator_runs_when_it_is_told_so) {
    tarn_if *lag = aggregator(7001, TARN_AGG_TYPE_DYNAMIC);
    attach(lag, port_with(77));
    set_flags(lag, 0x1);
    EXPECT_EQ(tarn_ifmgr_L2_link_up(lag), 0);
    EXPECT_EQ(lag->flags, 0x41u);
}

TEST_F(Link, a_static_aggregator_does_not_run_because_it_is_told_so) {
    tarn_if *lag = aggregator(7001);
    attach(lag, port_with(77));
    set_flags(lag, 0x1);
    EXPECT_EQ(tarn_ifmgr_L2_link_up(lag), 0);
    EXPECT_EQ(lag->flags, 0x1u);
}

TEST_F(Link, a_vlan_follows_the_last_of_its_ports) {
    tarn_if *v10 = vlan(10), *a = port_with(77, LINK), *b = port_with(78, LINK);
    add_member(a, 10);
    add_member(b, 10);
    auto running = [&] {
        settle();
        return (dev_get_flags(v10->netdev) & IFF_RUNNING) != 0;
    };
    EXPECT_TRUE(running());
    set_flags(a, NO_LINK);
    EXPECT_TRUE(running());
    set_flags(b, DOWN);
    EXPECT_FALSE(running());
    set_flags(b, LINK);
    EXPECT_TRUE(running());
}

// --- adding flags
// ----------------------------------------------------------------------------------

TEST_F(Link, flags_are_added) {
    tarn_if *port = port_with(77, 0x2);
    EXPECT_EQ(_tarn_ifmgr_flags_set(port, 0x1001), 0);
    EXPECT_EQ(port->flags, 0x1003u);
    EXPECT_EQ(port->oper_count, 0);
}

TEST_F(Link, flags_that_give_a_port_link_are_acted_upon_once) {
    tarn_if *port = port_with(77, 0x1);
    _tarn_ifmgr_flags_set(port, 0x40);
    EXPECT_EQ(port->oper_count, 1);
    _tarn_ifmgr_flags_set(port, 0x43);
    EXPECT_EQ(port->oper_count, 1);
    EXPECT_THAT(waiting(), ElementsAre(port));
}

TEST_F(Link, flags_of_an_aggregator_are_only_kept) {
    tarn_if *lag = aggregator(7001);
    EXPECT_EQ(_tarn_ifmgr_flags_set(lag, 0x41), 0);
    EXPECT_EQ(lag->flags, 0x41u);
    EXPECT_EQ(lag->oper_count, 0);
    EXPECT_FALSE(update_data.work.queued);
}

TEST_F(Link, flags_of_a_vlan_are_told_to_its_device) {
    tarn_if *v10 = vlan(10);
    auto calls = seams::calls_of([&] { EXPECT_EQ(_tarn_ifmgr_flags_set(v10, 0x41), 0); });
    EXPECT_THAT(calls, ElementsAre("flags_set vlan10 0x41")); // what was added, not what it has
    EXPECT_EQ(v10->flags & 0x1043, 0x1043u);
    seams::ifmgr().flags_set_result = -EINVAL;
    EXPECT_EQ(_tarn_ifmgr_flags_set(v10, 0x41), 0); // whatever the device says
}

TEST_F(Link, flags_of_an_ethernet_interface_are_only_kept) {
    tarn_if *eth = ethernet(78, "eth9", 0x2);
    auto calls = seams::calls_of([&] { EXPECT_EQ(_tarn_ifmgr_flags_set(eth, 0x41), 0); });
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(eth->flags, 0x43u);
    EXPECT_EQ(eth->oper_count, 0);
}

} // namespace
