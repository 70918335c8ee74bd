// Events, byte by byte, and the raw groups.
#include "control/nl_client.h"
#include "events/tarnfwd_netlink.h"
#include "events/tarnfwd_nl_event.h"

namespace {

struct NlEvents : SwitchTest {
    Client client;

    NlEvents() { calls().pass_on = true; }

    // The headers of an event: length, family, no flags, sequence or port; command and version.
    Bytes event(u8 command, const Bytes &attributes) {
        Bytes bytes = {static_cast<u8>(20 + attributes.size()), 0, 0, 0};
        for (int each :
             {int{client.family}, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, int{command}, 1, 0, 0})
            bytes.push_back(static_cast<u8>(each));
        bytes.insert(bytes.end(), attributes.begin(), attributes.end());
        return bytes;
    }
};

const u8 MAC[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

TEST_F(NlEvents, an_address_for_the_chips_table) {
    client.join();
    EXPECT_EQ(tarnfwd_nl_send_l2_fdb_add(MAC, 0x01020304, 3, 0x0506, 1, 0x0708090A, 0x0B0C0D0E), 0);
    EXPECT_THAT(client.take(),
                ::testing::ElementsAre(
                    event(72, {
                                  10, 0, 9,  0, 0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0, 0, // MAC
                                  8,  0, 1,  0, 4,    3,    2,    1,                      // port
                                  6,  0, 4,  0, 6,    5,    0,    0,                      // VLAN
                                  5,  0, 6,  0, 1,    0,    0,    0,                      // added
                                  5,  0, 62, 0, 3,    0,    0,    0,                      // event
                                  8,  0, 53, 0, 0x0A, 9,    8,    7,                      // VNI
                                  8,  0, 52, 0, 0x0E, 0x0D, 0x0C, 0x0B, // remote address
                              })));
}

TEST_F(NlEvents, a_frame_that_looks_like_an_attack) {
    client.join();
    u8 header[20];
    for (u8 i = 0; i < 20; i++)
        header[i] = i;
    EXPECT_EQ(tarnfwd_nl_send_dos_match(7, 0x1FE, 0x8100, header), 0);
    Bytes attributes = {8,  0, 1,  0, 7,    0,    0, 0, // port
                        5,  0, 59, 0, 0xFE, 0,    0, 0, // reason, in 8 bits
                        6,  0, 60, 0, 0,    0x81, 0, 0, // type
                        24, 0, 61, 0};
    attributes.insert(attributes.end(), header, header + 20);
    EXPECT_THAT(client.take(), ::testing::ElementsAre(event(74, attributes)));
}

TEST_F(NlEvents, an_attack_shows_the_inner_tag_as_it_stands) {
    client.join();
    configure([] { enable_redirect_by_name("dos", 1); });
    Arrival arrival;
    arrival.meta.flags = TARN_RX_DOS;
    arrival.meta.extra = 9;
    receive(Frame().from("02:00:00:00:00:09").tag(1).tag(5).type(0x0800).bytes(Bytes(40, 0xAB)),
            arrival);
    auto messages = client.take();
    ASSERT_EQ(messages.size(), 1u);
    const Bytes &message = messages[0];
    Client::each_attribute(message, 20, message.size(),
                           [&](unsigned type, std::size_t at, std::size_t length) {
                               if (type == TARNFWD_ATTR_ETHERTYPE) {
                                   EXPECT_EQ(message[at] | message[at + 1] << 8, 0x8100);
                               }
                               if (type != TARNFWD_ATTR_DOS_HEADER)
                                   return;
                               EXPECT_EQ(length, 20u);
                               EXPECT_EQ(message[at + 1], 5) << "the VLAN of the tag";
                               EXPECT_EQ(message[at + 2], 0x08) << "the type behind it";
                           });
}

TEST_F(NlEvents, an_arp_packet_that_was_refused) {
    client.join();
    EXPECT_EQ(tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0x0400000A, MAC, 2), 0);
    EXPECT_THAT(client.take(),
                ::testing::ElementsAre(
                    event(75, {
                                  8,  0, 1,  0, 5,    0,    0,    0,                      // port
                                  6,  0, 4,  0, 6,    0,    0,    0,                      // VLAN
                                  8,  0, 11, 0, 0x0A, 0,    0,    4,                      // address
                                  5,  0, 28, 0, 2,    0,    0,    0,                      // reason
                                  10, 0, 9,  0, 0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0, 0, // MAC
                              })));
}

TEST_F(NlEvents, go_to_every_client_that_joined_and_to_no_other) {
    Client other, silent;
    client.join();
    other.join();
    EXPECT_EQ(tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0, MAC, 2), 0);
    EXPECT_EQ(client.take().size(), 1u);
    EXPECT_EQ(other.take().size(), 1u);
    EXPECT_EQ(silent.take().size(), 0u);
    EXPECT_EQ(client.option(NETLINK_DROP_MEMBERSHIP, client.group), 0);
    EXPECT_EQ(tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0, MAC, 2), 0);
    EXPECT_EQ(client.take().size(), 0u);
    EXPECT_EQ(other.take().size(), 1u);
}

TEST_F(NlEvents, say_that_nobody_listens) {
    EXPECT_EQ(tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0, MAC, 2), -3 /* ESRCH */);
}

TEST_F(NlEvents, end_without_memory) {
    client.join();
    for (u64 n = 1; n <= 2; n++) {
        userlevel::fail_allocation(n);
        EXPECT_EQ(tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0, MAC, 2), -ENOMEM) << n;
    }
    EXPECT_THAT(client.take(), ::testing::IsEmpty());
}

TEST_F(NlEvents, do_not_sleep_where_one_must_not) {
    client.join();
    u64 before = userlevel::sleeping_allocations_in_atomic();
    local_bh_disable();
    EXPECT_EQ(tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0, MAC, 2), 0);
    local_bh_enable();
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), before);
}

struct RawGroups : NlEvents {
    i32 reserve(u32 mask) {
        return configure([=] { return tarnfwd_netlink_reserve(mask); });
    }
};

// The bits that the module itself does not take.
TEST_F(RawGroups, a_group_is_reserved_once) {
    EXPECT_EQ(reserve(0x100), 0);
    EXPECT_EQ(reserve(0x100), -EBUSY);
    EXPECT_THAT(log(), ::testing::ElementsAre("3 Error reserving netlink groups: 0x100\n"));
    EXPECT_EQ(reserve(0x200), 0);
}

TEST_F(RawGroups, several_groups_are_reserved_all_or_none) {
    EXPECT_EQ(reserve(0x100), 0);
    EXPECT_EQ(reserve(0x300), -EBUSY);
    EXPECT_THAT(log(), ::testing::ElementsAre("3 Error reserving netlink groups: 0x300\n"));
    EXPECT_EQ(reserve(0x200), 0) << "the refused one took nothing";
}

TEST_F(RawGroups, frames_go_to_the_group_by_its_number) {
    EXPECT_EQ(reserve(0x100), 0);
    EXPECT_EQ(client.option(NETLINK_ADD_MEMBERSHIP, 2, NETLINK_USERSOCK), 0);
    EXPECT_EQ(tarnfwd_netlink_broadcast(userlevel::frame_make(Bytes{1, 2, 3}), 2), 0);
    EXPECT_THAT(client.take(), ::testing::ElementsAre(Bytes{1, 2, 3}));
    EXPECT_EQ(tarnfwd_netlink_broadcast(userlevel::frame_make(Bytes{1, 2, 3}), 1), -3);
    EXPECT_THAT(client.take(), ::testing::IsEmpty());
}

} // namespace
