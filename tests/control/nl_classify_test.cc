// The commands on what becomes of frames: each is told by a frame that ends another way.
#include "control/nl_client.h"
#include "support/redirect_seams.h"

namespace {

class NlClassify : public SwitchTest {
protected:
    NlClassify() { redirect_seams::answers().ipv4_type = 0; } // but where a test says more
    ~NlClassify() override {
        Command(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_FLUSH).to(client);
        remember(); // tables keep what they have
    }
    // The reason that a redirect stopped the frame for, 0 where it did not.
    u32 reason_of(const std::string &name, const Bytes &frame) {
        const packet_redirect before = redirect(name);
        receive(frame);
        for (u32 reason = 1; reason < REDIRECT_REASONS; reason++)
            if (redirect(name).stop_reasons[reason] != before.stop_reasons[reason])
                return reason;
        return 0;
    }
    static Bytes multicast() {
        return Frame().to("01:00:5e:01:02:03").ipv4({.destination = {239, 1, 2, 3}}).padded();
    }
    static Bytes web() {
        return Frame().ipv4({.protocol = 6}).bytes({1, 1, 0, 80}).bytes(Bytes(16));
    }
    int group(tarnfwd_cmd command, u8 last) {
        return Command(command)
            .word(TARNFWD_ATTR_ID, 0)
            .vid(1)
            .bytes(TARNFWD_ATTR_IPV4_ADDR, {239, 1, 2, last})
            .to(client);
    }
    int host(tarnfwd_cmd command, u8 last) {
        return Command(command).bytes(TARNFWD_ATTR_IPV4_ADDR, {192, 0, 2, last}).to(client);
    }
    Client client;
};

TEST_F(NlClassify, a_flooding_group_ends_at_mcdrop_until_it_is_removed) {
    EXPECT_EQ(group(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_ADD, 4), 0);
    EXPECT_EQ(reason_of("mcdrop", multicast()), 0u);
    EXPECT_EQ(group(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_ADD, 3), 0);
    EXPECT_EQ(reason_of("mcdrop", multicast()), 2u);
    EXPECT_EQ(group(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_REMOVE, 3), 0);
    EXPECT_EQ(reason_of("mcdrop", multicast()), 0u);
    EXPECT_EQ(group(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_REMOVE, 3), -1) << "it is not there";
}

TEST_F(NlClassify, after_a_flush_groups_can_be_added_again) {
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(group(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_ADD, 3), 0);
        EXPECT_EQ(reason_of("mcdrop", multicast()), 2u);
        EXPECT_EQ(Command(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_FLUSH).to(client), 0);
        EXPECT_EQ(reason_of("mcdrop", multicast()), 0u);
    }
}

TEST_F(NlClassify, the_rate_of_unregistered_multicast_is_set_for_both_families) {
    userlevel::clock_stop(1000000);
    redirect_seams::answers().ipv4_type = redirect_seams::answers().ipv6_type = 3;
    auto passed = [&](auto frame) {
        u32 count = 0;
        for (u8 n = 1; n <= 30; n++)
            count += reason_of("mcdrop", frame(n)) == 0;
        return count;
    };
    auto ipv4 = [](u8 n) -> Bytes {
        return Frame().to("01:00:5e:01:02:03").ipv4({.source = {10, 0, 0, n}}).padded();
    };
    auto ipv6 = [](u8 n) -> Bytes {
        Ipv6 header;
        header.source[0] = n;
        return Frame().to("33:33:00:00:00:fb").ipv6(header).padded();
    };
    auto limit = [&](u32 value) {
        return Command(TARNFWD_CMD_MULTICAST_RATELIMIT)
            .word(TARNFWD_ATTR_MC_RATE_LIMIT, value)
            .to(client);
    };
    redirect_seams::answers().ipv6_type = 0;
    EXPECT_EQ(limit(3), 0);
    EXPECT_EQ(passed(ipv4), 3u);
    EXPECT_EQ(limit(0), 0);
    EXPECT_EQ(passed(ipv4), 30u);
    redirect_seams::answers().ipv4_type = 0;
    redirect_seams::answers().ipv6_type = 3;
    EXPECT_EQ(limit(7), 0);
    EXPECT_EQ(passed(ipv6), 7u);
}

TEST_F(NlClassify, web_traffic_of_a_listed_host_is_taken_until_it_is_removed) {
    EXPECT_EQ(host(TARNFWD_CMD_VORNAPPSD_REDIRECT_ADD_IP_ADDRESS, 9), 0);
    EXPECT_EQ(reason_of("vornappsd", web()), 0u);
    EXPECT_EQ(host(TARNFWD_CMD_VORNAPPSD_REDIRECT_ADD_IP_ADDRESS, 1), 0);
    EXPECT_EQ(reason_of("vornappsd", web()), 1u);
    EXPECT_EQ(host(TARNFWD_CMD_VORNAPPSD_REDIRECT_REMOVE_IP_ADDRESS, 1), 0);
    EXPECT_EQ(reason_of("vornappsd", web()), 0u);
    EXPECT_EQ(host(TARNFWD_CMD_VORNAPPSD_REDIRECT_REMOVE_IP_ADDRESS, 1), 0) << "always";
}

TEST_F(NlClassify, arp_of_a_group_address_passes_where_it_is_allowed) {
    Bytes reply = Frame().type(0x0806).bytes({0, 1, 8, 0, 6, 4, 0, 2, 3, 0, 0, 0, 0, 9}).padded();
    EXPECT_EQ(reason_of("arp", reply), 10u);
    EXPECT_EQ(Command(TARNFWD_CMD_ARP_MAC_DISPARITY).ifindex(301).state(1).to(client), 0);
    EXPECT_EQ(reason_of("arp", reply), 12u);
}

TEST_F(NlClassify, the_files_of_proc_turn_redirects_on_and_off_and_force_the_master) {
    EXPECT_EQ(reason_of("ipv4", Frame().ipv4({})), 4u);
    EXPECT_EQ(userlevel::proc_write("tarn/redirectprotocoldisable", "ipv4\n"), 5);
    EXPECT_EQ(reason_of("ipv4", Frame().ipv4({})), 0u);
    EXPECT_EQ(userlevel::proc_write("tarn/redirectprotocolenable", "ipv4\n"), 5);
    EXPECT_EQ(userlevel::proc_write("tarn/pktdebugslaveonly", "1\n"), 2);
    EXPECT_EQ(reason_of("ipv4", Frame().ipv4({})), 3u);
    EXPECT_EQ(userlevel::proc_write("tarn/pktdebugslaveonly", "0\n"), 2);
    EXPECT_EQ(userlevel::proc_write("tarn/pktdebuglowmem", "1\n"), 2);
    EXPECT_EQ(reason_of("ipv4", Frame().ipv4({})), 1u);
    EXPECT_EQ(userlevel::proc_write("tarn/pktdebuglowmem", "0\n"), 2);
}

} // namespace
