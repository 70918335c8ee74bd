// How interface records enter the database.
#include "support/graph_test.h"

#include "ifmgr/tarn_ifmgr_event.h"
#include "redirects/redirects.h"
#include "sockets/sockets.h"

#include <cstring>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr u8 OTHER[6] = {2, 0, 0, 0, 9, 9};

class Create : public GraphTest {
protected:
    // The call, with the n-th allocation failing; nothing may leak.
    i32 without_memory(u64 n, const std::function<i32()> &create) {
        userlevel::fail_allocation(n);
        i32 result = create();
        userlevel::fail_allocation(0);
        expect_nothing_leaked();
        return result;
    }
    tarn_if *found(u32 ifindex) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(ifp);
        return ifp;
    }
};

// --- Ethernet ----------------------------------------------------------------------------------

TEST_F(Create, an_ethernet_interface_takes_what_it_is_told_and_finds_its_device) {
    net_device *device = configure([] { return userlevel::netdev_create("eth9"); });
    i32 references = device->references;
    tarn_if *ifp = configure([&] {
        EXPECT_EQ(tarn_ifmgr_ethernet_create("eth9", ADDRESS, 0x1043, 77, 2), 0);
        return found(77);
    });
    ASSERT_NE(ifp, nullptr);
    EXPECT_STREQ(ifp->name, "eth9");
    EXPECT_EQ(ifp->type, TARN_IF_TYPE_ETHERNET);
    EXPECT_EQ(ifp->flags, 0x1043u);
    EXPECT_EQ(ifp->if_flags, TARN_IF_F_VALID);
    EXPECT_EQ(ifp->oper_count, 0);
    EXPECT_EQ(std::memcmp(ifp->hwaddr, ADDRESS, 6), 0);
    EXPECT_EQ(ifp->netdev, device);
    EXPECT_EQ(device->references, references + 1);
}

TEST_F(Create, an_ethernet_interface_need_not_have_a_device) {
    tarn_if *ifp = ethernet(77, "eth9");
    EXPECT_EQ(ifp->netdev, nullptr);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Create, an_ethernet_interface_has_the_type_that_it_is_given) {
    configure([&] { EXPECT_EQ(tarn_ifmgr_ethernet_create("odd", ADDRESS, 0, 77, 9), 0); });
    EXPECT_EQ(found(77)->type, 9u);
}

TEST_F(Create, an_ethernet_interface_wants_an_address_even_when_it_is_there) {
    EXPECT_EQ(tarn_ifmgr_ethernet_create("eth9", nullptr, 0, 77, 2), TARN_ERR_BAD_ARG);
    EXPECT_EQ(tarn_ifmgr_ethernet_create("eth9", nullptr, 0, 5001, 2), TARN_ERR_BAD_ARG);
    EXPECT_EQ(found(77), nullptr);
}

TEST_F(Create, an_ethernet_interface_that_is_there_stays_as_it_is) {
    tarn_if *ifp = ethernet(77, "eth9", 0x3);
    EXPECT_EQ(tarn_ifmgr_ethernet_create("other", OTHER, 0x43, 77, 2), 0);
    EXPECT_EQ(found(77), ifp);
    EXPECT_STREQ(ifp->name, "eth9");
    EXPECT_EQ(ifp->flags, 0x3u);
    EXPECT_EQ(std::memcmp(ifp->hwaddr, ADDRESS, 6), 0);
}

TEST_F(Create, an_ethernet_interface_may_be_refused_for_memory) {
    auto create = [] { return tarn_ifmgr_ethernet_create("eth9", ADDRESS, 0, 77, 2); };
    EXPECT_EQ(without_memory(1, create), TARN_ERR_NO_MEMORY); // the template
    EXPECT_THAT(log(), IsEmpty());
    constexpr auto said = "4 tarn_ifmgr_ethernet_create Interface adding interface for eth9 "
                          "FAILED.\n";
    EXPECT_EQ(without_memory(2, create), TARN_ERR_NO_MEMORY); // the record
    EXPECT_THAT(log(), ElementsAre(said));
    EXPECT_EQ(without_memory(3, create), TARN_ERR_TREE_INSERT); // its place in the tree
    EXPECT_THAT(log(), ElementsAre(said));
    EXPECT_EQ(found(77), nullptr);
}

TEST_F(Create, a_name_is_cut_at_16_bytes_and_a_device_name_at_15) {
    net_device *device = configure([] { return userlevel::netdev_create("abcdefghijklmno"); });
    tarn_if *ifp = ethernet(77, "abcdefghijklmnopqrst");
    EXPECT_EQ(std::string(ifp->name, 16), "abcdefghijklmnop");
    EXPECT_EQ(ifp->netdev, device);
    EXPECT_EQ(ifp->openflow, 0); // the byte behind the name
}

// --- switch ports ------------------------------------------------------------------------------

TEST_F(Create, a_port_takes_what_it_is_told) {
    configure(
        [] { EXPECT_EQ(tarn_ifmgr_switchport_create("port77", ADDRESS, 0x1003, 5, 77, 0), 0); });
    tarn_if *port = found(77);
    ASSERT_NE(port, nullptr);
    EXPECT_STREQ(port->name, "port77");
    EXPECT_EQ(port->type, TARN_IF_TYPE_SWITCHPORT);
    EXPECT_EQ(port->flags, 0x1003u);
    EXPECT_EQ(port->stack_member, 5u);
    EXPECT_EQ(std::memcmp(port->port_hwaddr, ADDRESS, 6), 0);
    EXPECT_EQ(port->hwaddr[5], 0);
    EXPECT_EQ(port->netdev, nullptr);
    EXPECT_EQ(port->oper_count, 0);
    for (u32 word = 0; word < TARN_VLAN_COUNT / 32; word++)
        EXPECT_EQ(port->vlan_member_bmp[word] | port->vlan_tagged_bmp[word] |
                      port->vlan_disabled_bmp[word],
                  0u);
}

TEST_F(Create, a_port_has_its_files) {
    auto calls = seams::calls_of([&] { port_with(77); });
    EXPECT_THAT(calls, ElementsAre("create_proc p77"));
}

TEST_F(Create, a_port_that_is_there_is_asked_for_before_the_address) {
    EXPECT_EQ(tarn_ifmgr_switchport_create("other", nullptr, 0, 0, 5001, 0), 0);
    EXPECT_EQ(tarn_ifmgr_switchport_create("other", nullptr, 0, 0, 77, 0), TARN_ERR_BAD_ARG);
    EXPECT_EQ(found(77), nullptr);
}

TEST_F(Create, a_port_that_is_there_stays_as_it_is) {
    EXPECT_EQ(tarn_ifmgr_switchport_create("other", OTHER, 0, 9, 5001, 1), 0);
    EXPECT_STREQ(port1()->name, "port1");
    EXPECT_EQ(port1()->flags, 0x43u);
    EXPECT_EQ(port1()->stack_member, 0u);
    EXPECT_EQ(port1()->netdev, nullptr);
    EXPECT_NE(port1()->port_hwaddr[4], 9);
}

TEST_F(Create, a_port_may_be_refused_for_memory) {
    auto create = [] { return tarn_ifmgr_switchport_create("p77", ADDRESS, 0, 0, 77, 0); };
    EXPECT_EQ(without_memory(1, create), TARN_ERR_NO_MEMORY);
    EXPECT_THAT(log(), IsEmpty());
    constexpr auto said = "4 tarn_ifmgr_switchport_create Interface adding interface for p77 "
                          "FAILED.\n";
    EXPECT_EQ(without_memory(2, create), TARN_ERR_NO_MEMORY);
    EXPECT_THAT(log(), ElementsAre(said));
    EXPECT_EQ(without_memory(3, create), TARN_ERR_TREE_INSERT);
    EXPECT_THAT(log(), ElementsAre(said));
    EXPECT_EQ(found(77), nullptr);
}

struct LinkRow {
    u32 flags;
    u8 counted;
};
class CreatePort : public GraphTest, public ::testing::WithParamInterface<LinkRow> {};

TEST_P(CreatePort, a_port_that_is_up_and_running_has_link_from_the_start) {
    tarn_if *port = port_with(77, GetParam().flags);
    EXPECT_EQ(port->oper_count, GetParam().counted);
    EXPECT_EQ(port->flags, GetParam().flags);
    EXPECT_EQ(refcount_read(&port->refcnt), 1);
}
INSTANTIATE_TEST_SUITE_P(Flags, CreatePort,
                         ::testing::Values(LinkRow{0, 0}, LinkRow{0x1, 0}, LinkRow{0x40, 0},
                                           LinkRow{0x41, 1}, LinkRow{0x1043, 1},
                                           LinkRow{0x1003, 0}),
                         [](const auto &row) { return std::to_string(row.param.flags); });

TEST_F(Create, a_port_born_routed_has_a_device) {
    auto calls = seams::calls_of([&] { port_with(77, LINK, 1); });
    EXPECT_THAT(calls, ElementsAre("create_proc p77", "configure p77 6", "flags_set p77 0x1043"));
    tarn_if *port = found(77);
    ASSERT_NE(port->netdev, nullptr);
    EXPECT_STREQ(netdev_name(port->netdev), "p77");
    EXPECT_EQ(netdev_ifindex(port->netdev), 77u);
    EXPECT_EQ(std::memcmp(netdev_addr(port->netdev), ADDRESS, 6), 0);
    EXPECT_EQ(dev_get_flags(port->netdev) & TARN_IF_LINK, TARN_IF_LINK);
    EXPECT_EQ(port->oper_count, 1);
}

TEST_F(Create, any_value_but_0_makes_a_port_routed) {
    EXPECT_EQ(port_with(77, NO_LINK, 0)->netdev, nullptr);
    EXPECT_NE(port_with(78, NO_LINK, 0xFF)->netdev, nullptr);
}

TEST_F(Create, a_port_born_routed_lives_on_when_its_flags_are_refused) {
    seams::ifmgr().flags_set_result = -EINVAL;
    tarn_if *port = port_with(77, LINK, 1);
    EXPECT_THAT(log(), ElementsAre("4 tarn_ifmgr_switchport_create Failed to set flags for p77\n"));
    EXPECT_EQ(port->oper_count, 1);
    EXPECT_TRUE(netif_carrier_ok(port->netdev));
}

TEST_F(Create, a_port_whose_device_cannot_be_made_is_given_up_safely) {
    configure([&] { userlevel::netdev_create("p77"); }); // not this module's: not taken over
    i32 result = 0;
    auto calls = seams::calls_of([&] {
        result =
            configure([&] { return tarn_ifmgr_switchport_create("p77", ADDRESS, LINK, 0, 77, 1); });
    });
    EXPECT_EQ(result, TARN_ERR_NETDEV);
    EXPECT_THAT(log(), ElementsAre("4 tarn_ifmgr_switchport_create Adding interface for p77 "
                                   "FAILED. (failure to create netdev)\n"));
    EXPECT_THAT(calls, ::testing::Contains("remove_proc p77"));
    EXPECT_EQ(found(77), nullptr);
    // Its place in the tree is used again.
    auto before = all_records();
    tarn_if *port = port_with(77, LINK, 0);
    EXPECT_EQ(all_records(), before);
    EXPECT_EQ(refcount_read(&port->refcnt), 1);
    EXPECT_EQ(port->oper_count, 1);
}

TEST_F(Create, a_port_may_be_held_by_a_frame_while_its_device_cannot_be_made) {
    configure([&] { userlevel::netdev_create("p77"); });
    tarn_if *held = nullptr;
    seams::ifmgr().on_configure = [&] { held = tarn_ifmgr_lookup_by_index(77); };
    configure([&] {
        EXPECT_EQ(tarn_ifmgr_switchport_create("p77", ADDRESS, LINK, 0, 77, 1), TARN_ERR_NETDEV);
    });
    forget_log();
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(found(77), nullptr);
    tarn_ifmgr_if_ref_put(held);
    EXPECT_THAT(log(), IsEmpty());
    remember();
}

TEST_F(Create, a_port_made_again_after_its_end_uses_the_same_record) {
    tarn_if *port = port_with(77, LINK);
    add_member(port, 1);
    port->default_pvid = 9;
    remove(port);
    EXPECT_EQ(found(77), nullptr);
    EXPECT_EQ(port_with(77, NO_LINK), port);
    EXPECT_EQ(refcount_read(&port->refcnt), 1);
    EXPECT_EQ(port->flags, NO_LINK);
    EXPECT_EQ(port->oper_count, 0);
    EXPECT_EQ(port->default_pvid, 0);
    EXPECT_FALSE(tarn_vlan_port_member_check(port, 1));
}

// A frame in flight holds the old one.
TEST_F(Create, a_port_made_again_while_the_old_one_is_held_is_another_record) {
    tarn_if *old = port_with(77, LINK, 1);
    add_member(old, 1);
    tarn_if *held = found(77);
    _tarn_ifmgr_if_hold(held);
    remember();
    configure([&] {
        tarn_if *mine = tarn_ifmgr_lookup_by_index(77);
        tarn_ifmgr_delete_interface(mine);
        tarn_ifmgr_if_ref_put(mine);
    });
    EXPECT_EQ(refcount_read(&held->refcnt), 1); // the frame's

    tarn_if *port = port_with(77, LINK, 1);
    EXPECT_NE(port, old);
    EXPECT_EQ(refcount_read(&port->refcnt), 1);
    net_device *device = port->netdev;
    ASSERT_NE(device, nullptr);
    EXPECT_FALSE(tarn_ifmgr_isbound(vlan1(), old));
    EXPECT_EQ(vlan1()->oper_count, 1); // port1

    // The frame lets go: what is new stays as it is.
    auto calls = seams::calls_of([&] { tarn_ifmgr_if_ref_put(held); });
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(port->netdev, device);
    EXPECT_THAT(userlevel::netdevs(), ::testing::Contains(device));
    EXPECT_EQ(found(77), port);
}

// However often that happens, there are as many records as there are holders at once.
TEST_F(Create, the_record_of_a_port_that_was_held_is_used_again) {
    tarn_if *first = port_with(77);
    auto made_anew_while_held = [&](tarn_if *old) {
        _tarn_ifmgr_if_hold(old);
        remember();
        configure([&] {
            tarn_if *mine = tarn_ifmgr_lookup_by_index(77);
            tarn_ifmgr_delete_interface(mine);
            tarn_ifmgr_if_ref_put(mine);
        });
        return port_with(77, LINK);
    };
    tarn_if *second = made_anew_while_held(first);
    EXPECT_NE(second, first);
    tarn_if *third = made_anew_while_held(second);
    EXPECT_NE(third, first) << "somebody holds it";
    tarn_ifmgr_if_ref_put(first);
    tarn_ifmgr_if_ref_put(second);
    const std::size_t alive = userlevel::live().size();
    tarn_if *fourth = made_anew_while_held(third);
    EXPECT_TRUE(fourth == first || fourth == second);
    EXPECT_EQ(userlevel::live().size(), alive);
    EXPECT_EQ(fourth->flags, LINK);
    EXPECT_EQ(refcount_read(&fourth->refcnt), 1);
    EXPECT_NE(port_with(78), fourth == first ? second : first) << "of another number";
    tarn_ifmgr_if_ref_put(third);
    EXPECT_EQ(found(77), fourth);
    remember();
}

// A port named like a VLAN's number, and the VLAN, in turn.
TEST_F(Create, a_port_and_a_vlan_that_take_turns_need_two_records) {
    std::size_t alive = 0;
    for (int turn = 0; turn < 6; turn++) {
        remove(vlan(10));
        remove(port_with(310));
        if (turn == 1)
            alive = userlevel::live().size();
    }
    EXPECT_EQ(userlevel::live().size(), alive);
}

// --- aggregators -------------------------------------------------------------------------------

struct AggRow {
    u32 type;
    i32 result;
    u32 if_flags;
};
class CreateAggregator : public GraphTest, public ::testing::WithParamInterface<AggRow> {};

TEST_P(CreateAggregator, the_type_decides) {
    i32 result =
        configure([&] { return tarn_ifmgr_aggregator_add("lag", ADDRESS, GetParam().type, 7001); });
    EXPECT_EQ(result, GetParam().result);
    tarn_if *lag = tarn_ifmgr_lookup_by_index(7001);
    EXPECT_EQ(lag != nullptr, result == 0);
    if (!lag)
        return;
    EXPECT_EQ(lag->if_flags, GetParam().if_flags | TARN_IF_F_VALID);
    EXPECT_EQ(lag->type, TARN_IF_TYPE_SWITCHPORT);
    EXPECT_EQ(lag->flags, 0u);
    EXPECT_EQ(lag->netdev, nullptr);
    EXPECT_STREQ(lag->name, "lag");
    EXPECT_EQ(std::memcmp(lag->port_hwaddr, ADDRESS, 6), 0);
    tarn_ifmgr_if_ref_put(lag);
}
INSTANTIATE_TEST_SUITE_P(Types, CreateAggregator,
                         ::testing::Values(AggRow{0, TARN_ERR_BAD_ARG, 0},
                                           AggRow{1, TARN_ERR_BAD_ARG, 0},
                                           AggRow{2, 0, TARN_IF_F_AGG_DYNAMIC},
                                           AggRow{3, 0, TARN_IF_F_AGG_STATIC},
                                           AggRow{4, TARN_ERR_BAD_ARG, 0}),
                         [](const auto &row) { return std::to_string(row.param.type); });

TEST_F(Create, an_aggregator_wants_a_name_and_an_address_first_of_all) {
    EXPECT_EQ(tarn_ifmgr_aggregator_add(nullptr, ADDRESS, 3, 5001), TARN_ERR_BAD_ARG);
    EXPECT_EQ(tarn_ifmgr_aggregator_add("lag", nullptr, 3, 5001), TARN_ERR_BAD_ARG);
}

TEST_F(Create, an_aggregator_that_is_there_is_asked_for_before_the_type) {
    EXPECT_EQ(tarn_ifmgr_aggregator_add("lag", ADDRESS, 9, 5001), 0);
    EXPECT_STREQ(port1()->name, "port1");
    EXPECT_EQ(port1()->if_flags, TARN_IF_F_VALID);
}

TEST_F(Create, an_aggregator_that_appears_in_the_meantime_is_told_of) {
    int lookups = 0;
    seams::ifmgr().before_lookup = [&](u32 ifindex) {
        if (ifindex != 7001 || ++lookups != 2)
            return;
        seams::ifmgr().before_lookup = nullptr;
        aggregator(7001);
    };
    EXPECT_EQ(tarn_ifmgr_aggregator_add("late", ADDRESS, 3, 7001), TARN_ERR_EXISTS);
    EXPECT_STREQ(found(7001)->name, "lag7001");
}

TEST_F(Create, an_aggregator_refused_for_memory_says_nothing) {
    auto create = [] { return tarn_ifmgr_aggregator_add("lag", ADDRESS, 3, 7001); };
    EXPECT_EQ(without_memory(1, create), TARN_ERR_NO_MEMORY);
    EXPECT_EQ(without_memory(2, create), TARN_ERR_NO_MEMORY);
    EXPECT_EQ(without_memory(3, create), TARN_ERR_TREE_INSERT);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(found(7001), nullptr);
}

TEST_F(Create, an_aggregator_has_the_files_of_a_port) {
    EXPECT_THAT(seams::calls_of([&] { aggregator(7001); }), ElementsAre("create_proc lag7001"));
}

// --- VLANs -------------------------------------------------------------------------------------

TEST_F(Create, a_vlan_takes_what_it_is_told_and_has_a_device) {
    tarn_if *ifp = vlan(10);
    ASSERT_NE(ifp, nullptr);
    EXPECT_EQ(found(310), ifp);
    EXPECT_STREQ(ifp->name, "vlan10");
    EXPECT_EQ(ifp->type, TARN_IF_TYPE_VLAN);
    EXPECT_EQ(ifp->flags, 0x1003u);
    EXPECT_EQ(ifp->vid, 10);
    EXPECT_EQ(ifp->ifindex, 310u);
    EXPECT_EQ(ifp->upstream_ifs, nullptr);
    EXPECT_EQ(std::memcmp(ifp->hwaddr, ADDRESS, 6), 0);
    ASSERT_NE(ifp->netdev, nullptr);
    EXPECT_STREQ(netdev_name(ifp->netdev), "vlan10");
    EXPECT_EQ(netdev_ifindex(ifp->netdev), 310u);
    EXPECT_EQ(std::memcmp(netdev_addr(ifp->netdev), ADDRESS, 6), 0);
}

TEST_F(Create, a_vlan_need_not_be_given_an_address) {
    tarn_if *ifp = nullptr;
    auto calls = seams::calls_of(
        [&] { configure([&] { EXPECT_EQ(tarn_ifmgr_vlan_create(nullptr, 6, &ifp, 10, 0), 0); }); });
    EXPECT_THAT(calls, ElementsAre("configure vlan10 6 no address out", "mirror_vlan 10 0"));
    for (u8 byte : ifp->hwaddr)
        EXPECT_EQ(byte, 0);
}

TEST_F(Create, a_vlan_keeps_as_many_bytes_of_its_address_as_it_is_given) {
    tarn_if *ifp = nullptr;
    u8 address[8] = {2, 1, 2, 3, 4, 5, 6, 7};
    configure([&] { EXPECT_EQ(tarn_ifmgr_vlan_create(address, 4, &ifp, 10, 0), 0); });
    EXPECT_THAT(ifp->hwaddr, ElementsAre(2, 1, 2, 3, 0, 0));
    configure([&] { EXPECT_EQ(tarn_ifmgr_vlan_create(address, 8, &ifp, 11, 0), 0); });
    EXPECT_THAT(ifp->hwaddr, ElementsAre(2, 1, 2, 3, 4, 5));
    EXPECT_EQ(ifp->vid, 11); // the field behind the address
}

TEST_F(Create, a_vlan_name_has_room_for_every_number) {
    EXPECT_STREQ(vlan(65535)->name, "vlan65535");
    EXPECT_STREQ(vlan(0)->name, "vlan0");
}

TEST_F(Create, a_vlan_may_be_refused_for_memory) {
    auto create = [] {
        tarn_if *out = nullptr;
        return tarn_ifmgr_vlan_create(ADDRESS, 6, &out, 10, 0);
    };
    EXPECT_EQ(without_memory(1, create), TARN_ERR_NO_MEMORY);   // the record
    EXPECT_EQ(without_memory(2, create), TARN_ERR_NETDEV);      // the device
    EXPECT_EQ(without_memory(3, create), TARN_ERR_TREE_INSERT); // its place in the tree
    EXPECT_EQ(found(310), nullptr);
    EXPECT_EQ(dev_get_by_name("vlan10"), nullptr);
    EXPECT_THAT(log(), IsEmpty());
    tarn_if *made = vlan(10);
    EXPECT_EQ(found(310), made);
}

TEST_F(Create, a_vlan_that_cannot_be_installed_takes_its_device_along) {
    userlevel::fail_allocation(3);
    auto calls = seams::calls_of([&] {
        tarn_if *out = nullptr;
        EXPECT_EQ(tarn_ifmgr_vlan_create(ADDRESS, 6, &out, 10, 7), TARN_ERR_TREE_INSERT);
    });
    EXPECT_THAT(calls, ElementsAre("configure vlan10 6 out", "unconfigure vlan10"));
}

TEST_F(Create, a_vlan_without_a_place_for_the_answer_leaves_the_old_one_alone) {
    EXPECT_EQ(tarn_ifmgr_vlan_create(ADDRESS, 6, nullptr, 1, 0), TARN_ERR_BAD_ARG);
    EXPECT_EQ(found(301), vlan1());
    EXPECT_THAT(userlevel::netdevs(), ::testing::Contains(vlan1()->netdev));
}

TEST_F(Create, a_vlan_whose_device_name_belongs_to_somebody_else_is_refused) {
    configure([] { userlevel::netdev_create("vlan10"); });
    tarn_if *out = nullptr;
    EXPECT_EQ(tarn_ifmgr_vlan_create(ADDRESS, 6, &out, 10, 0), TARN_ERR_NETDEV);
    EXPECT_EQ(found(310), nullptr);
}

class CreateVlan : public GraphTest, public ::testing::WithParamInterface<u32> {};

TEST_P(CreateVlan, the_options_decide) {
    u32 options = GetParam();
    tarn_rmirror_set_mirror_vlan(10, true); // the state is written either way
    tarn_if *ifp = nullptr;
    auto calls = seams::calls_of([&] { ifp = vlan(10, options); });
    std::vector<std::string> expected{"configure vlan10 6 out",
                                      options & 1 ? "mirror_vlan 10 1" : "mirror_vlan 10 0"};
    if (options & 4)
        expected.push_back("flags_set vlan10 0x1003");
    EXPECT_EQ(calls, expected);
    u32 if_flags = TARN_IF_F_VALID;
    if_flags |= options & 2 ? TARN_IF_F_VLAN_LOCAL : 0;
    if_flags |= options & 4 ? TARN_IF_F_ALWAYS_UP : 0;
    EXPECT_EQ(ifp->if_flags, if_flags); // 0x20 has no effect here
    EXPECT_EQ((dev_get_flags(ifp->netdev) & IFF_RUNNING) != 0, (options & 4) != 0);
    tarn_rmirror_set_mirror_vlan(10, false);
}
INSTANTIATE_TEST_SUITE_P(Options, CreateVlan,
                         ::testing::Values(0, 1, 2, 3, 4, 5, 6, 7, 0x20, 0x28, 0xFFFFFFFF));

// Ring protection has the only subscription: a VLAN that is new is no control VLAN.
TEST_F(Create, a_new_vlan_is_announced_and_nothing_else) {
    for (u32 number : {10u, 11u, 77u, 78u})
        tarn_ryke_set_ctrl_vlan(number, 1);
    vlan(10);
    EXPECT_EQ(tarn_ryke_is_ctrl_vlan(10), 0);
    tarn_if *out = nullptr;
    userlevel::fail_allocation(1);
    tarn_ifmgr_vlan_create(ADDRESS, 6, &out, 11, 0);
    port_with(77);
    aggregator(7001);
    ethernet(78, "eth9");
    remove(found(77));
    for (u32 number : {11u, 77u, 78u})
        EXPECT_EQ(tarn_ryke_is_ctrl_vlan(number), 1) << number;
    // Also when it takes the place of one that is there.
    tarn_ryke_set_ctrl_vlan(10, 1);
    configure([&] { tarn_ifmgr_vlan_create(ADDRESS, 6, &out, 10, 0); });
    EXPECT_EQ(tarn_ryke_is_ctrl_vlan(10), 0);
}

// --- VLANs in the place of others ----------------------------------------------------------------

TEST_F(Create, a_vlan_made_again_after_its_end_is_a_new_record) {
    tarn_if *ifp = vlan(10);
    add_member(port1(), 10);
    remove(ifp);
    forget_log();
    std::size_t alive = userlevel::live().size();
    tarn_if *again = nullptr;
    tarn_ifmgr_vlan_create(ADDRESS, 6, &again, 10, 0);
    // A record and a device; the old record is given back, its node in the tree is used again.
    EXPECT_EQ(userlevel::live().size(), alive - 1 + 2);
    EXPECT_EQ(found(310), again);
    EXPECT_TRUE(again->children == nullptr);
    remember();
}

TEST_F(Create, a_vlan_that_is_there_is_replaced_with_its_device) {
    tarn_if *old = vlan(10);
    add_member(port1(), 10);
    net_device *device = old->netdev;
    std::size_t alive = userlevel::live().size();
    tarn_if *again = nullptr;
    auto calls = seams::calls_of([&] {
        EXPECT_EQ(tarn_ifmgr_vlan_create(OTHER, 6, &again, 10, 0), 0);
        settle();
    });
    EXPECT_THAT(calls, ::testing::Not(::testing::Contains(HasSubstr("unconfigure"))));
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(found(310), again);
    EXPECT_EQ(again->netdev, device);
    EXPECT_EQ(again->children, nullptr);
    EXPECT_EQ(again->oper_count, 0);
    EXPECT_EQ(refcount_read(&again->refcnt), 1);
    EXPECT_EQ(std::memcmp(netdev_addr(device), OTHER, 6), 0);
    EXPECT_THAT(named_by(port1()->parents), ElementsAre(vlan1()));
    // One record goes with the next creation, and one has come; the binding's two nodes are gone.
    EXPECT_EQ(userlevel::live().size(), alive + 1 - 2);
    EXPECT_EQ(tarn_ifmgr_ethernet_create("eth", ADDRESS, 0, 7001, 2), 0);
    EXPECT_EQ(userlevel::live().size(), alive - 2 + 2); // a record and its place in the tree
    remember();
}

TEST_F(Create, a_vlan_that_is_there_and_held_is_replaced_all_the_same) {
    tarn_if *held = vlan(10);
    _tarn_ifmgr_if_hold(held);
    remember();
    tarn_if *again = vlan(10);
    EXPECT_NE(again, held);
    EXPECT_EQ(refcount_read(&held->refcnt), 1); // the database has let go
    net_device *device = again->netdev;
    auto calls = seams::calls_of([&] { tarn_ifmgr_if_ref_put(held); });
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(userlevel::netdevs(), ::testing::Contains(device));
}

TEST_F(Create, a_vlan_deleted_but_held_is_replaced_without_touching_its_count) {
    tarn_if *held = vlan(10);
    add_member(port1(), 10);
    _tarn_ifmgr_if_hold(held);
    remember();
    tarn_if *mine = tarn_ifmgr_lookup_by_index(310);
    tarn_ifmgr_delete_interface(mine);
    tarn_ifmgr_if_ref_put(mine);
    EXPECT_EQ(refcount_read(&held->refcnt), 1);

    tarn_if *again = nullptr;
    EXPECT_EQ(tarn_ifmgr_vlan_create(ADDRESS, 6, &again, 10, 0), 0);
    settle();
    EXPECT_EQ(refcount_read(&held->refcnt), 1);
    tarn_ifmgr_if_ref_put(held);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(named_by(port1()->parents), ElementsAre(vlan1()));
    EXPECT_THAT(userlevel::netdevs(), ::testing::Contains(again->netdev));
    remember();
}

TEST_F(Create, the_memory_of_a_replaced_vlan_is_given_back_when_nobody_holds_it) {
    tarn_if *held = vlan(10);
    _tarn_ifmgr_if_hold(held);
    remember();
    std::size_t alive = userlevel::live().size();
    tarn_if *again = vlan(10);
    EXPECT_EQ(userlevel::live().size(), alive + 1); // both records
    tarn_ifmgr_if_ref_put(held);
    EXPECT_EQ(userlevel::live().size(), alive + 1);
    EXPECT_EQ(tarn_ifmgr_ethernet_create("eth", ADDRESS, 0, 7001, 2), 0); // the next of any kind
    EXPECT_EQ(userlevel::live().size(), alive + 2); // its record and place, without the old one
    EXPECT_EQ(found(310), again);
    remember();
}

// A daemon may have given a port the number of a VLAN.
TEST_F(Create, a_vlan_takes_the_place_of_a_port_of_its_ifindex) {
    tarn_if *port = port_with(310, LINK);
    add_member(port, 1);
    tarn_if *ifp = nullptr;
    auto calls = seams::calls_of([&] { ifp = vlan(10); });
    EXPECT_THAT(calls, ::testing::Contains("remove_proc p310"));
    forget_log();
    EXPECT_EQ(found(310), ifp);
    EXPECT_EQ(ifp->type, TARN_IF_TYPE_VLAN);
    EXPECT_THAT(named_by(vlan1()->children), ElementsAre(port1()));
    EXPECT_EQ(vlan1()->oper_count, 1);
}

TEST_F(Create, a_vlan_takes_the_place_of_an_aggregator_whose_ports_forget_it) {
    tarn_if *lag = aggregator(310);
    attach(lag, port1());
    EXPECT_EQ(tarn_ifmgr_logical_port(port1()), lag);
    tarn_if *ifp = vlan(10);
    forget_log();
    EXPECT_EQ(found(310), ifp);
    EXPECT_EQ(tarn_ifmgr_logical_port(port1()), port1());
    EXPECT_THAT(named_by(port1()->parents), IsEmpty());
    EXPECT_EQ(vlan1()->oper_count, 0); // it stood over the aggregator
}

} // namespace
