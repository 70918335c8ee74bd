// What the chain does with the decisions of redirects.
#include "support/switch_test.h"

#include "pkt/pkt_candidates.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Chain : public SwitchTest {
protected:
    // The redirect of a slot decides so, on every frame.
    void decide(u32 slot, u32 flags, u32 reason = 1) {
        probe(slot).match = [=](tarn_pkt_info &, redirect_instruct &instruct) {
            instruct.flags |= flags;
            instruct.reason = reason;
        };
    }
    packet_redirect &in_slot(u32 slot) {
        pkt_candidates_sum_up();
        return *packet_redirects[slot];
    }
    packet_redirect &last() { return in_slot(48); }
    packet_redirect &middle() { return in_slot(27); }
    void skip(u32 slot, u32 mask) {
        pkt_candidates_change_begin();
        packet_redirects[slot]->skip_protocols = mask;
        pkt_candidates_change_end();
    }
};

TEST_F(Chain, asks_in_the_order_of_the_table) {
    std::vector<u32> asked;
    probe(48).match = [&](tarn_pkt_info &, redirect_instruct &) { asked.push_back(48); };
    probe(27).match = [&](tarn_pkt_info &, redirect_instruct &) { asked.push_back(27); };
    receive(Frame());
    EXPECT_THAT(asked, ElementsAre(27, 48));
    EXPECT_EQ(redirect("vlan_local").inspects, 1u);
    EXPECT_EQ(last().inspects, 1u);
}

TEST_F(Chain, a_disabled_redirect_is_not_asked) {
    enable_redirect_by_name("l2drop", 0);
    receive(Frame().from("ff:ff:ff:ff:ff:ff"));
    EXPECT_EQ(redirect("l2drop").inspects, 0u);
}

TEST_F(Chain, frame_classes_keep_redirects_from_frames) {
    struct Row {
        u16 ethertype;
        u32 frame_class;
    };
    for (Row row : {Row{0x0806, SKIP_ARP}, Row{0x0800, SKIP_IPV4}, Row{0x86DD, SKIP_IPV6}}) {
        for (u32 mask = 0; mask < 16; mask += 2) {
            probe(27);
            skip(27, mask);
            middle().inspects = 0;
            receive(Frame().type(row.ethertype).padded());
            EXPECT_EQ(middle().inspects, mask & row.frame_class ? 0u : 1u)
                << row.ethertype << " with mask " << mask;
        }
    }
}

TEST_F(Chain, a_frame_of_no_class_is_offered_to_all) {
    probe();
    skip(48, SKIP_ARP | SKIP_IPV4 | SKIP_IPV6);
    receive(Frame().type(0x88CC).padded());
    EXPECT_EQ(last().inspects, 1u);
    receive(Frame().ipv4({}).padded());
    EXPECT_EQ(last().inspects, 1u);
}

TEST_F(Chain, the_class_of_a_frame_is_that_of_its_inner_type) {
    probe();
    skip(48, SKIP_IPV4);
    receive(Frame().tag(1).tag(2).ipv4({}).padded());
    EXPECT_EQ(last().inspects, 0u);
}

TEST_F(Chain, a_stop_ends_the_chain_and_frees_the_frame) {
    decide(27, REDIRECT_STOP, 3);
    probe(48);
    EXPECT_EQ(receive(Frame()), 0u);
    EXPECT_EQ(middle().stops, 1u);
    EXPECT_EQ(middle().stop_reasons[3], 1u);
    EXPECT_EQ(last().inspects, 0u);
}

TEST_F(Chain, reason_zero_is_valid_and_counted) {
    decide(48, REDIRECT_STOP, 0);
    receive(Frame());
    EXPECT_EQ(last().stop_reasons[0], 1u);
}

TEST_F(Chain, a_reason_that_is_too_high_is_not_counted) {
    decide(48, REDIRECT_STOP, 20);
    EXPECT_EQ(receive(Frame()), 0u);
    EXPECT_THAT(log(), ElementsAre("2 Reason code too high 20\n"));
    EXPECT_EQ(last().stops, 1u);
    for (u32 reason : last().stop_reasons)
        EXPECT_EQ(reason, 0u);
}

TEST_F(Chain, a_reason_is_read_as_one_byte) {
    decide(48, REDIRECT_STOP, 0x102);
    receive(Frame());
    EXPECT_EQ(last().stop_reasons[2], 1u);
    decide(48, REDIRECT_STOP, 0xFFFFFFFF);
    receive(Frame());
    EXPECT_THAT(log(), ElementsAre("2 Reason code too high 255\n"));
}

TEST_F(Chain, each_instruct_starts_clear) {
    decide(27, REDIRECT_POST_USERSPACE, 9);
    probe(48).match = [&](tarn_pkt_info &, redirect_instruct &instruct) {
        EXPECT_EQ(instruct.flags, 0u);
        EXPECT_EQ(instruct.reason, 0u);
        EXPECT_EQ(instruct.pre_post_arg, nullptr);
    };
    receive(Frame());
    EXPECT_EQ(probe(48).matched, 1);
}

TEST_F(Chain, no_flags_mean_no_decision_and_nothing_is_cleared) {
    probe(27).match = [&](tarn_pkt_info &, redirect_instruct &instruct) { instruct.reason = 9; };
    probe(48).match = [&](tarn_pkt_info &, redirect_instruct &instruct) {
        EXPECT_EQ(instruct.reason, 9u);
    };
    receive(Frame());
    EXPECT_EQ(probe(48).matched, 1);
}

// Every illegal combination, and the message that comes first.
struct Refusal {
    u32 flags;
    const char *message;
};
void PrintTo(const Refusal &row, std::ostream *out) {
    *out << "flags " << row.flags;
}
class Refused : public Chain, public ::testing::WithParamInterface<Refusal> {};

TEST_P(Refused, prints_the_first_rule_broken_and_carries_nothing_out) {
    decide(27, GetParam().flags);
    probe(48);
    bool stops = GetParam().flags & REDIRECT_STOP;
    sk_buff *skb = userlevel::frame_make(Frame().build());
    sk_buff *held = skb_clone(skb, GFP_ATOMIC);
    EXPECT_EQ(receive_skb(skb), stops ? 1u : 0u);
    kfree_skb(held);
    EXPECT_THAT(log(), ElementsAre(std::string("2 Post kernel (probe) not allowed ") +
                                   GetParam().message + "\n"));
    EXPECT_EQ(last().inspects, stops ? 0u : 1u);
    EXPECT_THAT(calls().order, IsEmpty());
    EXPECT_EQ(probe(27).posted, 0);
    for (u32 counter :
         {middle().stops, middle().kernel, middle().kernel_port, middle().userspace,
          middle().resend_l2, middle().stack_rep, middle().flood_l2, middle().stop_reasons[1]})
        EXPECT_EQ(counter, 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Combinations, Refused,
    ::testing::Values(Refusal{0x50, "with post kernel port"},
                      Refusal{0x54, "with post kernel port"},
                      Refusal{0x7F, "with post kernel port"}, Refusal{0x11, "with post userspace"},
                      Refusal{0x15, "with post userspace"}, Refusal{0x41, "with post userspace"},
                      Refusal{0x1D, "with post userspace"}, Refusal{0x18, "with resend l2"},
                      Refusal{0x1C, "with resend l2"}, Refusal{0x4C, "with resend l2"},
                      Refusal{0x10, "without stop"}, Refusal{0x40, "without stop"},
                      Refusal{0x32, "without stop"}),
    [](const auto &row) { return "flags_" + std::to_string(row.param.flags); });

TEST_F(Chain, a_refused_frame_without_stop_goes_on_to_the_next_redirect) {
    decide(27, REDIRECT_POST_KERNEL);
    decide(48, REDIRECT_STOP, 4);
    EXPECT_EQ(receive(Frame()), 0u);
    EXPECT_THAT(log(), ElementsAre("2 Post kernel (probe) not allowed without stop\n"));
    EXPECT_EQ(last().stop_reasons[4], 1u);
}

TEST_F(Chain, actions_come_in_one_fixed_order) {
    static std::vector<std::string> order;
    order.clear();
    last().pre_post_modify = [](sk_buff *, void **arg) {
        seams::record().order.push_back("pre-post");
        *arg = nullptr;
    };
    probe(48).match = [](tarn_pkt_info &, redirect_instruct &instruct) {
        instruct.flags = REDIRECT_FLOOD_L2 | REDIRECT_STACK_REPLICATE | REDIRECT_RESEND_L2 |
                         REDIRECT_POST_USERSPACE | REDIRECT_STOP;
        instruct.pre_post_arg = &order;
    };
    probe(48).post = [](sk_buff *skb, tarn_post_info &) {
        seams::record().order.push_back("post");
        return skb;
    };
    add_port(2);
    receive(Frame(), {.port_word = 5002});
    EXPECT_THAT(calls().order, ElementsAre("pre-post", "flood", "replicate", "xmit", "post"));
    EXPECT_EQ(last().stops, 1u);
}

TEST_F(Chain, the_kernel_comes_after_the_copies) {
    decide(48, REDIRECT_FLOOD_L2 | REDIRECT_STACK_REPLICATE | REDIRECT_POST_KERNEL | REDIRECT_STOP);
    receive(Frame());
    EXPECT_THAT(calls().order, ElementsAre("flood", "replicate", "kernel"));
    EXPECT_EQ(last().flood_l2, 1u);
    EXPECT_EQ(last().stack_rep, 1u);
    EXPECT_EQ(last().kernel, 1u);
    EXPECT_EQ(last().stops, 1u);
}

TEST_F(Chain, a_flood_copies_the_frame_with_what_the_redirect_asks) {
    probe(48).match = [](tarn_pkt_info &, redirect_instruct &instruct) {
        instruct.flags = REDIRECT_FLOOD_L2;
        instruct.flood_cos = 5;
        instruct.flood_queue = 3;
    };
    Arrival arrival;
    arrival.meta.flood_except[0] = 70;
    arrival.meta.flood_except[1] = 71;
    receive(Frame().padded(), arrival);
    ASSERT_EQ(calls().floods.size(), 1u);
    const seams::Flood &flood = calls().floods[0];
    EXPECT_EQ(flood.port, port1());
    EXPECT_EQ(flood.vid, 1u);
    EXPECT_EQ(flood.except, (std::array<u32, 2>{70, 71}));
    EXPECT_EQ(flood.bytes, Frame().padded().build());
    EXPECT_EQ(flood.cos, 5u);
    EXPECT_EQ(flood.queue, 3u);
    EXPECT_EQ(flood.tx_enable, 1);
    EXPECT_EQ(flood.mask, 0u);
}

TEST_F(Chain, an_exception_of_minus_one_is_none) {
    decide(48, REDIRECT_FLOOD_L2);
    receive(Frame());
    ASSERT_EQ(calls().floods.size(), 1u);
    EXPECT_FALSE(calls().floods[0].except.has_value());
}

TEST_F(Chain, a_flood_goes_to_rx_vid) {
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT; // rx_vid 0, vid 1
    decide(48, REDIRECT_FLOOD_L2);
    receive(Frame());
    ASSERT_EQ(calls().floods.size(), 1u);
    EXPECT_EQ(calls().floods[0].vid, 0u);
}

TEST_F(Chain, a_copy_that_no_flood_took_is_freed) {
    decide(48, REDIRECT_FLOOD_L2);
    for (i32 result : {-EINVAL, 1}) {
        calls().flood_result = result;
        receive(Frame());
    }
    EXPECT_EQ(last().flood_l2, 2u); // counted all the same
}

TEST_F(Chain, a_flood_that_cannot_be_copied_is_counted_and_the_chain_goes_on) {
    decide(27, REDIRECT_FLOOD_L2);
    probe(48);
    sk_buff *skb = userlevel::frame_make(Frame().build());
    userlevel::fail_allocation(1);
    EXPECT_EQ(receive_skb(skb), 0u);
    EXPECT_THAT(calls().floods, IsEmpty());
    EXPECT_EQ(middle().flood_l2, 1u);
    EXPECT_EQ(last().inspects, 1u);
}

TEST_F(Chain, replication_is_told_all_of_the_frame) {
    decide(48, REDIRECT_STACK_REPLICATE);
    last().stack_repl_type = STACK_REPL_CFM;
    Arrival arrival;
    arrival.meta.code = 2;
    arrival.meta.flags = 0x20;
    arrival.meta.extra = 4;
    arrival.meta.replicated = 1;
    receive(Frame().tag(0x2001).padded(), arrival);
    ASSERT_EQ(calls().replicated.size(), 1u);
    const seams::Replication &copy = calls().replicated[0];
    EXPECT_EQ(copy.rx_port, port1());
    EXPECT_EQ(copy.vid, 1u);
    EXPECT_EQ(copy.tag, 0x12001u);
    EXPECT_EQ(copy.code, 2u);
    EXPECT_EQ(copy.flags, 0x20u);
    EXPECT_EQ(copy.extra, 4u);
    EXPECT_EQ(copy.repl_type, STACK_REPL_CFM);
    EXPECT_EQ(copy.replicated, 1);
    EXPECT_NE(calls().replicated_at, &arrival.meta.replicated); // the driver's record is not ours
    EXPECT_EQ(last().stack_rep, 1u);
}

TEST_F(Chain, a_kernel_post_consumes_the_frame_and_its_result_is_returned) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    decide(48, REDIRECT_POST_KERNEL | REDIRECT_STOP, 4);
    calls().kernel_result = 17;
    sk_buff *skb = userlevel::frame_make(Frame().build());
    Arrival arrival;
    EXPECT_EQ(rxtx_hw_packet_recv(skb, 5001, 1, &arrival.meta), 17u);
    ASSERT_EQ(calls().kernel.size(), 1u);
    EXPECT_EQ(calls().kernel[0].rx_port, port1());
    EXPECT_EQ(calls().kernel[0].l2_port, aggregator);
    EXPECT_EQ(calls().kernel[0].l3_if, vlan1());
    EXPECT_EQ(calls().kernel[0].vid, 1u);
    EXPECT_EQ(last().kernel, 1u);
    EXPECT_EQ(last().kernel_port, 0u);
    EXPECT_EQ(last().stop_reasons[4], 1u);
}

TEST_F(Chain, a_kernel_port_post_goes_through_the_port) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    decide(48, REDIRECT_POST_KERNEL_PORT | REDIRECT_STOP);
    calls().kernel_result = 18;
    sk_buff *skb = userlevel::frame_make(Frame().build());
    Arrival arrival;
    EXPECT_EQ(rxtx_hw_packet_recv(skb, 5001, 1, &arrival.meta), 18u);
    ASSERT_EQ(calls().kernel.size(), 1u);
    EXPECT_EQ(calls().kernel[0].rx_port, port1());
    EXPECT_EQ(calls().kernel[0].l2_port, aggregator);
    EXPECT_EQ(calls().kernel[0].l3_if, port1());
    EXPECT_EQ(calls().kernel[0].vid, 1u);
    EXPECT_EQ(last().kernel_port, 1u);
    EXPECT_EQ(last().kernel, 0u);
    EXPECT_EQ(last().stops, 1u);
}

// There rx_vid is 0, and vid stays what the driver said.
TEST_F(Chain, a_routed_port_has_no_vid_for_those_who_take_the_frame) {
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    tarn_post_info told{};
    decide(27, REDIRECT_STACK_REPLICATE | REDIRECT_POST_USERSPACE);
    probe(27).post = [&](sk_buff *skb, tarn_post_info &info) {
        told = info;
        return skb;
    };
    decide(48, REDIRECT_POST_KERNEL_PORT | REDIRECT_STOP);
    receive(Frame(), {.vid = 1});
    enable_redirect(27, 0);
    decide(48, REDIRECT_POST_KERNEL | REDIRECT_STOP);
    receive(Frame(), {.vid = 1});

    EXPECT_EQ(told.rx_vid, 0u);
    EXPECT_EQ(told.vid, 1u);
    ASSERT_EQ(calls().replicated.size(), 1u);
    EXPECT_EQ(calls().replicated[0].vid, 0u);
    ASSERT_EQ(calls().kernel.size(), 2u);
    EXPECT_EQ(calls().kernel[0].vid, 0u);
    EXPECT_EQ(calls().kernel[1].vid, 0u);
}

TEST_F(Chain, a_post_is_told_of_the_frame) {
    tarn_post_info told{};
    decide(27, REDIRECT_POST_USERSPACE);
    probe(27).post = [&](sk_buff *skb, tarn_post_info &info) {
        told = info;
        return skb;
    };
    Arrival arrival;
    arrival.meta.code = 2;
    arrival.meta.flags = 0x10;
    arrival.meta.extra = 4;
    arrival.meta.flood_except[0] = 8;
    arrival.meta.flood_except[1] = 9;
    receive(Frame().ipv4({.protocol = 89}), arrival);
    EXPECT_EQ(told.rx_port, port1());
    EXPECT_EQ(told.vlan_if, vlan1());
    EXPECT_EQ(told.l2_ifindex, 5001u);
    EXPECT_EQ(told.rx_vid, 1u);
    EXPECT_EQ(told.vid, 1u);
    EXPECT_EQ(told.flood_except[0], 8u);
    EXPECT_EQ(told.flood_except[1], 9u);
    EXPECT_EQ(told.code, 2u);
    EXPECT_EQ(told.tag, 1u);
    EXPECT_EQ(told.ip_proto, 89);
    EXPECT_EQ(told.flags, 0x10u);
    EXPECT_EQ(told.extra, 4u);
    EXPECT_EQ(middle().userspace, 1u);

    receive(Frame().ipv6({.next = 89}));
    EXPECT_EQ(told.ipv6_next_header, 89);
}

TEST_F(Chain, a_failed_reallocation_is_reported_and_the_old_frame_goes_on) {
    decide(27, REDIRECT_POST_USERSPACE);
    probe(27).post = [](sk_buff *, tarn_post_info &) -> sk_buff * { return nullptr; };
    probe(48);
    receive(Frame().padded());
    EXPECT_THAT(log(), ElementsAre("2 Reallocation of skb has failed for protocol probe\n"));
    EXPECT_EQ(middle().userspace, 1u);
    EXPECT_EQ(probe(48).bytes, Frame().padded().build());
}

TEST_F(Chain, a_post_that_stops_may_replace_the_frame) {
    decide(48, REDIRECT_POST_USERSPACE | REDIRECT_STOP);
    probe(48).post = [](sk_buff *skb, tarn_post_info &) {
        kfree_skb(skb);
        return userlevel::frame_make(Bytes(20));
    };
    receive(Frame().padded()); // the replacement is freed: the leak check at the end
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(last().stops, 1u);
}

// Kept so: who goes on with another frame than it was given has to see to that one itself.
TEST_F(Chain, at_the_end_the_frame_is_freed_that_the_driver_handed_in) {
    static sk_buff *other;
    decide(27, REDIRECT_POST_USERSPACE);
    probe(27).post = [](sk_buff *, tarn_post_info &) {
        other = userlevel::frame_make(Bytes(60, 7));
        other->users++; // of the test
        return other;
    };
    probe(48);
    receive(Frame().padded()); // which is freed: the leak check at the end
    EXPECT_EQ(probe(48).bytes, Bytes(60, 7));
    ASSERT_TRUE(skb_shared(other)) << "it has been freed";
    kfree_skb(other);
    kfree_skb(other);
}

TEST_F(Chain, a_post_that_goes_on_must_leave_the_length) {
    decide(27, REDIRECT_POST_USERSPACE);
    probe(27).post = [](sk_buff *skb, tarn_post_info &) {
        skb_pull(skb, 2);
        return skb;
    };
    probe(48);
    receive(Frame().padded());
    EXPECT_THAT(log(), ElementsAre("2 Protocol probe changed length of data in skb\n"));
    EXPECT_EQ(probe(48).bytes.size(), 58u);
}

TEST_F(Chain, a_post_that_stops_may_change_the_length) {
    decide(48, REDIRECT_POST_USERSPACE | REDIRECT_STOP);
    probe(48).post = [](sk_buff *skb, tarn_post_info &) {
        skb_pull(skb, 2);
        return skb;
    };
    receive(Frame().padded());
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Chain, a_request_is_handed_to_the_hook_with_the_frame) {
    static void *given;
    static const sk_buff *with;
    given = nullptr;
    with = nullptr;
    last().pre_post_modify = [](sk_buff *skb, void **arg) {
        given = *arg;
        with = skb;
        *arg = nullptr;
    };
    int request = 0;
    probe(48).match = [&](tarn_pkt_info &, redirect_instruct &instruct) {
        instruct.flags = REDIRECT_POST_KERNEL | REDIRECT_STOP;
        instruct.pre_post_arg = &request;
    };
    sk_buff *skb = userlevel::frame_make(Frame().build());
    receive_skb(skb);
    EXPECT_EQ(given, &request);
    EXPECT_EQ(with, skb);
}

TEST_F(Chain, a_refused_request_is_handed_back_without_a_frame) {
    last().pre_post_modify = [](sk_buff *skb, void **arg) {
        EXPECT_EQ(skb, nullptr);
        kfree(*arg);
        *arg = nullptr;
    };
    probe(48).match = [&](tarn_pkt_info &, redirect_instruct &instruct) {
        instruct.flags = REDIRECT_POST_KERNEL | REDIRECT_POST_USERSPACE | REDIRECT_STOP;
        instruct.pre_post_arg = __kmalloc(8, GFP_ATOMIC);
    };
    EXPECT_EQ(receive(Frame()), 1u); // nothing leaks: the check at the end
    EXPECT_EQ(log().size(), 1u);

    probe(48).match = [&](tarn_pkt_info &, redirect_instruct &instruct) {
        instruct.flags = REDIRECT_POST_KERNEL;
        instruct.pre_post_arg = __kmalloc(8, GFP_ATOMIC);
    };
    EXPECT_EQ(receive(Frame()), 0u); // nor does it when the chain goes on
    EXPECT_EQ(log().size(), 1u);
}

TEST_F(Chain, a_request_without_a_hook_is_left_alone) {
    int request = 0;
    probe(48).match = [&](tarn_pkt_info &, redirect_instruct &instruct) {
        instruct.flags = REDIRECT_STOP;
        instruct.pre_post_arg = &request;
    };
    EXPECT_EQ(receive(Frame()), 0u);
}

class Resend : public Chain {
protected:
    void SetUp() override {
        decide(48, REDIRECT_RESEND_L2);
        port2 = add_port(2);
    }
    tarn_if *port2 = nullptr;
};

TEST_F(Resend, a_port_word_of_zero_floods_the_vlan) {
    receive(Frame().padded());
    ASSERT_EQ(calls().floods.size(), 1u);
    const seams::Flood &flood = calls().floods[0];
    EXPECT_EQ(flood.port, port1());
    EXPECT_EQ(flood.vid, 1u);
    EXPECT_FALSE(flood.except.has_value());
    EXPECT_EQ(flood.bytes, Frame().padded().build());
    EXPECT_EQ(flood.cos, 0u);
    EXPECT_EQ(flood.queue, 4u);
    EXPECT_EQ(flood.tx_enable, 1);
    EXPECT_EQ(flood.mask, 0u);
    EXPECT_EQ(last().resend_l2, 1u);
}

TEST_F(Resend, a_flood_floods_the_vlan_of_the_interface) {
    // On a routed port that is the port's own VID.
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    port1()->vid = 77;
    receive(Frame());
    ASSERT_EQ(calls().floods.size(), 1u);
    EXPECT_EQ(calls().floods[0].vid, 77u);
}

TEST_F(Resend, a_vlan_ifindex_sends_nothing) {
    for (u32 word : {301u, 4394u})
        receive(Frame(), {.port_word = word});
    EXPECT_THAT(calls().order, IsEmpty());
    EXPECT_EQ(last().resend_l2, 2u);
    // Just outside: nobody has these, so they flood.
    for (u32 word : {300u, 4395u})
        receive(Frame(), {.port_word = word});
    EXPECT_EQ(calls().floods.size(), 2u);
}

TEST_F(Resend, a_port_gets_the_copy) {
    receive(Frame().padded(), {.port_word = 5002});
    ASSERT_EQ(calls().sent.size(), 1u);
    const seams::Xmit &sent = calls().sent[0];
    EXPECT_EQ(sent.port, port2);
    EXPECT_EQ(sent.vlan_if, vlan1());
    EXPECT_EQ(sent.bytes, Frame().padded().build());
    EXPECT_EQ(sent.cos, 6u);
    EXPECT_EQ(sent.queue, 6u);
    EXPECT_EQ(sent.tx_enable, 1);
    EXPECT_FALSE(sent.discard_bypass);
    EXPECT_FALSE(sent.tx_option);
    EXPECT_EQ(last().resend_l2, 1u);
}

TEST_F(Resend, a_local_vlan_bypasses_the_discard_switch) {
    vlan1()->if_flags |= TARN_IF_F_VLAN_LOCAL;
    receive(Frame(), {.port_word = 5002});
    ASSERT_EQ(calls().sent.size(), 1u);
    EXPECT_TRUE(calls().sent[0].discard_bypass);
}

TEST_F(Resend, an_unknown_port_floods) {
    receive(Frame(), {.port_word = 7777});
    EXPECT_THAT(calls().order, ElementsAre("flood"));
}

TEST_F(Resend, ports_that_may_not_exchange_frames_do_not) {
    tarn_if *upstream = add_port(3);
    tarn_ifmgr_list_node node{.ifp = upstream, .next = nullptr};
    vlan1()->upstream_ifs = &node;
    receive(Frame(), {.port_word = 5002});
    EXPECT_THAT(calls().order, IsEmpty());
    EXPECT_EQ(last().resend_l2, 1u);
    receive(Frame(), {.port_word = 5003}); // one of the two is upstream
    EXPECT_THAT(calls().order, ElementsAre("xmit"));
    vlan1()->upstream_ifs = nullptr;
}

// Nothing that the packet path asks for may sleep; the home leaves a line in the log if it did.
TEST_F(Chain, copies_are_had_without_sleeping) {
    decide(48, REDIRECT_FLOOD_L2 | REDIRECT_RESEND_L2);
    local_bh_disable();
    receive(Frame());
    local_bh_enable();
    EXPECT_THAT(calls().order, ElementsAre("flood", "flood"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Resend, copies_that_nobody_took_are_freed) {
    for (i32 result : {-ENODEV, 1}) {
        calls().xmit_result = static_cast<u32>(result);
        calls().flood_result = result;
        receive(Frame(), {.port_word = 5002});
        receive(Frame());
    }
    // and the leak check at the end
    EXPECT_THAT(calls().order, ElementsAre("xmit", "flood", "xmit", "flood"));
}

TEST_F(Resend, a_failed_copy_sends_nothing_and_is_counted) {
    for (u32 word : {0u, 5002u, 7777u}) {
        sk_buff *skb = userlevel::frame_make(Frame().build());
        userlevel::fail_allocation(1);
        receive_skb(skb, {.port_word = word});
    }
    EXPECT_THAT(calls().order, IsEmpty());
    EXPECT_EQ(last().resend_l2, 3u);
}

TEST_F(Resend, a_frame_without_a_vlan_interface_sends_nothing) {
    for (u32 word : {0u, 5002u, 7777u})
        receive(Frame(), {.vid = 2, .port_word = word});
    EXPECT_THAT(calls().order, IsEmpty());
    EXPECT_EQ(last().resend_l2, 3u);
}

TEST_F(Resend, the_frame_goes_on_in_the_chain) {
    decide(27, REDIRECT_RESEND_L2);
    decide(48, REDIRECT_STOP, 6);
    receive(Frame(), {.port_word = 5002});
    EXPECT_EQ(middle().resend_l2, 1u);
    EXPECT_EQ(last().stop_reasons[6], 1u);
}

// Who is told of the port that the frame came in by, and who of the aggregator that it is part of.
class OnAggregator : public Chain {
protected:
    void SetUp() override {
        aggregator = add_aggregator_over(port1(), 4501);
        add_port(2);
    }
    tarn_if *aggregator = nullptr;
};

TEST_F(OnAggregator, copies_leave_out_the_aggregator) {
    decide(48, REDIRECT_FLOOD_L2 | REDIRECT_RESEND_L2);
    receive(Frame());
    ASSERT_EQ(calls().floods.size(), 2u);
    EXPECT_EQ(calls().floods[0].port, aggregator);
    EXPECT_EQ(calls().floods[1].port, aggregator);
}

TEST_F(OnAggregator, a_copy_may_go_where_the_aggregator_may_send) {
    decide(48, REDIRECT_RESEND_L2);
    tarn_ifmgr_list_node upstream{.ifp = aggregator, .next = nullptr};
    vlan1()->upstream_ifs = &upstream;
    receive(Frame(), {.port_word = 5002});
    EXPECT_THAT(calls().order, ElementsAre("xmit"));
    upstream.ifp = port1();
    receive(Frame(), {.port_word = 5002});
    EXPECT_THAT(calls().order, ElementsAre("xmit")) << "the port is none of its VLAN's";
    vlan1()->upstream_ifs = nullptr;
}

TEST_F(OnAggregator, daemons_and_the_stack_are_told_the_port) {
    tarn_post_info told{};
    decide(48, REDIRECT_STACK_REPLICATE | REDIRECT_POST_USERSPACE | REDIRECT_STOP);
    probe(48).post = [&](sk_buff *skb, tarn_post_info &info) {
        told = info;
        return skb;
    };
    receive(Frame());
    ASSERT_EQ(calls().replicated.size(), 1u);
    EXPECT_EQ(calls().replicated[0].rx_port, port1());
    EXPECT_EQ(told.rx_port, port1());
    EXPECT_EQ(told.l2_ifindex, 4501u);
}

} // namespace
