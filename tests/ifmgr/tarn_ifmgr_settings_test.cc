// The settings of single interfaces.
#include "support/graph_test.h"

#include <cstring>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr u32 NOBODY = 4242;
constexpr u8 OTHER[6] = {2, 0, 0, 0, 9, 9};

class Settings : public GraphTest {};

// --- routed ports --------------------------------------------------------------------------------

TEST_F(Settings, a_port_is_routed_while_it_has_a_vid) {
    tarn_if *port = port_with(77);
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(77, 9), 0);
    EXPECT_EQ(port->vid, 9);
    EXPECT_EQ(port->if_flags, TARN_IF_F_VALID | TARN_IF_F_L3_SWITCHPORT);
    EXPECT_TRUE(tarn_if_is_l3(port));
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(77, 0xFFFF), 0);
    EXPECT_EQ(port->vid, 0xFFFF);
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(77, 0), 0);
    EXPECT_EQ(port->vid, 0);
    EXPECT_EQ(port->if_flags, TARN_IF_F_VALID);
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(NOBODY, 9), TARN_ERR_NO_INTERFACE);
}

// --- flags of all
// ----------------------------------------------------------------------------------

TEST_F(Settings, flags_are_cleared_everywhere_also_of_what_is_destroyed) {
    tarn_if *gone = port_with(77);
    remove(gone);
    std::vector<tarn_if *> all = all_records();
    for (u32 k = 0; k < 20; k++)
        all.push_back(port_with(100 + k));
    std::map<tarn_if *, u32> before;
    for (tarn_if *ifp : all) {
        before[ifp] = ifp->if_flags;
        ifp->if_flags |= TARN_IF_F_ARPSEC | TARN_IF_F_ARPSEC_ACTION | TARN_IF_F_DHCPSN;
    }
    EXPECT_EQ(tarn_ifmgr_clear_flags(TARN_IF_F_ARPSEC | TARN_IF_F_ARPSEC_ACTION), 0);
    for (tarn_if *ifp : all)
        EXPECT_EQ(ifp->if_flags, before[ifp] | TARN_IF_F_DHCPSN) << ifp->name;
    EXPECT_EQ(tarn_ifmgr_clear_flags(TARN_IF_F_DHCPSN), 0);
    for (tarn_if *ifp : all)
        EXPECT_EQ(ifp->if_flags, before[ifp]);
}

TEST(SettingsBeforeStart, there_are_no_flags_to_clear) {
    EXPECT_EQ(tarn_ifmgr_clear_flags(0xFFFFFFFF), 0);
}

// --- options of a VLAN
// -----------------------------------------------------------------------------

TEST_F(Settings, options_are_for_vlans_alone) {
    tarn_if *eth = ethernet(78, "eth9");
    for (tarn_if *ifp : {port1(), eth}) {
        u32 before = ifp->if_flags;
        EXPECT_EQ(tarn_ifmgr_set_vlan_options(ifp, 0x24), -EINVAL);
        EXPECT_EQ(ifp->if_flags, before);
    }
}

TEST_F(Settings, the_options_of_creation_have_no_effect_later) {
    tarn_if *v10 = vlan(10);
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_set_vlan_options(v10, 0x3), 0); });
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(v10->if_flags, TARN_IF_F_VALID);
    tarn_if *v11 = vlan(11, 0x2);
    EXPECT_EQ(tarn_ifmgr_set_vlan_options(v11, 0), 0);
    EXPECT_EQ(v11->if_flags, TARN_IF_F_VALID | TARN_IF_F_VLAN_LOCAL);
}

TEST_F(Settings, a_vlan_made_always_up_runs_at_once) {
    tarn_if *v10 = vlan(10);
    for (int again = 0; again < 2; again++) {
        auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_set_vlan_options(v10, 4), 0); });
        EXPECT_EQ(calls.size(), 1u); // told again, too
        EXPECT_EQ(v10->if_flags, TARN_IF_F_VALID | TARN_IF_F_ALWAYS_UP);
        EXPECT_NE(dev_get_flags(v10->netdev) & IFF_RUNNING, 0u);
    }
}

TEST_F(Settings, a_vlan_no_more_always_up_stops_when_no_port_has_link) {
    tarn_if *v10 = vlan(10, 4);
    add_member(port_with(77, NO_LINK), 10);
    add_member(port_with(78, IFF_RUNNING), 10); // running, but not up
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_set_vlan_options(v10, 0), 0); });
    EXPECT_THAT(calls, ElementsAre("flags_unset vlan10 0x40"));
    EXPECT_EQ(v10->if_flags, TARN_IF_F_VALID);
    settle();
    EXPECT_EQ(dev_get_flags(v10->netdev) & IFF_RUNNING, 0u);
}

TEST_F(Settings, a_vlan_no_more_always_up_goes_on_while_a_port_has_link) {
    tarn_if *v10 = vlan(10, 4);
    add_member(port_with(77, LINK), 10);
    add_member(port_with(78, NO_LINK), 10);
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_set_vlan_options(v10, 0), 0); });
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_NE(dev_get_flags(v10->netdev) & IFF_RUNNING, 0u);
}

TEST_F(Settings, a_vlan_that_never_was_always_up_is_left_alone) {
    tarn_if *v10 = vlan(10);
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_set_vlan_options(v10, 0), 0); });
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(Settings, the_member_check_is_written_in_every_case) {
    tarn_if *v10 = vlan(10);
    for (u32 options : {0x20u, 0x24u, 0x23u, 0xFFFFFFFFu}) {
        tarn_ifmgr_set_vlan_options(v10, options);
        EXPECT_NE(v10->if_flags & TARN_IF_F_NO_VLAN_MEMBER_CHECK, 0u) << options;
        tarn_ifmgr_set_vlan_options(v10, options & ~0x20u);
        EXPECT_EQ(v10->if_flags & TARN_IF_F_NO_VLAN_MEMBER_CHECK, 0u) << options;
    }
}

// --- addresses
// -------------------------------------------------------------------------------------

TEST_F(Settings, the_address_of_a_layer_3_interface_goes_to_its_device) {
    tarn_if *v10 = vlan(10);
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_set_hwaddr(310, 6, OTHER), 0); });
    EXPECT_THAT(calls, ElementsAre("hwaddr_set vlan10 6"));
    EXPECT_EQ(std::memcmp(v10->hwaddr, OTHER, 6), 0);
    EXPECT_EQ(std::memcmp(netdev_addr(v10->netdev), OTHER, 6), 0);
    EXPECT_EQ(v10->port_hwaddr[0], 0);
}

TEST_F(Settings, the_address_is_kept_although_the_device_refuses_it) {
    tarn_if *eth = ethernet(78, "eth9"); // no device at all
    EXPECT_EQ(tarn_ifmgr_set_hwaddr(78, 6, OTHER), 0);
    EXPECT_EQ(std::memcmp(eth->hwaddr, OTHER, 6), 0);
}

TEST_F(Settings, the_address_of_a_port_is_its_own) {
    tarn_if *port = port_with(77, NO_LINK, 1);
    auto calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_set_hwaddr(77, 6, OTHER), 0); });
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(std::memcmp(port->port_hwaddr, OTHER, 6), 0);
    EXPECT_EQ(port->hwaddr[0], 0);
    tarn_ifmgr_l3_switchport_set(77, 9);
    calls = seams::calls_of([&] { EXPECT_EQ(tarn_ifmgr_set_hwaddr(77, 6, ADDRESS), 0); });
    EXPECT_THAT(calls, ElementsAre("hwaddr_set p77 6"));
    EXPECT_EQ(std::memcmp(port->port_hwaddr, OTHER, 6), 0);
    EXPECT_EQ(std::memcmp(port->hwaddr, ADDRESS, 6), 0);
}

TEST_F(Settings, an_address_has_six_bytes_at_most) {
    tarn_if *port = port_with(77);
    const u8 address[8] = {2, 1, 2, 3, 4, 5, 6, 7};
    port->stack_member = 0; // what follows the address
    EXPECT_EQ(tarn_ifmgr_set_hwaddr(77, 8, address), 0);
    EXPECT_THAT(port->port_hwaddr, ElementsAre(2, 1, 2, 3, 4, 5));
    EXPECT_EQ(port->stack_member, 0u);
    EXPECT_EQ(tarn_ifmgr_set_hwaddr(77, 2, OTHER), 0);
    EXPECT_THAT(port->port_hwaddr, ElementsAre(2, 0, 2, 3, 4, 5));
    EXPECT_EQ(tarn_ifmgr_set_hwaddr(NOBODY, 6, OTHER), TARN_ERR_NO_INTERFACE);
}

// --- FIB
// -------------------------------------------------------------------------------------------

TEST_F(Settings, a_layer_3_interface_is_bound_to_one_fib) {
    EXPECT_EQ(tarn_ifmgr_if_bind_fib(301, 5), 0);
    EXPECT_EQ(vlan1()->fib_id, 5u);
    EXPECT_EQ(tarn_ifmgr_if_bind_fib(301, 6), 0);
    EXPECT_EQ(vlan1()->fib_id, 6u);
    EXPECT_EQ(tarn_ifmgr_if_unbind_fib(301, 5), TARN_ERR_WRONG_TYPE);
    EXPECT_EQ(vlan1()->fib_id, 6u);
    EXPECT_EQ(tarn_ifmgr_if_unbind_fib(301, 6), 0);
    EXPECT_EQ(vlan1()->fib_id, 0u);
    EXPECT_EQ(tarn_ifmgr_if_unbind_fib(301, 6), TARN_ERR_WRONG_TYPE);
    EXPECT_EQ(tarn_ifmgr_if_unbind_fib(301, 0), 0);
}

TEST_F(Settings, a_port_is_bound_to_a_fib_when_it_is_routed) {
    EXPECT_EQ(tarn_ifmgr_if_bind_fib(5001, 5), TARN_ERR_WRONG_TYPE);
    EXPECT_EQ(tarn_ifmgr_if_unbind_fib(5001, 0), TARN_ERR_WRONG_TYPE);
    tarn_ifmgr_l3_switchport_set(5001, 9);
    EXPECT_EQ(tarn_ifmgr_if_bind_fib(5001, 5), 0);
    EXPECT_EQ(port1()->fib_id, 5u);
    tarn_ifmgr_l3_switchport_set(5001, 0);
    EXPECT_EQ(tarn_ifmgr_if_bind_fib(NOBODY, 5), TARN_ERR_NO_INTERFACE);
    EXPECT_EQ(tarn_ifmgr_if_unbind_fib(NOBODY, 5), TARN_ERR_NO_INTERFACE);
}

// --- port mirror
// -----------------------------------------------------------------------------------

struct MirrorRow {
    u32 target, source, direction, vid;
    i32 result;
    u32 mirror; // of the source 71 afterwards
};
class Mirror : public GraphTest, public ::testing::WithParamInterface<MirrorRow> {};

// 71 and 72 are plain ports, 73 is mirrored to 74.
TEST_P(Mirror, is_set_by_these_rules) {
    tarn_if *source = port_with(71);
    port_with(72);
    port_with(73)->mirror_ifindex = 74;
    port_with(74);
    MirrorRow row = GetParam();
    EXPECT_EQ(tarn_ifmgr_set_portmirror(row.target, row.source, row.direction, row.vid),
              row.result);
    EXPECT_EQ(source->mirror_ifindex, row.mirror);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, Mirror,
    ::testing::Values(MirrorRow{72, 71, 2, 0, 0, 72}, MirrorRow{72, 71, 3, 0, 0, 72},
                      MirrorRow{72, 71, 0xFFFFFFFF, 0, 0, 72}, MirrorRow{72, 71, 1, 0, 0, 0},
                      MirrorRow{72, 71, 0, 0, 0, 0}, MirrorRow{72, 71, 2, 10, 0, 0},
                      MirrorRow{72, NOBODY, 1, 0, 0, 0}, // not asked for
                      MirrorRow{72, NOBODY, 2, 0, -EINVAL, 0},
                      MirrorRow{NOBODY, NOBODY, 2, 0, -EINVAL, 0},
                      MirrorRow{NOBODY, 71, 2, 0, 0, 0}, // silently
                      MirrorRow{73, 71, 2, 0, -EINVAL, 0}, MirrorRow{71, 71, 2, 0, -EINVAL, 0},
                      MirrorRow{301, 71, 2, 0, 0, 301})); // of any type

TEST_F(Settings, an_unknown_mirror_target_leaves_the_mirror_as_it_is) {
    port1()->mirror_ifindex = 9;
    EXPECT_EQ(tarn_ifmgr_set_portmirror(NOBODY, 5001, 2, 0), 0);
    EXPECT_EQ(port1()->mirror_ifindex, 9u);
}

TEST_F(Settings, a_mirror_is_taken_back_whatever_its_target) {
    for (u32 target : {72u, NOBODY}) {
        port1()->mirror_ifindex = 72;
        EXPECT_EQ(tarn_ifmgr_unset_portmirror(target, 5001, 1, 0), 0);
        EXPECT_EQ(tarn_ifmgr_unset_portmirror(target, 5001, 2, 10), 0);
        EXPECT_EQ(port1()->mirror_ifindex, 72u);
        EXPECT_EQ(tarn_ifmgr_unset_portmirror(target, 5001, 2, 0), 0);
        EXPECT_EQ(port1()->mirror_ifindex, 0u);
    }
    EXPECT_EQ(tarn_ifmgr_unset_portmirror(5001, NOBODY, 2, 0), -EINVAL);
    EXPECT_EQ(tarn_ifmgr_unset_portmirror(5001, NOBODY, 1, 0), 0);
}

// --- spanning tree
// ---------------------------------------------------------------------------------

TEST_F(Settings, a_port_has_a_state_in_each_of_64_instances) {
    tarn_if *port = port_with(77);
    for (u32 instance : {0u, 1u, 63u}) {
        EXPECT_EQ(tarn_ifmgr_stp_port_state_set(77, instance, TARN_STP_LEARNING), 0);
        EXPECT_EQ(port->stp_state[instance], TARN_STP_LEARNING);
    }
    EXPECT_EQ(port->stp_state[2], TARN_STP_BLOCKING);
    EXPECT_EQ(tarn_ifmgr_stp_port_state_set(77, 2, 99), 0); // whatever it means
    EXPECT_EQ(port->stp_state[2], 99u);
}

TEST_F(Settings, there_is_no_instance_above_63) {
    tarn_if *port = port_with(77);
    tarn_if before = *port;
    for (u32 instance : {64u, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(tarn_ifmgr_stp_port_state_set(77, instance, 1), -EINVAL);
        EXPECT_EQ(tarn_ifmgr_stp_vlan_inst_add(instance, 1), -EINVAL);
    }
    EXPECT_EQ(std::memcmp(&before, port, sizeof(before)), 0);
    EXPECT_EQ(vlan1()->stp_instance, 0);
}

TEST_F(Settings, only_a_port_has_spanning_tree_states) {
    tarn_if *eth = ethernet(78, "eth9");
    EXPECT_EQ(tarn_ifmgr_stp_port_state_set(301, 0, 1), -EINVAL);
    EXPECT_EQ(tarn_ifmgr_stp_port_state_set(78, 0, 1), -EINVAL);
    EXPECT_EQ(tarn_ifmgr_stp_port_state_set(NOBODY, 0, 1), -EINVAL);
    EXPECT_EQ(vlan1()->stp_state[0], TARN_STP_FORWARDING);
    EXPECT_EQ(eth->stp_state[0], TARN_STP_FORWARDING);
}

TEST_F(Settings, a_vlan_belongs_to_one_instance) {
    EXPECT_EQ(tarn_ifmgr_stp_vlan_inst_add(63, 1), 0);
    EXPECT_EQ(vlan1()->stp_instance, 63);
    EXPECT_EQ(tarn_ifmgr_stp_vlan_inst_delete(1), 0);
    EXPECT_EQ(vlan1()->stp_instance, 0);
    EXPECT_EQ(tarn_ifmgr_stp_vlan_inst_add(1, 10), -EINVAL);
    EXPECT_EQ(tarn_ifmgr_stp_vlan_inst_delete(10), -EINVAL);
}

TEST_F(Settings, a_frame_is_in_the_state_of_its_port_in_the_instance_of_its_vlan) {
    tarn_if *port = port_with(77);
    tarn_ifmgr_stp_port_state_set(77, 7, TARN_STP_LEARNING);
    EXPECT_EQ(tarn_ifmgr_stp_state(port, vlan1()), TARN_STP_BLOCKING);
    tarn_ifmgr_stp_vlan_inst_add(7, 1);
    EXPECT_EQ(tarn_ifmgr_stp_state(port, vlan1()), TARN_STP_LEARNING);
    tarn_ifmgr_stp_vlan_inst_delete(1);
    EXPECT_EQ(tarn_ifmgr_stp_state(port, vlan1()), TARN_STP_BLOCKING);
}

// --- upstream interfaces
// ---------------------------------------------------------------------------

TEST_F(Settings, upstream_interfaces_are_added_first_and_removed_one_at_a_time) {
    tarn_if *v10 = vlan(10), *a = port_with(71), *b = port_with(72);
    tarn_ifmgr_list_node *node = tarn_ifmgr_vlan_upstream_if_add(v10, a);
    EXPECT_EQ(node, v10->upstream_ifs);
    EXPECT_EQ(node->ifp, a);
    tarn_ifmgr_vlan_upstream_if_add(v10, b);
    tarn_ifmgr_vlan_upstream_if_add(v10, a); // again
    EXPECT_THAT(named_by(v10->upstream_ifs), ElementsAre(a, b, a));
    EXPECT_EQ(refcount_read(&a->refcnt), 1);
    tarn_ifmgr_vlan_upstream_if_delete(v10, a);
    EXPECT_THAT(named_by(v10->upstream_ifs), ElementsAre(b, a));
    tarn_ifmgr_vlan_upstream_if_delete(v10, v10); // not there
    EXPECT_THAT(named_by(v10->upstream_ifs), ElementsAre(b, a));
    tarn_ifmgr_vlan_all_upstream_ifs_delete(v10);
    EXPECT_EQ(v10->upstream_ifs, nullptr);
    tarn_ifmgr_vlan_all_upstream_ifs_delete(v10);
    tarn_ifmgr_vlan_upstream_if_delete(v10, a);
}

TEST_F(Settings, an_upstream_interface_may_be_refused_for_memory) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_ifmgr_vlan_upstream_if_add(vlan1(), port1()), nullptr);
    EXPECT_EQ(vlan1()->upstream_ifs, nullptr);
}

TEST_F(Settings, frames_pass_when_one_end_is_upstream_or_nobody_is) {
    tarn_if *v10 = vlan(10), *up = port_with(71), *a = port_with(72), *b = port_with(73);
    EXPECT_TRUE(tarn_ifmgr_vlan_inter_if_forwarding_allowed(v10, a, b));
    tarn_ifmgr_vlan_upstream_if_add(v10, up);
    EXPECT_FALSE(tarn_ifmgr_vlan_inter_if_forwarding_allowed(v10, a, b));
    EXPECT_FALSE(tarn_ifmgr_vlan_inter_if_forwarding_allowed(v10, a, a));
    EXPECT_TRUE(tarn_ifmgr_vlan_inter_if_forwarding_allowed(v10, up, b));
    EXPECT_TRUE(tarn_ifmgr_vlan_inter_if_forwarding_allowed(v10, a, up));
    EXPECT_TRUE(tarn_ifmgr_vlan_inter_if_forwarding_allowed(v10, nullptr, b));
    EXPECT_TRUE(tarn_ifmgr_vlan_inter_if_forwarding_allowed(v10, a, nullptr));
    EXPECT_TRUE(tarn_ifmgr_vlan_inter_if_forwarding_allowed(vlan1(), a, b)); // another VLAN
    tarn_ifmgr_vlan_all_upstream_ifs_delete(v10);
}

} // namespace
