// The entry of the receive pipeline and its two preparations.
#include "support/switch_test.h"

#include "ifmgr/tarn_ifmgr_bind.h"
#include "pkt/pkt_candidates.h"
#include "vlan/vlan_bits.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Receive : public SwitchTest {
protected:
    // Replaces the first modify_rx hook of the switch as it starts, that of slot 31.
    void
    modify(std::function<void(tarn_rx_modify &, const tarn_rx_meta &, tarn_if *, sk_buff *)> hook) {
        the_hook = std::move(hook);
        redirect("filterMatchCpuCode").modify_rx =
            [](tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp, sk_buff *skb) {
                the_hook(*modify, *meta, ifp, skb);
            };
        redirect("filterMatchCpuCode").modify_concerns = FRAME_ANY;
        enable_redirect_by_name("filterMatchCpuCode", 1); // looked at anew
    }
    static inline std::function<void(tarn_rx_modify &, const tarn_rx_meta &, tarn_if *, sk_buff *)>
        the_hook;

    Arrival local() {
        Arrival arrival{.port = 0};
        arrival.meta.local = 1;
        return arrival;
    }
};

TEST_F(Receive, a_frame_that_the_stack_takes_goes_no_further) {
    calls().stack_takes = 1;
    Arrival arrival{.vid = 7};
    arrival.meta.queue = 5;
    EXPECT_EQ(receive(Frame().tag(9).padded(), arrival), 0u);
    EXPECT_EQ(redirect("vlan_local").inspects, 0u);
    ASSERT_TRUE(calls().stack.has_value());
    EXPECT_EQ(calls().stack->bytes, Frame().tag(9).padded().build());
    EXPECT_EQ(calls().stack->vid, 7u);
    EXPECT_EQ(calls().stack->queue, 5u);
}

TEST_F(Receive, frames_end_as_they_must_in_any_context) {
    auto irq_ends = [&](auto &&offer) {
        auto before = userlevel::skbs_ended();
        offer();
        auto after = userlevel::skbs_ended();
        EXPECT_EQ(after.dropped, before.dropped);
        EXPECT_EQ(after.consumed, before.consumed);
        return after.irq - before.irq;
    };
    EXPECT_EQ(irq_ends([&] { receive(Frame(), {.port = 0}); }), 1u);         // unknown
    EXPECT_EQ(irq_ends([&] { receive(Frame()); }), 1u);                      // unclaimed
    EXPECT_EQ(irq_ends([&] { receive(Frame().from("ff:ff:ff:ff:ff:ff")); }), // stopped
              1u);
    EXPECT_EQ(irq_ends([&] { receive(Frame(), local()); }), 1u);
}

TEST_F(Receive, a_frame_in_pieces_stays_with_the_driver) {
    sk_buff *skb = userlevel::frame_make(Frame().padded().build());
    skb->data_len = 1;
    EXPECT_EQ(receive_skb(skb), 1u);
    EXPECT_EQ(redirect("vlan_local").inspects, 0u);
}

TEST_F(Receive, a_frame_for_an_unknown_ifindex_vanishes) {
    EXPECT_EQ(receive(Frame(), {.port = 0}), 0u);
    EXPECT_EQ(redirect("vlan_local").inspects, 0u);
}

TEST_F(Receive, a_frame_of_an_interface_that_is_no_port_is_refused_with_a_message) {
    Arrival arrival;
    arrival.port = 0;
    sk_buff *skb = userlevel::frame_make(Frame().build());
    EXPECT_EQ(rxtx_hw_packet_recv(skb, 301, 1, &arrival.meta), 0u);
    EXPECT_THAT(log(), ElementsAre("2 Packet rx'ed with no logical port. Should not be possible. "
                                   "ifindex 301\n"));
    EXPECT_EQ(redirect("vlan_local").inspects, 0u);
}

TEST_F(Receive, a_frame_is_logged_before_its_interface_is_refused) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    Arrival arrival;
    EXPECT_EQ(rxtx_hw_packet_recv(userlevel::frame_make(Frame().build()), 301, 1, &arrival.meta),
              0u);
    EXPECT_THAT(log(), ElementsAre(::testing::StartsWith("6 RxPkt("),
                                   ::testing::StartsWith("2 Packet rx'ed with no logical port.")));
}

TEST_F(Receive, an_ethernet_interface_may_receive) {
    port1()->type = TARN_IF_TYPE_ETHERNET;
    EXPECT_EQ(classify(Frame()).rx_port, port1());
}

TEST_F(Receive, a_frame_that_nobody_wants_vanishes_uncounted) {
    EXPECT_EQ(receive(Frame()), 0u);
    pkt_candidates_sum_up();
    for (const packet_redirect *redirect : packet_redirects)
        if (redirect) {
            EXPECT_EQ(redirect->stops, 0u) << redirect->name;
        }
}

TEST_F(Receive, a_lone_port_is_its_own_logical_port) {
    tarn_pkt_info info = classify(Frame());
    EXPECT_EQ(info.rx_port, port1());
    EXPECT_EQ(info.l2_port, port1());
    EXPECT_EQ(info.l2_ifindex, 5001u);
}

TEST_F(Receive, the_aggregator_of_a_port_is_its_logical_port) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    tarn_pkt_info info = classify(Frame());
    EXPECT_EQ(info.rx_port, port1());
    EXPECT_EQ(info.l2_port, aggregator);
    EXPECT_EQ(info.l2_ifindex, 4501u);
}

TEST_F(Receive, only_the_first_parent_is_looked_at) {
    add_aggregator_over(port1(), 4501);
    // A VLAN bound last stands first.
    configure([&] { EXPECT_EQ(tarn_ifmgr_bind(vlan1(), port1()), 0); });
    EXPECT_EQ(classify(Frame()).l2_port, port1());
}

TEST_F(Receive, an_untagged_frame_has_the_vid_argument_for_a_tag) {
    EXPECT_EQ(classify(Frame(), {.vid = 1}).tag, 1u);
}

TEST_F(Receive, only_a_tag_that_was_there_sets_the_mark_of_one) {
    EXPECT_EQ(classify(Frame(), {.vid = 0x10001}).tag, 1u);
    EXPECT_EQ(classify(Frame(), {.vid = 0x30001}).tag, 0x20001u);
    EXPECT_EQ(classify(Frame().tag(5), {.vid = 0x30001}).tag, 0x10005u);
}

// What is missing of the tag reads as 0.
TEST_F(Receive, a_frame_that_ends_within_its_tag_is_tagged_and_keeps_it) {
    enable_redirect_by_name("l2drop", 0);
    const Bytes whole = Frame().tag(0xE123);
    const std::pair<std::size_t, u32> rows[] = {
        {12, 1u}, {13, 0x10000u}, {14, 0x10000u}, {15, 0x1E100u}, {16, 0x1E123u}};
    for (auto [length, tag] : rows) {
        Bytes frame(whole.begin(), whole.begin() + static_cast<long>(length));
        EXPECT_EQ(classify(frame).tag, tag) << length;
        Bytes kept(length == 16 ? 12 : length);
        std::copy_n(frame.begin(), kept.size(), kept.begin());
        EXPECT_EQ(probe(27).bytes, kept) << length;
    }
}

TEST_F(Receive, a_tag_is_taken_off_before_the_first_hook) {
    Bytes at_hook;
    modify([&](tarn_rx_modify &, const tarn_rx_meta &, tarn_if *, sk_buff *skb) {
        at_hook.assign(skb_data(skb), skb_data(skb) + skb_len(skb));
    });
    tarn_pkt_info info =
        classify(Frame().tag(0x6123).type(0x88B5).bytes({1, 2, 3}).padded(), {.vid = 1});
    EXPECT_EQ(info.tag, 0x16123u);
    EXPECT_EQ(info.vid, 1u); // the tag does not decide the VLAN
    EXPECT_EQ(info.ethertype, 0x88B5u);
    EXPECT_EQ(at_hook, Frame().type(0x88B5).bytes({1, 2, 3}).padded(56).build());
}

TEST_F(Receive, only_one_tag_is_taken_off) {
    tarn_pkt_info info = classify(Frame().tag(5).tag(6).type(0x88B5).padded());
    EXPECT_EQ(info.tag, 0x10005u);
    EXPECT_EQ(info.ethertype, 0x88B5u); // the parser looks behind the second
    EXPECT_EQ(probe(27).bytes.size(), 56u);
}

TEST_F(Receive, a_service_tag_is_no_tag) {
    tarn_pkt_info info = classify(Frame().tag(5, 0x88A8).type(0x88B5).padded());
    EXPECT_EQ(info.tag, 1u);
    EXPECT_EQ(info.ethertype, 0x88A8u);
}

TEST_F(Receive, the_bytes_that_a_clone_shares_are_not_rewritten) {
    sk_buff *skb = userlevel::frame_make(Frame().tag(5).padded().build());
    sk_buff *held = skb_clone(skb, GFP_ATOMIC);
    receive_skb(skb);
    EXPECT_EQ(Bytes(skb_data(held), skb_data(held) + skb_len(held)),
              Frame().tag(5).padded().build());
    kfree_skb(held);
}

TEST_F(Receive, a_tag_stays_when_shared_bytes_cannot_be_copied) {
    sk_buff *skb = userlevel::frame_make(Frame().tag(5).type(0x88B5).padded().build());
    sk_buff *held = skb_clone(skb, GFP_ATOMIC);
    probe();
    userlevel::fail_allocation(1);
    receive_skb(skb);
    userlevel::fail_allocation(0);
    EXPECT_EQ(probe().seen.tag, 1u);
    EXPECT_EQ(probe().seen.ethertype, 0x88B5u);
    kfree_skb(held);
}

TEST_F(Receive, hooks_see_the_vid_and_the_exception_and_may_change_them) {
    tarn_rx_modify seen{};
    modify([&](tarn_rx_modify &modify, const tarn_rx_meta &meta, tarn_if *ifp, sk_buff *) {
        seen = modify;
        EXPECT_EQ(meta.code, 77u);
        EXPECT_EQ(ifp, port1());
        modify = {.rx_vid = 30, .vid = 31, .flood_except = {32, 33}};
    });
    Arrival arrival{.vid = 9};
    arrival.meta.code = 77;
    arrival.meta.flood_except[0] = 5;
    arrival.meta.flood_except[1] = 6;
    tarn_pkt_info info = classify(Frame(), arrival);
    EXPECT_EQ(seen.rx_vid, 9u);
    EXPECT_EQ(seen.vid, 9u);
    EXPECT_EQ(seen.flood_except[0], 5u);
    EXPECT_EQ(seen.flood_except[1], 6u);
    EXPECT_EQ(info.rx_vid, 30u);
    EXPECT_EQ(info.vid, 31u);
    EXPECT_EQ(info.flood_except[0], 32u);
    EXPECT_EQ(info.flood_except[1], 33u);
}

TEST_F(Receive, the_vid_that_a_hook_gives_decides_the_vlan) {
    tarn_if *vlan35 = add_vlan(35);
    modify([&](tarn_rx_modify &change, const tarn_rx_meta &, tarn_if *, sk_buff *) {
        change.vid = 35;
    });
    tarn_pkt_info info = classify(Frame());
    EXPECT_EQ(info.rx_vid, 1u);
    EXPECT_EQ(info.vlan_if, vlan35);
    EXPECT_EQ(info.l3_if, vlan35);
    EXPECT_EQ(info.vlan_member_ok, 0);
    EXPECT_EQ(info.vlan_port_disabled, 0);

    port1()->vlan_member_bmp[1] |= 1u << 3;
    port1()->vlan_disabled_bmp[1] |= 1u << 3;
    info = classify(Frame());
    EXPECT_EQ(info.vlan_member_ok, 1);
    EXPECT_EQ(info.vlan_port_disabled, 1);
}

TEST_F(Receive, hooks_are_counted_and_a_disabled_one_is_not_called) {
    receive(Frame());
    EXPECT_EQ(redirect("pbrMark").modify_rx_inspects, 1u);
    enable_redirect_by_name("pbrMark", 0);
    receive(Frame());
    EXPECT_EQ(redirect("pbrMark").modify_rx_inspects, 1u);
    EXPECT_EQ(redirect("filterMatchCpuCode").modify_rx_inspects, 2u);
}

TEST_F(Receive, frame_classes_do_not_keep_a_hook_from_a_frame) {
    redirect("pbrMark").skip_protocols = SKIP_IPV4;
    receive(Frame().ipv4({}));
    EXPECT_EQ(redirect("pbrMark").modify_rx_inspects, 1u);
}

TEST_F(Receive, what_a_hook_pulls_off_is_gone_for_the_parsers) {
    modify(
        [](tarn_rx_modify &, const tarn_rx_meta &, tarn_if *, sk_buff *skb) { skb_pull(skb, 8); });
    Bytes outer(8, 0xEE);
    Bytes inner = Frame().from("02:00:00:00:00:01").ipv4({.protocol = 89});
    outer.insert(outer.end(), inner.begin(), inner.end());
    tarn_pkt_info info = classify(outer);
    EXPECT_EQ(info.ethertype, 0x0800u);
    EXPECT_EQ(info.ip_proto, 89);
    EXPECT_EQ(info.src_mac_is_own, 1); // the source address behind what was pulled
}

TEST_F(Receive, the_metadata_reaches_the_classification) {
    Arrival arrival;
    arrival.meta.code = 3;
    arrival.meta.flags = 0x20;
    arrival.meta.extra = 11;
    arrival.meta.replicated = 1;
    arrival.meta.local_post_kernel = 1;
    tarn_pkt_info info = classify(Frame(), arrival);
    EXPECT_EQ(info.code, 3u);
    EXPECT_EQ(info.flags, 0x20u);
    EXPECT_EQ(info.extra, 11u);
    EXPECT_EQ(info.replicated, 1);
    EXPECT_EQ(info.local, 0);
    EXPECT_EQ(info.local_post_kernel, 1);
    EXPECT_EQ(info.order, process_packet_rxs.data());
    EXPECT_EQ(info.result, 0u);
}

TEST_F(Receive, a_slave_marks_frames_for_the_master_only) {
    Arrival arrival;
    arrival.meta.rx_flags = 1;
    EXPECT_EQ(classify(Frame(), arrival).slave_only, 0); // this unit is no slave
    calls().stack_slave = 1;
    EXPECT_EQ(classify(Frame(), arrival).slave_only, 1);
    EXPECT_EQ(classify(Frame(), arrival).stack_slave, 1);
    arrival.meta.rx_flags = 2;
    EXPECT_EQ(classify(Frame(), arrival).slave_only, 0);
}

TEST_F(Receive, a_debug_control_forces_slave_only) {
    slave_only_debug_override = 1;
    EXPECT_EQ(classify(Frame()).slave_only, 1);
    EXPECT_EQ(classify(Frame()).stack_slave, 0);
}

TEST_F(Receive, a_vlan_disabled_on_the_port_is_seen) {
    port1()->vlan_disabled_bmp[1] |= 1u << 3; // VID 35
    EXPECT_EQ(classify(Frame(), {.vid = 35}).vlan_port_disabled, 1);
    EXPECT_EQ(classify(Frame(), {.vid = 34}).vlan_port_disabled, 0);
}

TEST_F(Receive, membership_follows_the_bitmap_of_the_port) {
    EXPECT_EQ(classify(Frame(), {.vid = 1}).vlan_member_ok, 1);
    EXPECT_EQ(classify(Frame(), {.vid = 2}).vlan_member_ok, 0);
    EXPECT_EQ(classify(Frame(), {.vid = 33}).vlan_member_ok, 0);
}

TEST_F(Receive, a_vid_beyond_the_bitmaps_is_in_none) {
    std::fill(std::begin(port1()->vlan_member_bmp), std::end(port1()->vlan_member_bmp), ~0u);
    std::fill(std::begin(port1()->vlan_disabled_bmp), std::end(port1()->vlan_disabled_bmp), ~0u);
    tarn_pkt_info last = classify(Frame(), {.vid = 4095});
    EXPECT_EQ(last.vlan_member_ok, 1);
    EXPECT_EQ(last.vlan_port_disabled, 1);
    for (u32 vid : {4096u, 70000u, 0xFFFFFFFFu}) {
        tarn_pkt_info info = classify(Frame(), {.vid = vid});
        EXPECT_EQ(info.vlan_member_ok, 0);
        EXPECT_EQ(info.vlan_port_disabled, 0);
    }
}

TEST_F(Receive, the_ingress_filter_is_the_ports) {
    port1()->ingress_filter = 1;
    EXPECT_EQ(classify(Frame()).ingress_filter, 1);
}

TEST_F(Receive, a_port_under_openflow_needs_no_membership) {
    port1()->openflow = 1;
    EXPECT_EQ(classify(Frame(), {.vid = 2}).vlan_member_ok, 1);
}

TEST_F(Receive, a_vlan_may_waive_the_membership_test) {
    add_vlan(2)->if_flags |= TARN_IF_F_NO_VLAN_MEMBER_CHECK;
    EXPECT_EQ(classify(Frame(), {.vid = 2}).vlan_member_ok, 1);
    EXPECT_EQ(classify(Frame(), {.vid = 3}).vlan_member_ok, 0); // no interface to waive it
}

TEST_F(Receive, of_an_aggregator_the_port_itself_is_looked_at) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501), *shown = nullptr;
    modify([&](tarn_rx_modify &, const tarn_rx_meta &, tarn_if *ifp, sk_buff *) { shown = ifp; });
    for (u32 vid : {1u, 2u})
        vlan_bit_write(aggregator->vlan_member_bmp, vid, vid == 2);
    vlan_bit_write(aggregator->vlan_disabled_bmp, 1, true);
    aggregator->ingress_filter = 1;
    aggregator->openflow = 1;
    aggregator->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    port1()->openflow = 0;
    tarn_pkt_info info = classify(Frame(), {.vid = 2});
    EXPECT_EQ(shown, port1());
    EXPECT_EQ(info.rx_port, port1());
    EXPECT_EQ(info.l2_port, aggregator);
    EXPECT_EQ(info.vlan_member_ok, 0);
    info = classify(Frame(), {.vid = 1});
    EXPECT_EQ(info.vlan_member_ok, 1);
    EXPECT_EQ(info.vlan_port_disabled, 0);
    EXPECT_EQ(info.ingress_filter, 0);
    EXPECT_EQ(info.vlan_if, vlan1());
    port1()->ingress_filter = 1;
    vlan_bit_write(port1()->vlan_disabled_bmp, 1, true);
    info = classify(Frame(), {.vid = 1});
    EXPECT_EQ(info.vlan_port_disabled, 1);
    EXPECT_EQ(info.ingress_filter, 1);
}

TEST_F(Receive, the_vlan_interface_is_the_layer_3_interface) {
    tarn_pkt_info info = classify(Frame());
    EXPECT_EQ(info.vlan_if, vlan1());
    EXPECT_EQ(info.l3_if, vlan1());
    info = classify(Frame(), {.vid = 2});
    EXPECT_EQ(info.vlan_if, nullptr);
    EXPECT_EQ(info.l3_if, nullptr);
}

TEST_F(Receive, a_reference_to_the_vlan_is_held_during_the_chain) {
    i32 during = 0;
    probe().match = [&](tarn_pkt_info &info, redirect_instruct &) {
        during = refcount_read(&info.vlan_if->refcnt);
    };
    receive(Frame());
    EXPECT_EQ(during, 2);
}

TEST_F(Receive, a_routed_port_is_its_own_vlan) {
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    i32 during = 0;
    probe().match = [&](tarn_pkt_info &info, redirect_instruct &) {
        during = refcount_read(&info.vlan_if->refcnt);
        EXPECT_EQ(refcount_read(&vlan1()->refcnt), 1);
    };
    receive(Frame(), {.vid = 1});
    tarn_pkt_info &info = probe().seen;
    EXPECT_EQ(during, 3); // the database's, the lookup's, the chain's
    EXPECT_EQ(info.vlan_if, port1());
    EXPECT_EQ(info.l3_if, port1());
    EXPECT_EQ(info.rx_vid, 0u);
    EXPECT_EQ(info.vid, 1u);
    EXPECT_EQ(info.vlan_member_ok, 1);
}

TEST_F(Receive, a_waived_membership_test_goes_before_the_routed_port) {
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    vlan1()->if_flags |= TARN_IF_F_NO_VLAN_MEMBER_CHECK;
    tarn_pkt_info info = classify(Frame(), {.vid = 1});
    EXPECT_EQ(info.vlan_if, vlan1());
    EXPECT_EQ(info.rx_vid, 1u);
    EXPECT_EQ(info.vlan_member_ok, 1);
}

TEST_F(Receive, the_own_address_on_a_routed_port_is_that_of_the_vlan) {
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    const u8 other[] = {2, 0, 0, 0, 0, 0x77};
    std::copy(std::begin(other), std::end(other), port1()->hwaddr);
    EXPECT_EQ(classify(Frame().from("02:00:00:00:00:01")).src_mac_is_own, 1);
    EXPECT_EQ(classify(Frame().from("02:00:00:00:00:77")).src_mac_is_own, 0);
}

TEST_F(Receive, openflow_goes_before_the_routed_port) {
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    port1()->openflow = 1;
    tarn_pkt_info info = classify(Frame(), {.vid = 1});
    EXPECT_EQ(info.vlan_if, vlan1());
    EXPECT_EQ(info.rx_vid, 1u);
}

TEST_F(Receive, our_own_source_address_is_noticed) {
    EXPECT_EQ(classify(Frame().from("02:00:00:00:00:01")).src_mac_is_own, 1);
    EXPECT_EQ(classify(Frame().from("02:00:00:00:00:02")).src_mac_is_own, 0);
}

TEST_F(Receive, a_vlan_without_interface_is_measured_against_vlan_1) {
    EXPECT_EQ(classify(Frame().from("02:00:00:00:00:01"), {.vid = 2}).src_mac_is_own, 1);
    add_vlan(2)->hwaddr[5] = 7;
    EXPECT_EQ(classify(Frame().from("02:00:00:00:00:01"), {.vid = 2}).src_mac_is_own, 0);
    EXPECT_EQ(classify(Frame().from("02:00:00:00:00:07"), {.vid = 2}).src_mac_is_own, 1);
}

TEST_F(Receive, without_vlan_1_no_address_is_our_own) {
    vlan1()->if_flags |= TARN_IF_F_DELETED;
    EXPECT_EQ(classify(Frame().from("02:00:00:00:00:01"), {.vid = 2}).src_mac_is_own, 0);
    vlan1()->if_flags &= ~TARN_IF_F_DELETED;
}

TEST_F(Receive, a_local_frame_stops_first_of_all) {
    EXPECT_EQ(receive(Frame(), local()), 0u);
    EXPECT_EQ(redirect("vlan_local").stops, 1u);
    EXPECT_EQ(redirect("dos").inspects, 0u);
}

TEST_F(Receive, a_local_frame_walks_the_chain_with_slot_49_disabled) {
    enable_redirect(49, 0);
    tarn_pkt_info info = classify(Frame().padded(), local());
    EXPECT_EQ(info.rx_port, nullptr);
    EXPECT_EQ(info.l2_port, nullptr);
    EXPECT_EQ(info.l2_ifindex, 0u);
    EXPECT_EQ(info.vlan_if, vlan1());
    EXPECT_EQ(info.l3_if, vlan1());
    EXPECT_EQ(info.vlan_member_ok, 1);
    EXPECT_EQ(info.local, 1);
    EXPECT_EQ(info.tag, 1u);
}

TEST_F(Receive, a_local_frame_is_prepared_without_its_port) {
    enable_redirect(49, 0);
    calls().stack_slave = 1;
    slave_only_debug_override = 1;
    port1()->ingress_filter = 1;
    Arrival arrival = local();
    arrival.port = 1; // not looked at
    arrival.vid = 0x30001;
    arrival.meta.rx_flags = 1;
    arrival.meta.code = 4;
    arrival.meta.flags = 0x20;
    arrival.meta.extra = 6;
    arrival.meta.replicated = 1;
    arrival.meta.local_post_kernel = 1;
    arrival.meta.flood_except[0] = 8;
    tarn_pkt_info info =
        classify(Frame().from("02:00:00:00:00:01").tag(0x0FFF).ipv4({.protocol = 89}), arrival);
    EXPECT_EQ(info.rx_port, nullptr);
    EXPECT_EQ(info.rx_vid, 1u); // the low 16 bits
    EXPECT_EQ(info.vid, 1u);
    EXPECT_EQ(info.tag, 0x10FFFu);
    EXPECT_EQ(info.flood_except[0], 0u);
    EXPECT_EQ(info.flood_except[1], 0u);
    EXPECT_EQ(info.code, 4u);
    EXPECT_EQ(info.flags, 0x20u);
    EXPECT_EQ(info.extra, 6u);
    EXPECT_EQ(info.ip_proto, 89);
    EXPECT_EQ(info.local_post_kernel, 1);
    EXPECT_EQ(info.stack_slave, 1);
    EXPECT_EQ(info.replicated, 1);
    EXPECT_EQ(info.slave_only, 0);
    EXPECT_EQ(info.src_mac_is_own, 0);
    EXPECT_EQ(info.ingress_filter, 0);
    EXPECT_EQ(info.vlan_port_disabled, 0);
    EXPECT_EQ(redirect("pbrMark").modify_rx_inspects, 0u);
    EXPECT_EQ(info.vlan_if, vlan1());
}

TEST_F(Receive, a_local_frame_of_a_vlan_without_interface_has_none) {
    enable_redirect(49, 0);
    Arrival arrival = local();
    arrival.vid = 2;
    tarn_pkt_info info = classify(Frame(), arrival);
    EXPECT_EQ(info.vlan_if, nullptr);
    EXPECT_EQ(info.l3_if, nullptr);
}

TEST_F(Receive, nothing_is_logged_for_a_local_frame) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    receive(Frame(), local());
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Receive, a_frame_that_is_not_copied_costs_no_allocation) {
    sk_buff *stopped = userlevel::frame_make(Frame().from("ff:ff:ff:ff:ff:ff").build());
    sk_buff *unclaimed = userlevel::frame_make(Frame().tag(5).ipv6({}).build());
    auto before = userlevel::allocations_made();
    receive_skb(stopped);
    receive_skb(unclaimed);
    EXPECT_EQ(userlevel::allocations_made(), before);
    EXPECT_EQ(redirect("l2drop").stops, 1u);
}

} // namespace
