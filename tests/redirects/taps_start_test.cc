// The taps where their start fails.
#include "support/switch_test.h"

#include "events/tarnfwd_netlink.h"
#include "module/tarn_module.h"
#include "redirects/redirects.h"

using ::testing::ElementsAre;

namespace {

std::vector<std::string> texts() {
    std::vector<std::string> lines;
    for (const userlevel::log_line &line : userlevel::log_take())
        lines.push_back(std::to_string(line.level) + " " + line.text);
    return lines;
}

packet_redirect squatter() {
    return {.name = "squatter",
            .match = [](tarn_pkt_info *, redirect_instruct *) { return 0; },
            .post = tarn_pkt_packet_post_dummy};
}

TEST(TapsStart, sflow_is_there_when_its_group_is_taken) {
    tarnfwd_netlink_init();
    ASSERT_EQ(tarnfwd_netlink_reserve(1), 0);
    EXPECT_EQ(tarn_netlink_sflow_sock_init(), -EBUSY);
    EXPECT_NE(packet_redirects[5], nullptr);
    EXPECT_THAT(texts(), ElementsAre("3 Error reserving netlink groups: 0x1\n",
                                     "3 Error reserving sflow netlink group\n"));
}

TEST(TapsStart, sflow_does_not_start_where_its_slot_is_taken) {
    tarnfwd_netlink_init();
    packet_redirect record = squatter();
    ASSERT_EQ(tarn_pkt_register_packet_redirection(&record, 5), 0);
    EXPECT_EQ(tarn_netlink_sflow_sock_init(), -EINVAL);
}

TEST(TapsStart, flowd_is_not_there_when_its_group_is_taken) {
    tarnfwd_netlink_init();
    ASSERT_EQ(tarnfwd_netlink_reserve(2), 0);
    EXPECT_EQ(tarn_netlink_flowd_init(), -EBUSY);
    EXPECT_EQ(packet_redirects[6], nullptr);
    EXPECT_THAT(texts(), ElementsAre("3 Error reserving netlink groups: 0x2\n",
                                     "3 Error reserving FLOWD netlink group\n"));
}

TEST(TapsStart, flowd_says_so_where_its_slot_is_taken) {
    tarnfwd_netlink_init();
    packet_redirect record = squatter();
    ASSERT_EQ(tarn_pkt_register_packet_redirection(&record, 6), 0);
    EXPECT_EQ(tarn_netlink_flowd_init(), -EINVAL);
    EXPECT_EQ(packet_redirects[6]->enabled, 1);
    EXPECT_THAT(texts(), ElementsAre("2 Redirect index already registered for squatter flowd\n",
                                     "3 Error registering FLOWD redirection\n"));
}

// Frames are sampled all the same; nobody gets them.
TEST(TapsStart, without_the_socket_a_sample_ends_in_silence) {
    userlevel::snapshot before = userlevel::take_snapshot();
    tarnfwd_netlink_init();
    ASSERT_EQ(tarn_netlink_sflow_sock_init(), 0);
    (void)before;
    tarn_if port{};
    tarn_post_info info{.rx_port = &port, .code = 8};
    sk_buff *skb =
        packet_redirects[5]->post(userlevel::frame_make(Frame().padded().build()), &info);
    ASSERT_NE(skb, nullptr);
    kfree_skb(skb);
}

} // namespace
