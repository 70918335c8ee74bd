// What can be seen of single commands only inside a process: the log, references, unshown words.
#include "control/nl_client.h"
#include "kernel/netdev.h"
#include "netdev.h"

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

} // namespace
