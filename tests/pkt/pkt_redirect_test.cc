// The registry of redirects.
#include "support/fake_driver.h"
#include "support/switch_test.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

class Registry : public SwitchTest {
protected:
    static i32 never(tarn_pkt_info *, redirect_instruct *) { return 0; }

    packet_redirect record{
        .name = "mine", .match = never, .post = tarn_pkt_packet_post_dummy, .stops = 7};

    i32 register_at(u32 slot) {
        return configure([&] { return tarn_pkt_register_packet_redirection(&record, slot); });
    }
    std::string counters(u32 mode) {
        return printed([&](seq_file *view) { print_redirect_counters(mode, view); });
    }
};

TEST_F(Registry, refuses_an_index_out_of_bounds) {
    EXPECT_EQ(register_at(51), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("2 Failed to register packet type mine index out of bounds\n"));
}

TEST_F(Registry, takes_the_last_index) {
    // "ptp" has slot 50 from the start: a slot that is taken is past the test of the bounds.
    EXPECT_EQ(register_at(50), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("2 Redirect index already registered for ptp mine\n"));
    configure([&] {
        kfree(packet_redirects[50]);
        packet_redirects[50] = nullptr;
    });
    EXPECT_EQ(register_at(50), 0);
}

TEST_F(Registry, tests_the_index_before_the_name) {
    record.name[0] = '\0';
    EXPECT_EQ(register_at(51), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("2 Failed to register packet type  index out of bounds\n"));
}

TEST_F(Registry, refuses_a_record_without_a_name) {
    record.name[0] = '\0';
    record.match = nullptr;
    EXPECT_EQ(register_at(40), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("2 No name specified for packet_redirect\n"));
}

TEST_F(Registry, refuses_a_record_without_a_match) {
    record.match = nullptr;
    record.post = nullptr;
    EXPECT_EQ(register_at(40), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("2 Match function not specified mine\n"));
}

TEST_F(Registry, refuses_a_record_without_a_post) {
    record.post = nullptr;
    EXPECT_EQ(register_at(7), -EINVAL); // taken: the post is tested first
    EXPECT_THAT(log(), ElementsAre("2 Post to userspace function not specified mine\n"));
}

TEST_F(Registry, keeps_the_first_record_of_a_slot) {
    packet_redirect *first = packet_redirects[7];
    EXPECT_EQ(register_at(7), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("2 Redirect index already registered for l2drop mine\n"));
    EXPECT_EQ(packet_redirects[7], first);
    EXPECT_STREQ(first->name, "l2drop");
}

TEST_F(Registry, reports_that_memory_ran_out) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_pkt_register_packet_redirection(&record, 40), -ENOMEM);
    EXPECT_THAT(log(),
                ElementsAre("2 Failed to register packet type mine due to insufficient memory\n"));
    EXPECT_EQ(packet_redirects[40], nullptr);
}

TEST_F(Registry, prints_a_name_that_fills_its_field) {
    std::fill(std::begin(record.name), std::end(record.name), 'x');
    EXPECT_EQ(register_at(51), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("2 Failed to register packet type " + std::string(20, 'x') +
                                   " index out of bounds\n"));
}

TEST_F(Registry, a_copy_starts_enabled_with_all_counters_zero) {
    record.inspects = record.kernel = record.userspace = record.resend_l2 = record.stack_rep = 9;
    record.flood_l2 = record.modify_rx_inspects = record.modify_tx_inspects = 9;
    record.kernel_port = record.stop_reasons[0] = record.stop_reasons[19] = 9;
    record.stack_repl_type = STACK_REPL_MCAST;
    record.skip_protocols = SKIP_ARP;
    ASSERT_EQ(register_at(40), 0);
    const packet_redirect &copy = *packet_redirects[40];
    EXPECT_NE(&copy, &record);
    EXPECT_EQ(copy.enabled, 1);
    EXPECT_EQ(copy.stack_repl_type, STACK_REPL_MCAST);
    EXPECT_EQ(copy.skip_protocols, SKIP_ARP);
    for (u32 counter :
         {copy.inspects, copy.stops, copy.kernel, copy.userspace, copy.resend_l2, copy.stack_rep,
          copy.flood_l2, copy.modify_rx_inspects, copy.modify_tx_inspects, copy.kernel_port})
        EXPECT_EQ(counter, 0u);
    for (u32 reason : copy.stop_reasons)
        EXPECT_EQ(reason, 0u);
}

TEST_F(Registry, allocates_atomically_where_the_caller_must_not_sleep) {
    local_bh_disable();
    i32 result = register_at(40);
    local_bh_enable();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), 0u);
}

TEST_F(Registry, enables_and_disables_by_slot) {
    EXPECT_EQ(enable_redirect(7, 0), 0);
    EXPECT_EQ(redirect("l2drop").enabled, 0);
    EXPECT_EQ(enable_redirect(7, 1), 0);
    EXPECT_EQ(redirect("l2drop").enabled, 1);
    EXPECT_EQ(enable_redirect(51, 1), -EINVAL);
}

TEST_F(Registry, an_empty_slot_cannot_be_enabled) {
    EXPECT_EQ(enable_redirect(40, 1), -EINVAL);
}

TEST_F(Registry, enabling_by_name_reaches_every_slot_of_that_name) {
    ASSERT_EQ(register_at(40), 0);
    ASSERT_EQ(register_at(12), 0);
    EXPECT_EQ(enable_redirect_by_name("mine", 0), 0);
    EXPECT_EQ(packet_redirects[40]->enabled, 0);
    EXPECT_EQ(packet_redirects[12]->enabled, 0);
    EXPECT_EQ(enable_redirect_by_name("mine", 1), 0);
    EXPECT_EQ(packet_redirects[40]->enabled, 1);
    EXPECT_EQ(packet_redirects[12]->enabled, 1);
}

TEST_F(Registry, enabling_by_an_unknown_name_fails) {
    EXPECT_EQ(enable_redirect_by_name("nobody", 1), -EINVAL);
    EXPECT_EQ(enable_redirect_by_name("l2dro", 1), -EINVAL);
    EXPECT_EQ(enable_redirect_by_name("l2drops", 1), -EINVAL);
}

TEST_F(Registry, names_are_compared_over_twenty_characters) {
    std::fill(std::begin(record.name), std::end(record.name), 'x');
    ASSERT_EQ(register_at(40), 0);
    EXPECT_EQ(enable_redirect_by_name((std::string(20, 'x') + "behind").c_str(), 0), 0);
    EXPECT_EQ(packet_redirects[40]->enabled, 0);
}

TEST_F(Registry, the_twentieth_character_tells_names_apart) {
    std::fill(std::begin(record.name), std::end(record.name), 'x');
    ASSERT_EQ(register_at(40), 0);
    record.name[19] = 'y';
    ASSERT_EQ(register_at(12), 0);
    EXPECT_EQ(enable_redirect_by_name((std::string(19, 'x') + "y").c_str(), 0), 0);
    EXPECT_EQ(packet_redirects[40]->enabled, 1);
    EXPECT_EQ(packet_redirects[12]->enabled, 0);
    EXPECT_EQ(enable_redirect_by_name(std::string(19, 'x').c_str(), 0), -EINVAL);
    EXPECT_EQ(packet_redirects[40]->enabled, 1);
}

// Asked like any other, and on neither list.
TEST_F(Registry, a_value_above_1_enables_too) {
    for (u32 slot : {7u, 11u, 0u}) // l2drop, pbrMark, orvo-bridge
        EXPECT_EQ(enable_redirect(slot, 2), 0);
    EXPECT_EQ(enable_redirect_by_name("vrrp", 255), 0);
    EXPECT_EQ(redirect("vrrp").enabled, 255);
    receive(Frame().from("ff:ff:ff:ff:ff:ff"));
    EXPECT_EQ(redirect("l2drop").stop_reasons[1], 1u);
    EXPECT_EQ(redirect("pbrMark").modify_rx_inspects, 1u);
    fake_driver::attach();
    userlevel::netdev_transmit(vlan1()->netdev, Bytes(60));
    EXPECT_EQ(redirect("orvo-bridge").modify_tx_inspects, 1u);

    EXPECT_THAT(counters(REDIRECT_COUNTERS_RX), HasSubstr("l2drop_stops: 1 1:1\n"));
    EXPECT_THAT(counters(REDIRECT_COUNTERS_MODIFY_RX),
                HasSubstr("pbrMark_modify_rx_inspects: 1\n"));
    EXPECT_THAT(counters(REDIRECT_COUNTERS_MODIFY_TX),
                HasSubstr("orvo-bridge_modify_tx_inspects: 1\n"));
    for (u8 listed : {0, 1}) {
        std::string list = printed([=](seq_file *view) { print_redirect_protocols(listed, view); });
        for (const char *name : {"l2drop\n", "pbrMark\n", "orvo-bridge\n", "vrrp\n"})
            EXPECT_THAT(list, Not(HasSubstr(name))) << int{listed};
    }
}

TEST_F(Registry, clears_the_counters_of_one_slot) {
    redirect("l2drop").inspects = 5;
    redirect("l2drop").stop_reasons[0] = 5;
    redirect("pim").inspects = 5;
    tarn_pkt_redirect_clear_counters(7);
    EXPECT_EQ(redirect("l2drop").inspects, 0u);
    EXPECT_EQ(redirect("l2drop").stop_reasons[0], 0u);
    EXPECT_EQ(redirect("pim").inspects, 5u);
    tarn_pkt_redirect_clear_counters(40); // empty
    tarn_pkt_redirect_clear_counters(51); // out of bounds
}

TEST_F(Registry, receive_counters_print_in_eight_lines) {
    packet_redirect &l2drop = redirect("l2drop");
    l2drop.inspects = 1;
    l2drop.userspace = 2;
    l2drop.kernel = 3;
    l2drop.resend_l2 = 4;
    l2drop.flood_l2 = 5;
    l2drop.stack_rep = 6;
    l2drop.kernel_port = 7;
    l2drop.stops = 8;
    l2drop.stop_reasons[0] = 1;
    l2drop.stop_reasons[1] = 3;
    l2drop.stop_reasons[19] = 4;
    EXPECT_THAT(counters(REDIRECT_COUNTERS_RX), HasSubstr("l2drop_inspects: 1\n"
                                                          "l2drop_userspace: 2\n"
                                                          "l2drop_kernel: 3\n"
                                                          "l2drop_resend_l2: 4\n"
                                                          "l2drop_flood_l2: 5\n"
                                                          "l2drop_stack_rep: 6\n"
                                                          "l2drop_kernel_port: 7\n"
                                                          "l2drop_stops: 8 1:3 19:4\n"));
}

TEST_F(Registry, reason_zero_is_left_out_of_the_print) {
    redirect("l2drop").stops = 2;
    redirect("l2drop").stop_reasons[0] = 2;
    EXPECT_THAT(counters(REDIRECT_COUNTERS_RX), HasSubstr("l2drop_stops: 2\n"));
}

TEST_F(Registry, receive_counters_print_in_the_order_of_the_chain) {
    std::string text = counters(REDIRECT_COUNTERS_RX);
    EXPECT_EQ(text.find("vlan_local_inspects: 0\n"), 0u);
    EXPECT_LT(text.find("ptp_inspects"), text.find("dos_inspects"));
    EXPECT_LT(text.find("dos_inspects"), text.find("l2drop_inspects"));
    EXPECT_LT(text.find("l2drop_inspects"), text.find("pppoe_inspects"));
    EXPECT_THAT(text, Not(HasSubstr("pbrMark"))); // only modifies
}

TEST_F(Registry, a_disabled_redirect_keeps_its_place_and_prints_as_disabled) {
    redirect("ptp").inspects = 4;
    std::string text = counters(REDIRECT_COUNTERS_RX);
    EXPECT_THAT(text, HasSubstr("ptp_inspects: 4 DISABLED\n"));
    EXPECT_THAT(text, Not(HasSubstr("ptp_userspace")));
}

TEST_F(Registry, modify_rx_counters_print_one_line_each) {
    redirect("pbrMark").modify_rx_inspects = 3;
    redirect("filterMatchCpuCode").modify_rx_inspects = 4;
    EXPECT_EQ(counters(REDIRECT_COUNTERS_MODIFY_RX), "arp_inspects: 0 DISABLED\n" // has no hook
                                                     "filterMatchCpuCode_modify_rx_inspects: 4\n"
                                                     "icmpCpucode_modify_rx_inspects: 0\n"
                                                     "pbrMark_modify_rx_inspects: 3\n"
                                                     "ipv4_modify_rx_inspects: 0\n"
                                                     "ipv6_precheck_modify_rx_inspects: 0\n"
                                                     "isis_inspects: 0 DISABLED\n");
    enable_redirect(11, 0);
    redirect("pbrMark").inspects = 9;
    EXPECT_THAT(counters(REDIRECT_COUNTERS_MODIFY_RX), HasSubstr("pbrMark_inspects: 9 DISABLED\n"));
}

TEST_F(Registry, a_slot_that_lacks_the_hook_prints_as_disabled) {
    redirect("pbrMark").modify_rx = nullptr;
    redirect("pbrMark").inspects = 2;
    EXPECT_THAT(counters(REDIRECT_COUNTERS_MODIFY_RX), HasSubstr("pbrMark_inspects: 2 DISABLED\n"));
}

TEST_F(Registry, modify_tx_counters_print_one_line_each) {
    redirect("orvo-bridge").modify_tx_inspects = 5;
    redirect("l3drop").inspects = 6;
    EXPECT_EQ(counters(REDIRECT_COUNTERS_MODIFY_TX), "orvo-bridge_modify_tx_inspects: 5\n"
                                                     "ryke_modify_tx_inspects: 0\n"
                                                     "l3drop_inspects: 6 DISABLED\n");
}

TEST_F(Registry, a_mode_that_does_not_exist_prints_nothing) {
    EXPECT_EQ(counters(3), "");
}

TEST_F(Registry, a_hidden_redirect_is_hidden_in_all_modes) {
    skip_protocol_set("l3drop");
    EXPECT_THAT(counters(REDIRECT_COUNTERS_RX), Not(HasSubstr("l3drop")));
    EXPECT_THAT(counters(REDIRECT_COUNTERS_MODIFY_TX), Not(HasSubstr("l3drop")));
    skip_protocol_set("pbrMark");
    EXPECT_THAT(counters(REDIRECT_COUNTERS_MODIFY_RX), Not(HasSubstr("pbrMark")));
    EXPECT_THAT(counters(REDIRECT_COUNTERS_RX), HasSubstr("l3drop")); // one name at a time
}

TEST_F(Registry, the_hidden_name_is_cut_at_nineteen_characters) {
    std::fill(std::begin(record.name), std::end(record.name), 'x');
    record.name[19] = '\0';
    ASSERT_EQ(register_at(40), 0);
    skip_protocol_set(std::string(30, 'x').c_str());
    EXPECT_THAT(counters(REDIRECT_COUNTERS_RX), Not(HasSubstr("xxx")));
}

// One that fills its field is never the hidden one.
TEST_F(Registry, a_name_of_twenty_characters_is_not_hidden) {
    std::fill(std::begin(record.name), std::end(record.name), 'x');
    ASSERT_EQ(register_at(40), 0);
    skip_protocol_set(std::string(20, 'x').c_str());
    EXPECT_THAT(counters(REDIRECT_COUNTERS_RX), HasSubstr(std::string(20, 'x') + "_stops"));
}

TEST_F(Registry, a_name_of_twenty_characters_is_printed_whole) {
    const std::string name(20, 'x');
    std::copy(name.begin(), name.end(), record.name);
    record.modify_rx = [](tarn_rx_modify *, const tarn_rx_meta *, tarn_if *, sk_buff *) {};
    record.modify_tx = [](tarn_if *, sk_buff *skb) { return skb; };
    ASSERT_EQ(register_at(40), 0);
    ASSERT_EQ(register_at(39), 0);
    for (const char *counter : {"_inspects: ", "_userspace: ", "_kernel: ", "_resend_l2: ",
                                "_flood_l2: ", "_stack_rep: ", "_kernel_port: ", "_stops: "})
        EXPECT_THAT(counters(REDIRECT_COUNTERS_RX), HasSubstr("\n" + name + counter + "0\n"));
    EXPECT_THAT(counters(REDIRECT_COUNTERS_MODIFY_RX), HasSubstr("\n" + name + "_modify_rx"));
    EXPECT_THAT(counters(REDIRECT_COUNTERS_MODIFY_TX), HasSubstr("\n" + name + "_modify_tx"));
    auto listed = [](seq_file *view) { print_redirect_protocols(1, view); };
    EXPECT_THAT(printed(listed), HasSubstr("\n" + name + "\n"));
    EXPECT_EQ(enable_redirect_by_name(name.c_str(), 0), 0);
    EXPECT_THAT(counters(REDIRECT_COUNTERS_RX), HasSubstr("\n" + name + "_inspects: 0 DISABLED\n"));
}

TEST_F(Registry, lists_redirects_by_whether_they_are_enabled) {
    std::string off = printed([](seq_file *view) { print_redirect_protocols(0, view); });
    EXPECT_THAT(off, HasSubstr("remote-mirror\n"));
    EXPECT_THAT(off, HasSubstr("l3drop\n"));
    EXPECT_LT(off.find("remote-mirror\n"), off.find("l3drop\n")); // in the order of their slots
    EXPECT_THAT(off, Not(HasSubstr("l2drop\n")));
    std::string on = printed([](seq_file *view) { print_redirect_protocols(1, view); });
    EXPECT_THAT(on, HasSubstr("l2drop\n"));
    EXPECT_THAT(on, Not(HasSubstr("ptp\n")));
}

TEST_F(Registry, the_dummy_post_gives_the_frame_back) {
    sk_buff *skb = userlevel::frame_make(Bytes(60));
    EXPECT_EQ(tarn_pkt_packet_post_dummy(skb, nullptr), skb);
    kfree_skb(skb);
}

} // namespace
