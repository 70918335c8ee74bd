// "arp": its tests one by one, each met by a frame that passes all before it.
#include "redirects/redirects_test.h"

namespace {

constexpr u32 ARP = 0x0806;
constexpr const char *HOST = "02:00:00:00:00:99";
constexpr const char *GROUP = "03:00:00:00:00:99";
constexpr const char *ALL_ONES = "ff:ff:ff:ff:ff:ff";

class Arp : public Redirects {
protected:
    static Bytes arp(u16 operation, const std::string &sender = HOST, u32 tags = 0) {
        Frame frame;
        frame.to(ALL_ONES).from(HOST);
        for (u32 i = 0; i < tags; i++)
            frame.tag(1);
        frame.type(ARP);
        Bytes packet{0, 1, 8, 0, 6, 4, 0, static_cast<u8>(operation)};
        Mac hardware = mac(sender);
        packet.insert(packet.end(), hardware.begin(), hardware.end());
        packet.insert(packet.end(), {192, 0, 2, 1, 0, 0, 0, 0, 0, 0, 192, 0, 2, 254});
        return frame.bytes(packet).padded();
    }
    // How the frame ended: the reason, and its words.
    u32 reason_for(const Bytes &frame, const Arrival &arrival = {}) {
        const packet_redirect before = redirect("arp");
        words = "";
        {
            userlevel::trace_watch watch([&](const redirect_event &event) {
                if (event.redirect == std::string("arp") && event.rule)
                    words = event.rule;
            });
            receive(frame, arrival);
        }
        EXPECT_EQ(redirect("arp").stops, before.stops + 1);
        for (u32 reason = 0; reason < REDIRECT_REASONS; reason++)
            if (redirect("arp").stop_reasons[reason] != before.stop_reasons[reason])
                return reason;
        return 0;
    }
    std::string words;
};

TEST_F(Arp, goes_to_the_ip_stack) {
    EXPECT_EQ(reason_for(arp(1)), 12u);
    EXPECT_EQ(reason_for(arp(2)), 12u);
    EXPECT_EQ(redirect("arp").kernel, 2u);
    ASSERT_EQ(calls().kernel.size(), 2u);
    EXPECT_EQ(calls().kernel[0].l3_if, vlan1());
}

TEST_F(Arp, stops_at_the_gate) {
    expect_stopped_at_the_gate("arp", passing(ARP), 2);
}

TEST_F(Arp, for_the_master_is_replicated_without_a_throttle) {
    tarn_pkt_info info = passing(ARP);
    info.slave_only = 1;
    for (int i = 0; i < 300; i++)
        ASSERT_EQ(decide("arp", info), (Decision{MASTER, 3}));
}

TEST_F(Arp, a_slave_answers_on_a_vlan_of_its_own_only) {
    calls().stack_slave = 1;
    answers().arp_check = -EINVAL; // not asked yet
    EXPECT_EQ(reason_for(arp(1)), 4u);
    EXPECT_EQ(reason_for(arp(1), {.vid = 2}), 4u); // no interface
    EXPECT_TRUE(answers().arp_checks.empty());
    answers().arp_check.reset();
    vlan1()->if_flags |= TARN_IF_F_VLAN_LOCAL;
    EXPECT_EQ(reason_for(arp(1)), 12u);
}

TEST_F(Arp, wants_a_port_that_runs) {
    tarn_pkt_info info = passing(ARP);
    info.l3_if = info.vlan_if = vlan1();
    EXPECT_EQ(decide("arp", info), (Decision{STOP, 5}));
    EXPECT_STREQ(why.rule, "the frame has no port");
    port1()->flags &= ~0x40u;
    EXPECT_EQ(reason_for(arp(1)), 5u);
    EXPECT_EQ(words, "the port is not running");
}

TEST_F(Arp, wants_a_layer_3_port) {
    EXPECT_EQ(reason_for(arp(1), {.vid = 2}), 6u);
}

TEST_F(Arp, the_layer_3_port_is_that_of_the_receive_vid_cut_to_16_bits) {
    sk_buff *skb = userlevel::frame_make(arp(1));
    tarn_pkt_info info = passing(ARP);
    info.skb = skb;
    info.l2_port = port1();
    info.l3_if = vlan1();
    info.rx_vid = 0x30001;
    EXPECT_EQ(decide("arp", info), (Decision{KERNEL, 12}));
    info.rx_vid = 0x30002;
    EXPECT_EQ(decide("arp", info), (Decision{STOP, 6}));
    kfree_skb(skb);
}

TEST_F(Arp, the_layer_3_port_must_be_up_and_running) {
    vlan1()->flags &= ~0x1u;
    EXPECT_EQ(reason_for(arp(1)), 7u);
    EXPECT_EQ(words, "the layer 3 port is not up");
    vlan1()->flags = 0x1003;
    EXPECT_EQ(reason_for(arp(1)), 7u);
    EXPECT_EQ(words, "the layer 3 port is not running");
}

TEST_F(Arp, a_routed_port_is_its_own_layer_3_port) {
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    EXPECT_EQ(reason_for(arp(1)), 12u);
    ASSERT_EQ(calls().kernel.size(), 1u);
    EXPECT_EQ(calls().kernel[0].l3_if, port1());
}

TEST_F(Arp, is_checked_against_the_leases_when_told_so) {
    answers().arp_check = -EINVAL;
    EXPECT_EQ(reason_for(arp(1)), 8u);
    answers().arp_check = 0;
    EXPECT_EQ(reason_for(arp(2)), 12u);
    EXPECT_EQ(reason_for(arp(2, HOST, 2)), 12u);
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    EXPECT_EQ(reason_for(arp(2)), 12u);
    ASSERT_EQ(answers().arp_checks.size(), 4u);
    EXPECT_EQ(answers().arp_checks[3].vid, 0u); // of a routed port
    EXPECT_EQ(answers().arp_checks[0].port, port1());
    EXPECT_EQ(answers().arp_checks[0].vid, 1u);
    EXPECT_EQ(answers().arp_checks[0].arp_offset, 14u);
    EXPECT_EQ(answers().arp_checks[2].arp_offset, 18u); // behind the tag that is left
}

TEST_F(Arp, no_request_is_answered_while_a_master_is_chosen) {
    answers().master_pending = true;
    EXPECT_EQ(reason_for(arp(1)), 9u);
    EXPECT_EQ(reason_for(arp(1, HOST, 2)), 9u);
    EXPECT_EQ(reason_for(arp(2)), 12u);
    EXPECT_EQ(reason_for(arp(3)), 12u);
}

TEST_F(Arp, a_multicast_sender_is_refused_and_a_broadcast_one_is_not) {
    EXPECT_EQ(reason_for(arp(2, GROUP)), 10u);
    EXPECT_EQ(reason_for(arp(2, "ff:ff:ff:ff:ff:fe")), 10u);
    EXPECT_EQ(reason_for(arp(2, ALL_ONES)), 12u);
    EXPECT_EQ(reason_for(arp(2, GROUP, 2)), 10u);
    vlan1()->if_flags |= TARN_IF_F_ARP_MAC_DISPARITY;
    EXPECT_EQ(reason_for(arp(2, GROUP)), 12u);
}

TEST_F(Arp, spanning_tree_must_forward) {
    vlan1()->stp_instance = 3;
    const std::string be[] = {"disabled", "listening", "learning", "", "blocking", "disabled"};
    for (u32 state = 0; state <= 5; state++) {
        port1()->stp_state[3] = state;
        EXPECT_EQ(reason_for(arp(1)), state == TARN_STP_FORWARDING ? 12u : 11u) << state;
        if (state != TARN_STP_FORWARDING) {
            EXPECT_EQ(words, "spanning tree: the port is " + be[state]);
        }
    }
}

TEST_F(Arp, a_port_that_authenticates_over_the_web_keeps_arp) {
    port1()->stp_state[0] = TARN_STP_BLOCKING;
    port1()->auth_method = 0x3;
    EXPECT_EQ(reason_for(arp(1)), 11u);
    port1()->auth_method = 0x4;
    EXPECT_EQ(reason_for(arp(1)), 12u);
    port1()->auth_method = 0;
    port1()->auth_arp_forward = 1;
    EXPECT_EQ(reason_for(arp(1)), 12u);
}

TEST_F(Arp, wants_an_interface_to_go_to) {
    sk_buff *skb = userlevel::frame_make(arp(1));
    tarn_pkt_info info = passing(ARP);
    info.skb = skb;
    info.l2_port = port1();
    info.rx_vid = 1; // the port's VLAN has one, the frame's has not
    EXPECT_EQ(decide("arp", info), (Decision{STOP, 13}));
    kfree_skb(skb);
}

// What is wrong first is told, however much is wrong behind it.
TEST_F(Arp, asks_in_this_order) {
    sk_buff *skb = userlevel::frame_make(arp(1, GROUP));
    tarn_pkt_info info = passing(ARP);
    info.skb = skb;
    info.rx_vid = 2;
    info.src_mac_is_own = info.slave_only = info.stack_slave = 1;
    port1()->flags &= ~0x40u;
    port1()->stp_state[0] = TARN_STP_BLOCKING;
    vlan1()->flags &= ~0x40u;
    answers().arp_check = -EINVAL;
    answers().master_pending = true;
    const std::pair<u32, std::function<void()>> mended[] = {
        {2, [&] { info.src_mac_is_own = 0; }},
        {3, [&] { info.slave_only = 0; }},
        {4, [&] { info.stack_slave = 0; }},
        {5, [&] { info.l2_port = port1(); }},
        {5, [&] { port1()->flags |= 0x40u; }},
        {6, [&] { info.rx_vid = 1; }},
        {7, [&] { vlan1()->flags |= 0x40u; }},
        {8, [&] { answers().arp_check = 0; }},
        {9, [&] { answers().master_pending = false; }},
        {10, [&] { vlan1()->if_flags |= TARN_IF_F_ARP_MAC_DISPARITY; }},
        {11, [&] { port1()->stp_state[0] = TARN_STP_FORWARDING; }},
        {13, [&] { info.l3_if = vlan1(); }},
    };
    for (const auto &[reason, mend] : mended) {
        EXPECT_EQ(decide("arp", info).reason, reason);
        mend();
    }
    EXPECT_EQ(decide("arp", info), (Decision{KERNEL, 12}));
    kfree_skb(skb);
}

TEST_F(Arp, a_packet_that_is_cut_short_reads_zero) {
    Bytes frame = arp(1);
    for (std::size_t length = 14; length < 42; length++) {
        frame.resize(14);
        EXPECT_EQ(reason_for(Frame().from(HOST).type(ARP).cut(length)), 12u);
    }
}

TEST_F(Arp, on_an_aggregator_spanning_tree_and_authentication_are_its_own) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    aggregator->flags = TARN_IF_LINK;
    vlan1()->stp_instance = 2;
    aggregator->stp_state[2] = TARN_STP_FORWARDING;
    port1()->stp_state[2] = TARN_STP_BLOCKING;
    EXPECT_EQ(reason_for(arp(1)), 12u);
    aggregator->stp_state[2] = TARN_STP_LISTENING;
    port1()->stp_state[2] = TARN_STP_FORWARDING;
    EXPECT_EQ(reason_for(arp(1)), 11u);
    port1()->auth_method = 0x4;
    port1()->auth_arp_forward = 1;
    EXPECT_EQ(reason_for(arp(1)), 11u);
    aggregator->auth_method = 0x4;
    EXPECT_EQ(reason_for(arp(1)), 12u);
    aggregator->auth_method = 0;
    aggregator->auth_arp_forward = 1;
    EXPECT_EQ(reason_for(arp(1)), 12u);
}

TEST_F(Arp, on_an_aggregator_the_leases_are_its_own) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    aggregator->flags = TARN_IF_LINK;
    answers().arp_check = -EINVAL;
    EXPECT_EQ(reason_for(arp(1)), 8u);
    ASSERT_EQ(answers().arp_checks.size(), 1u);
    EXPECT_EQ(answers().arp_checks[0].port, aggregator);
}

TEST_F(Arp, on_an_aggregator_the_aggregator_is_the_port) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    aggregator->flags = 0x1003;
    EXPECT_EQ(reason_for(arp(1)), 5u);
    EXPECT_EQ(words, "the port is not running");
}

} // namespace
