// The control family over a Unix socket, as other processes reach it.
#include "servers/netlink_end.h"
#include "support/temporary_folder.h"

#include "client/client.h"
#include "events/tarnfwd_nl_event.h"
#include "machine/netlink_server.h"

namespace {

struct NlServer : SwitchTest {
    const TemporaryFolder folder;
    const std::string path = folder / "netlink";
    Client inside;

    NlServer() { EXPECT_EQ(machine::netlink_serve(path), ""); }
    ~NlServer() override { machine::netlink_end(); }

    static int tell() {
        const u8 mac[6] = {};
        return tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0, mac, 2);
    }
};

TEST_F(NlServer, clients_are_answered_and_told_events) {
    NetlinkEnd one(path), other(path);
    for (NetlinkEnd *each : {&one, &other, &one})
        EXPECT_EQ(each->ask(inside.family, 77), -EINVAL);

    EXPECT_EQ(one.option(NETLINK_ADD_MEMBERSHIP, inside.group + 9), -EINVAL);
    EXPECT_EQ(one.option(NETLINK_ADD_MEMBERSHIP, inside.group), 0);
    EXPECT_EQ(tell(), 0);
    Bytes event = one.read();
    ASSERT_GT(event.size(), std::size_t{NLMSG_HDRLEN});
    EXPECT_EQ(event[NLMSG_HDRLEN], TARNFWD_CMD_DHCPSN_ARPSEC_VIOLATION);
    EXPECT_EQ(one.option(NETLINK_DROP_MEMBERSHIP, inside.group), 0);
}

TEST_F(NlServer, two_switches_do_not_serve_one_path) {
    EXPECT_THAT(machine::netlink_serve(path), ::testing::HasSubstr("another switch serves it"));
}

TEST_F(NlServer, a_packet_that_is_no_message_is_passed_over) {
    NetlinkEnd client(path);
    client.put(Bytes{1, 2, 3});
    EXPECT_EQ(client.ask(inside.family, 77), -EINVAL);
}

// Answers that find no room are lost, with those behind them, and the client is told where.
TEST_F(NlServer, who_does_not_read_loses_answers_and_is_told) {
    NetlinkEnd slow(path), quick(path);
    constexpr u32 asked = 3000;
    for (u32 i = 1; i <= asked; i++)
        slow.put(NetlinkEnd::request(inside.family, i));
    slow.wait_until_taken();
    EXPECT_EQ(quick.ask(inside.family, 1), -EINVAL); // the last one has been carried out, too
    u32 answered = 0;
    Bytes packet;
    while (packet = slow.read(), NetlinkEnd::type_of(packet) == NLMSG_ERROR)
        EXPECT_EQ(NetlinkEnd::sequence_of(packet), ++answered);
    EXPECT_EQ(NetlinkEnd::type_of(packet), NLMSG_OVERRUN);
    EXPECT_EQ(packet.size(), std::size_t{NLMSG_HDRLEN});
    EXPECT_GT(answered, 100u);
    EXPECT_LT(answered, asked);
    EXPECT_FALSE(slow.is_readable()); // it is told once
    EXPECT_EQ(slow.ask(inside.family, 9), -EINVAL);
}

TEST_F(NlServer, who_does_not_read_loses_events_and_is_told) {
    NetlinkEnd slow(path);
    EXPECT_EQ(slow.option(NETLINK_ADD_MEMBERSHIP, inside.group), 0);
    constexpr u32 told = 3000;
    for (u32 i = 0; i < told; i++)
        EXPECT_EQ(tell(), 0);
    u32 heard = 0;
    Bytes packet;
    while (packet = slow.read(), NetlinkEnd::type_of(packet) == inside.family)
        heard++;
    EXPECT_EQ(NetlinkEnd::type_of(packet), NLMSG_OVERRUN);
    EXPECT_GT(heard, 100u);
    EXPECT_LT(heard, told);
    EXPECT_EQ(tell(), 0);
    EXPECT_EQ(NetlinkEnd::type_of(slow.read()), inside.family);
}

// A program that joins a group while events come would wait for ever.
TEST_F(NlServer, the_answer_to_an_option_is_not_lost) {
    NetlinkEnd slow(path);
    EXPECT_EQ(slow.option(NETLINK_ADD_MEMBERSHIP, inside.group), 0);
    for (u32 i = 0; i < 3000; i++)
        EXPECT_EQ(tell(), 0);
    EXPECT_EQ(slow.option(NETLINK_DROP_MEMBERSHIP, inside.group), 0);
    EXPECT_FALSE(slow.is_readable());
    EXPECT_EQ(slow.ask(inside.family, 9), -EINVAL);
}

TEST_F(NlServer, a_client_of_ours_knows_that_it_lost_events) {
    auto client = client::find(path);
    client->listen();
    for (u32 i = 0; i < 3000; i++)
        EXPECT_EQ(tell(), 0);
    EXPECT_FALSE(client->has_lost_events());
    while (client->next_event(5000)) {
    }
    EXPECT_TRUE(client->has_lost_events());
    EXPECT_FALSE(client->has_lost_events());
    EXPECT_EQ(client->command(client::Message(TARNFWD_CMD_IF_UPDATE)).error, -EINVAL);
}

TEST_F(NlServer, ends_at_once_whatever_is_unread) {
    NetlinkEnd slow(path);
    for (u32 i = 0; i < 3000; i++)
        slow.put(NetlinkEnd::request(inside.family, i));
    auto begin = std::chrono::steady_clock::now();
    machine::netlink_end();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_EQ(access(path.c_str(), F_OK), -1);
}

} // namespace
