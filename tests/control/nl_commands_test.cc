// What single commands do and answer, beyond their attributes.
#include "control/nl_client.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "kernel/netdev.h"
#include "netdev.h"
#include "pkt/pkt_flood.h"

namespace {

struct NlCommands : SwitchTest {
    Client client;

    // Runs the command, whose allocations stay.
    int change(Command command) {
        return configure([&] {
            int result = command.to(client);
            userlevel::work_run();
            return result;
        });
    }
    Command newlink(u8 kind, u32 ifindex, const std::string &name = "new") {
        return Command(TARNFWD_CMD_IF_NEWLINK)
            .ifindex(ifindex)
            .text(TARNFWD_ATTR_IF_NAME, name)
            .byte(TARNFWD_ATTR_IF_KIND, kind)
            .word(TARNFWD_ATTR_FLAGS, 0x1003);
    }
    tarn_if *find(u32 ifindex) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(ifp);
        return ifp;
    }
    std::string error_line(u32 ifindex, int result) {
        return "3 Error creating interface " + std::to_string(ifindex) + " ret " +
               std::to_string(result) + "\n";
    }
};

TEST_F(NlCommands, a_newlink_of_kind_3_makes_a_port) {
    EXPECT_EQ(change(newlink(3, 5100, "p100").mac().word(TARNFWD_ATTR_STACK_MEMBER, 4)), 0);
    tarn_if *port = find(5100);
    ASSERT_NE(port, nullptr);
    EXPECT_STREQ(port->name, "p100");
    EXPECT_EQ(port->type, TARN_IF_TYPE_SWITCHPORT);
    EXPECT_EQ(port->stack_member, 4u);
    EXPECT_EQ(port->if_flags & (TARN_IF_F_AGG | TARN_IF_F_L3_SWITCHPORT), 0u);
}

TEST_F(NlCommands, a_newlink_of_port_kinds_2_and_3_makes_aggregators) {
    EXPECT_EQ(change(newlink(3, 6002).mac().byte(TARNFWD_ATTR_PORT_KIND, 2)), 0);
    EXPECT_EQ(change(newlink(3, 6003).mac().byte(TARNFWD_ATTR_PORT_KIND, 3)), 0);
    EXPECT_EQ(find(6002)->if_flags & TARN_IF_F_AGG, TARN_IF_F_AGG_DYNAMIC);
    EXPECT_EQ(find(6003)->if_flags & TARN_IF_F_AGG, TARN_IF_F_AGG_STATIC);
}

TEST_F(NlCommands, a_newlink_of_a_kind_that_is_made_otherwise_makes_nothing) {
    for (u8 kind : {1, 4, 5, 6, 7, 8, 9}) {
        EXPECT_EQ(change(newlink(kind, 5100).mac()), 0);
        EXPECT_EQ(change(newlink(kind, 5100).bytes(TARNFWD_ATTR_MAC, {2, 0, 0})), 0);
        EXPECT_EQ(find(5100), nullptr);
    }
}

TEST_F(NlCommands, a_newlink_of_an_unknown_kind_is_refused_and_logged) {
    for (u8 kind : {0, 10, 255}) {
        EXPECT_EQ(change(newlink(kind, 5100).mac()), -EOPNOTSUPP);
        EXPECT_THAT(log(), ::testing::ElementsAre(error_line(5100, -95)));
    }
}

TEST_F(NlCommands, a_newlink_without_an_address_is_refused_by_its_creator) {
    EXPECT_EQ(change(newlink(2, 700)), TARN_ERR_BAD_ARG);
    EXPECT_THAT(log(), ::testing::ElementsAre(error_line(700, -201)));
    EXPECT_EQ(change(newlink(3, 700).bytes(TARNFWD_ATTR_MAC, {2, 0, 0})), -EINVAL) << "half a one";
    EXPECT_THAT(log(), ::testing::ElementsAre(error_line(700, -22)));
}

TEST_F(NlCommands, a_long_name_is_cut) {
    EXPECT_EQ(change(newlink(3, 5100, "a-name-of-more-than-16").mac()), 0);
    EXPECT_EQ(std::string(find(5100)->name, 16), "a-name-of-more-t");
}

TEST_F(NlCommands, a_name_without_an_end_is_read_to_its_length) {
    Command command(TARNFWD_CMD_IF_NEWLINK);
    command.ifindex(5100)
        .bytes(TARNFWD_ATTR_IF_NAME, {'p', 'q', 'r', 's'}) // the next attribute follows at once
        .byte(TARNFWD_ATTR_IF_KIND, 3)
        .word(TARNFWD_ATTR_FLAGS, 0)
        .mac();
    EXPECT_EQ(change(command), 0);
    EXPECT_STREQ(find(5100)->name, "pqrs");
}

TEST_F(NlCommands, an_update_of_a_port_sets_its_flags_and_counts_its_link) {
    u32 before = vlan1()->oper_count;
    Command down(TARNFWD_CMD_IF_UPDATE);
    down.ifindex(port1()->ifindex).word(TARNFWD_ATTR_FLAGS, 0x1).word(TARNFWD_ATTR_SPEED, 1000);
    EXPECT_EQ(change(down.byte(TARNFWD_ATTR_DUPLEX, 1)), 0);
    EXPECT_EQ(port1()->flags, 0x1u);
    EXPECT_EQ(port1()->speed, 1000u);
    EXPECT_EQ(port1()->duplex, 1);
    EXPECT_EQ(vlan1()->oper_count + 1u, before);
    EXPECT_EQ(change(Command(TARNFWD_CMD_IF_UPDATE)
                         .ifindex(port1()->ifindex)
                         .word(TARNFWD_ATTR_FLAGS, 0x41)),
              0);
    EXPECT_EQ(port1()->speed, 1000u) << "not told: as it was";
    EXPECT_EQ(vlan1()->oper_count, before);
}

TEST_F(NlCommands, an_update_of_a_vlan_interface_leaves_its_flags) {
    u32 before = vlan1()->flags;
    EXPECT_EQ(change(Command(TARNFWD_CMD_IF_UPDATE)
                         .ifindex(301)
                         .word(TARNFWD_ATTR_FLAGS, 0xFFFF)
                         .word(TARNFWD_ATTR_SPEED, 10)
                         .byte(TARNFWD_ATTR_DUPLEX, 1)),
              0);
    EXPECT_EQ(vlan1()->flags, before);
    EXPECT_EQ(vlan1()->speed, 10u);
    EXPECT_EQ(vlan1()->duplex, 1);
}

TEST_F(NlCommands, deletions_differ_in_what_they_say_of_the_unknown) {
    EXPECT_EQ(Command(TARNFWD_CMD_IF_DELLINK).ifindex(9999).to(client), 0);
    EXPECT_EQ(Command(TARNFWD_CMD_IF_DELETE_SVI).ifindex(9999).to(client), -1);
    EXPECT_EQ(
        Command(TARNFWD_CMD_LACP_DELETE_AGGREGATOR).word(TARNFWD_ATTR_AGG_IFINDEX, 9999).to(client),
        -EINVAL);
}

TEST_F(NlCommands, each_deletion_drops_the_last_reference) {
    change(newlink(3, 5100).mac());
    change(newlink(3, 6002).mac().byte(TARNFWD_ATTR_PORT_KIND, 2));
    change(Command(TARNFWD_CMD_IF_CREATE_SVI_RANGE)
               .half(TARNFWD_ATTR_VID_START, 20)
               .half(TARNFWD_ATTR_VID_END, 21)
               .word(TARNFWD_ATTR_VLAN_OPTIONS, 0)
               .mac());
    tarn_if *port = find(5100), *aggregator = find(6002), *vlan = find(320);
    ASSERT_TRUE(port && aggregator && vlan);
    change(Command(TARNFWD_CMD_IF_DELLINK).ifindex(5100));
    change(Command(TARNFWD_CMD_LACP_DELETE_AGGREGATOR).word(TARNFWD_ATTR_AGG_IFINDEX, 6002));
    change(Command(TARNFWD_CMD_IF_DELETE_SVI).ifindex(320));
    for (tarn_if *gone : {port, aggregator, vlan}) {
        EXPECT_EQ(refcount_read(&gone->refcnt), 0);
        EXPECT_EQ(find(gone->ifindex), nullptr);
    }
    log();
}

TEST_F(NlCommands, a_range_of_vlans_ends_before_its_end) {
    auto range = [](u16 start, u16 end) {
        return Command(TARNFWD_CMD_IF_CREATE_SVI_RANGE)
            .half(TARNFWD_ATTR_VID_START, start)
            .half(TARNFWD_ATTR_VID_END, end)
            .word(TARNFWD_ATTR_VLAN_OPTIONS, 0)
            .mac();
    };
    EXPECT_EQ(change(range(10, 10)), 0);
    EXPECT_EQ(change(range(12, 10)), 0);
    EXPECT_EQ(find(310), nullptr);
    EXPECT_EQ(change(range(10, 12)), 0);
    EXPECT_NE(find(310), nullptr);
    EXPECT_NE(find(311), nullptr);
    EXPECT_EQ(find(312), nullptr);
}

TEST_F(NlCommands, attribute_54_is_accepted_and_not_looked_at) {
    EXPECT_EQ(
        Command(TARNFWD_CMD_IF_DELLINK).ifindex(9999).word(TARNFWD_ATTR_RESERVED, 5).to(client), 0);
}

TEST_F(NlCommands, three_commands_keep_the_opposite_of_the_state_they_are_told) {
    u32 port = port1()->ifindex;
    auto disabled = [&] { return port1()->vlan_disabled_bmp[0] >> 1 & 1; };
    EXPECT_EQ(change(Command(TARNFWD_CMD_VLAN_PORT_STATE).ifindex(port).vid(1).state(0)), 0);
    EXPECT_EQ(disabled(), 1u);
    EXPECT_EQ(change(Command(TARNFWD_CMD_VLAN_PORT_STATE).ifindex(port).vid(1).state(1)), 0);
    EXPECT_EQ(disabled(), 0u);
    const Bytes only_vlan_1 = {2}; // one byte of 512: the others read as zero
    auto many = [&](u8 state) {
        return change(Command(TARNFWD_CMD_VLAN_PORT_STATE_BMP)
                          .ifindex(port)
                          .bytes(TARNFWD_ATTR_VID_BITMAP, only_vlan_1)
                          .state(state));
    };
    EXPECT_EQ(many(0), 0);
    EXPECT_EQ(disabled(), 1u);
    EXPECT_EQ(many(2), 0);
    EXPECT_EQ(disabled(), 0u);
    EXPECT_EQ(change(Command(TARNFWD_CMD_STOP_UNREG_MC_FLOODING).state(1)), 0);
    EXPECT_EQ(tarn_pkt_unknown_multicast_flood_enabled(), 0);
    EXPECT_EQ(change(Command(TARNFWD_CMD_STOP_UNREG_MC_FLOODING).state(0)), 0);
    EXPECT_EQ(tarn_pkt_unknown_multicast_flood_enabled(), 1);
}

TEST_F(NlCommands, a_vlan_of_a_port_is_told_by_number_or_by_bitmap) {
    u32 port = port1()->ifindex;
    add_vlan(40);
    EXPECT_EQ(change(Command(TARNFWD_CMD_VLAN_ADD_PORT_DYNAMIC)
                         .ifindex(port)
                         .byte(TARNFWD_ATTR_TAGGED, 1)
                         .vid(40)),
              0);
    EXPECT_EQ(port1()->vlan_member_bmp[1] >> 8 & 1, 1u);
    EXPECT_EQ(port1()->vlan_tagged_bmp[1] >> 8 & 1, 1u);
    Bytes bitmap(6, 0);
    bitmap[5] = 1; // VLAN 40
    EXPECT_EQ(change(Command(TARNFWD_CMD_VLAN_DELETE_VID_BMP_FROM_PORT)
                         .ifindex(port)
                         .bytes(TARNFWD_ATTR_VID_BITMAP, bitmap)),
              0);
    EXPECT_EQ(port1()->vlan_member_bmp[1] >> 8 & 1, 0u);
    userlevel::neigh_flushes_take();
}

using Flushes = std::vector<std::string>;

Flushes flushes() {
    Flushes all;
    for (const auto &flush : userlevel::neigh_flushes_take())
        all.push_back(std::string(flush.table) + " " + std::to_string(flush.vid) + " " +
                      (flush.device ? netdev_name(flush.device) : "any") + " " +
                      std::to_string(flush.ifindex) + (flush.mac.empty() ? "" : " mac"));
    return all;
}

TEST_F(NlCommands, neighbours_are_flushed_by_family) {
    auto flush = [&](u8 family, u32 ifindex) {
        return Command(TARNFWD_CMD_NBR_DEL_BY_VLAN_AND_PORT)
            .byte(TARNFWD_ATTR_FAMILY, family)
            .word(TARNFWD_ATTR_ID, 0xFFFFFFFF)
            .word(TARNFWD_ATTR_PORT_IFINDEX, 5001)
            .ifindex(ifindex)
            .to(client);
    };
    EXPECT_EQ(flush(0, 0), 0);
    EXPECT_EQ(flushes(), (Flushes{"arp -1 any 5001", "ndisc -1 any 5001"}));
    EXPECT_EQ(flush(2, 301), 0);
    EXPECT_EQ(flushes(), Flushes{"arp -1 vlan1 5001"});
    EXPECT_EQ(flush(10, 9999), 0) << "an unknown interface narrows nothing";
    EXPECT_EQ(flushes(), Flushes{"ndisc -1 any 5001"});
    EXPECT_EQ(flush(7, 301), -1);
    EXPECT_EQ(flushes(), Flushes{});
}

TEST_F(NlCommands, neighbours_are_flushed_by_address) {
    auto flush = [&](u32 ifindex) {
        return Command(TARNFWD_CMD_ARP_DEL_ALL_BY_MAC)
            .ifindex(ifindex)
            .word(TARNFWD_ATTR_ID, 0x50001)
            .mac()
            .to(client);
    };
    EXPECT_EQ(flush(0), 0);
    EXPECT_EQ(flushes(), Flushes{"arp 1 any 0 mac"}) << "16 bits of the VLAN count";
    EXPECT_EQ(flush(301), 0);
    EXPECT_EQ(flushes(), Flushes{"arp 1 vlan1 0 mac"});
    EXPECT_EQ(flush(port1()->ifindex), -1) << "no VLAN interface";
    EXPECT_EQ(flush(9999), -1);
    EXPECT_EQ(flushes(), Flushes{});
    EXPECT_EQ(Command(TARNFWD_CMD_NBR_DEL_BY_VLAN_MAC).ifindex(301).mac().to(client), 0);
    EXPECT_EQ(flushes(), Flushes{"moved -1 vlan1 0 mac"});
}

// A flush may sleep, and the device go meanwhile.
TEST_F(NlCommands, a_device_is_held_while_its_neighbours_are_flushed) {
    static std::vector<i32> references;
    references.clear();
    static constexpr userlevel::netdev_back the_back{
        .forget = [](const userlevel::neigh_flush &flush) {
            references.push_back(flush.device->references);
        }};
    userlevel::netdev_use_back(&the_back);
    Command(TARNFWD_CMD_NBR_DEL_BY_VLAN_AND_PORT)
        .byte(TARNFWD_ATTR_FAMILY, 0)
        .word(TARNFWD_ATTR_ID, 0xFFFFFFFF)
        .word(TARNFWD_ATTR_PORT_IFINDEX, 5001)
        .ifindex(301)
        .to(client);
    Command(TARNFWD_CMD_NBR_DEL_BY_VLAN_MAC).ifindex(301).mac().to(client);
    Command(TARNFWD_CMD_ARP_DEL_ALL_BY_MAC).ifindex(301).word(TARNFWD_ATTR_ID, 1).mac().to(client);
    userlevel::netdev_use_back(nullptr);
    EXPECT_EQ(references, (std::vector<i32>{1, 1, 1, 1}));
    EXPECT_EQ(vlan1()->netdev->references, 0);
    userlevel::neigh_flushes_take();
}

TEST_F(NlCommands, an_interface_may_answer_arp_with_another_address) {
    auto set = [&](u8 on) {
        return change(Command(TARNFWD_CMD_ARP_MAC_DISPARITY).ifindex(301).state(on));
    };
    u32 before = vlan1()->if_flags;
    EXPECT_EQ(set(7), 0);
    EXPECT_EQ(vlan1()->if_flags, before | TARN_IF_F_ARP_MAC_DISPARITY);
    EXPECT_EQ(set(0), 0);
    EXPECT_EQ(vlan1()->if_flags, before);
}

TEST_F(NlCommands, a_port_joins_an_aggregator_and_leaves_it) {
    change(newlink(3, 6002).mac().byte(TARNFWD_ATTR_PORT_KIND, 3));
    auto mux = [&](tarnfwd_cmd command, u32 aggregator) {
        return change(
            Command(command).ifindex(port1()->ifindex).word(TARNFWD_ATTR_AGG_IFINDEX, aggregator));
    };
    EXPECT_EQ(mux(TARNFWD_CMD_LACP_ATTACH_MUX_TO_AGGREGATOR, 6002), 0);
    EXPECT_EQ(tarn_ifmgr_isbound(find(6002), port1()), 1u);
    EXPECT_EQ(mux(TARNFWD_CMD_LACP_DETACH_MUX_FROM_AGGREGATOR, 6002), 0);
    EXPECT_EQ(tarn_ifmgr_isbound(find(6002), port1()), 0u);
    EXPECT_EQ(mux(TARNFWD_CMD_LACP_DETACH_MUX_FROM_AGGREGATOR, 301), TARN_ERR_TYPE_MISMATCH);
    userlevel::neigh_flushes_take();
    log();
}

TEST_F(NlCommands, bindings_to_a_fib) {
    auto fib = [&](tarnfwd_cmd command, u32 ifindex, u32 id) {
        return Command(command).ifindex(ifindex).word(TARNFWD_ATTR_ID, id).to(client);
    };
    EXPECT_EQ(fib(TARNFWD_CMD_IF_BIND_FIB, 301, 5), 0);
    EXPECT_EQ(vlan1()->fib_id, 5u);
    EXPECT_EQ(fib(TARNFWD_CMD_IF_UNBIND_FIB, 301, 6), TARN_ERR_WRONG_TYPE);
    EXPECT_EQ(fib(TARNFWD_CMD_IF_UNBIND_FIB, 301, 5), 0);
    EXPECT_EQ(fib(TARNFWD_CMD_IF_BIND_FIB, port1()->ifindex, 5), TARN_ERR_WRONG_TYPE);
}

} // namespace
