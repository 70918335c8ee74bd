// The small redirects: which frames each decides on, and how.
#include "redirects/redirects_test.h"

#include "kernel/netdev.h"
#include "redirects/redirects.h"

using ::testing::IsEmpty;

namespace {

class Replicated : public Redirects {
protected:
    // "pim" and "vrrp" are alike but for the protocol.
    void expect_replicated_through_the_gate(const std::string &name, const tarn_pkt_info &info) {
        EXPECT_EQ(decide(name, info), (Decision{REDIRECT_STACK_REPLICATE, 0}));
        expect_stopped_at_the_gate(name, info, 1);
    }
};

using OrvoBridge = Redirects;

TEST_F(OrvoBridge, a_vlan_whose_device_is_a_bridge_port_goes_to_the_bridge) {
    net_device device{.name = "vlan1", .priv_flags = IFF_BRIDGE_PORT};
    vlan1()->netdev = &device;
    receive(Frame());
    EXPECT_EQ(redirect("orvo-bridge").stop_reasons[1], 1u);
    ASSERT_EQ(calls().kernel.size(), 1u);
    EXPECT_EQ(calls().kernel[0].l3_if, vlan1());

    device.priv_flags = ~IFF_BRIDGE_PORT;
    receive(Frame());
    vlan1()->netdev = nullptr;
    receive(Frame());
    receive(Frame(), {.vid = 2}); // no interface
    EXPECT_EQ(redirect("orvo-bridge").stops, 1u);
}

TEST_F(OrvoBridge, a_frame_handed_down_by_a_bridge_loses_its_tag) {
    net_device device{.name = "vlan1", .priv_flags = IFF_BRIDGE_PORT};
    sk_buff *skb = userlevel::frame_make(Frame().tag(5).bytes({1}).build());
    auto hook = redirect("orvo-bridge").modify_tx;

    EXPECT_EQ(hook(vlan1(), skb), skb); // no device
    EXPECT_EQ(skb_len(skb), 19u);
    vlan1()->netdev = &device;
    EXPECT_EQ(hook(vlan1(), skb), skb);
    EXPECT_EQ(Bytes(skb_data(skb), skb_data(skb) + skb_len(skb)), Frame().bytes({1}).build());
    EXPECT_EQ(hook(vlan1(), skb), skb); // no tag
    EXPECT_EQ(skb_len(skb), 15u);
    vlan1()->netdev = nullptr;
    kfree_skb(skb);
}

TEST_F(OrvoBridge, bytes_shared_with_a_clone_are_left_alone_on_transmit) {
    net_device device{.name = "vlan1", .priv_flags = IFF_BRIDGE_PORT};
    vlan1()->netdev = &device;
    sk_buff *skb = userlevel::frame_make(Frame().tag(5).build());
    sk_buff *held = skb_clone(skb, GFP_ATOMIC);
    redirect("orvo-bridge").modify_tx(vlan1(), skb);
    EXPECT_EQ(Bytes(skb_data(held), skb_data(held) + skb_len(held)), Frame().tag(5).build());
    EXPECT_EQ(Bytes(skb_data(skb), skb_data(skb) + skb_len(skb)), Frame().build());
    vlan1()->netdev = nullptr;
    kfree_skb(held);
    kfree_skb(skb);
}

class RemoteMirror : public Redirects {
protected:
    u8 enabled() { return redirect("remote-mirror").enabled; }
};

TEST_F(RemoteMirror, follows_the_list_of_mirror_vlans) {
    EXPECT_EQ(enabled(), 0);
    EXPECT_EQ(tarn_rmirror_set_mirror_vlan(7, true), 0);
    EXPECT_EQ(enabled(), 1);
    EXPECT_EQ(tarn_rmirror_set_mirror_vlan(8, true), 0);
    EXPECT_EQ(tarn_rmirror_set_mirror_vlan(7, false), 0);
    EXPECT_EQ(enabled(), 1);
    EXPECT_EQ(tarn_rmirror_set_mirror_vlan(8, false), 0);
    EXPECT_EQ(enabled(), 0);
}

TEST_F(RemoteMirror, an_unchanged_flag_changes_no_count) {
    tarn_rmirror_set_mirror_vlan(7, false);
    EXPECT_EQ(enabled(), 0);
    tarn_rmirror_set_mirror_vlan(7, true);
    tarn_rmirror_set_mirror_vlan(7, true);
    tarn_rmirror_set_mirror_vlan(7, false);
    EXPECT_EQ(enabled(), 0);
}

TEST_F(RemoteMirror, vids_end_at_4094) {
    EXPECT_EQ(tarn_rmirror_set_mirror_vlan(4095, true), -EINVAL);
    EXPECT_EQ(tarn_rmirror_set_mirror_vlan(70000, true), -EINVAL);
    EXPECT_EQ(enabled(), 0);
    EXPECT_EQ(tarn_rmirror_set_mirror_vlan(4094, true), 0);
    EXPECT_EQ(tarn_rmirror_set_mirror_vlan(0, true), 0);
    receive(Frame(), {.vid = 4094});
    receive(Frame(), {.vid = 0});
    receive(Frame(), {.vid = 4095});
    EXPECT_EQ(redirect("remote-mirror").stops, 2u);
}

TEST_F(RemoteMirror, floods_the_frames_of_a_mirror_vlan) {
    tarn_rmirror_set_mirror_vlan(7, true);
    receive(Frame().padded(), {.vid = 7});
    receive(Frame().padded(), {.vid = 1});
    EXPECT_EQ(redirect("remote-mirror").stop_reasons[1], 1u);
    ASSERT_EQ(calls().floods.size(), 1u);
    EXPECT_EQ(calls().floods[0].vid, 7u);
    EXPECT_EQ(calls().floods[0].cos, 0u);
    EXPECT_EQ(calls().floods[0].queue, 0u);
}

TEST_F(RemoteMirror, reserved_destinations_stay_here) {
    tarn_rmirror_set_mirror_vlan(7, true);
    receive(Frame().to("01:80:c2:00:00:00").padded(), {.vid = 7});
    EXPECT_EQ(redirect("remote-mirror").stop_reasons[1], 1u);
    EXPECT_THAT(calls().floods, IsEmpty());
    EXPECT_EQ(redirect("l2drop").inspects, 0u); // not passed on
}

TEST_F(RemoteMirror, the_vid_is_that_of_the_receive_side_cut_to_16_bits) {
    tarn_rmirror_set_mirror_vlan(7, true);
    sk_buff *skb = userlevel::frame_make(Frame().build());
    tarn_pkt_info info = passing();
    info.skb = skb;
    info.rx_vid = 0x30007;
    EXPECT_EQ(decide("remote-mirror", info), (Decision{STOP | REDIRECT_FLOOD_L2, 1}));
    info.vid = 7;
    info.rx_vid = 0;
    EXPECT_EQ(decide("remote-mirror", info), Decision{});
    kfree_skb(skb);
}

class PbrMark : public Redirects {
protected:
    static Arrival policy(u32 extra, u32 mark) {
        Arrival arrival{.mark = mark};
        arrival.meta.flags = TARN_RX_POLICY_ROUTE;
        arrival.meta.extra = extra;
        return arrival;
    }
};

TEST_F(PbrMark, decides_nothing) {
    EXPECT_EQ(decide("pbrMark", passing()), Decision{});
}

TEST_F(PbrMark, a_policy_mark_replaces_bits_8_to_23) {
    EXPECT_EQ(mark_after(Frame(), policy(0x12, 0xFFFFFFFF)), 0xFF0012FFu);
}

TEST_F(PbrMark, a_policy_mark_is_cut_to_its_low_byte) {
    EXPECT_EQ(mark_after(Frame(), policy(0x1234, 0)), 0x3400u);
}

TEST_F(PbrMark, other_frames_are_marked_with_their_port) {
    EXPECT_EQ(mark_after(Frame(), {.mark = 1}), (5001u << 8) | 1);
}

TEST_F(PbrMark, a_dynamic_aggregator_gives_its_own_index) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    aggregator->if_flags |= TARN_IF_F_AGG_DYNAMIC;
    EXPECT_EQ(mark_after(Frame(), {}), 4501u << 8);
}

TEST_F(PbrMark, any_other_aggregator_gives_the_port) {
    add_aggregator_over(port1(), 4501)->if_flags |= TARN_IF_F_AGG_STATIC;
    EXPECT_EQ(mark_after(Frame(), {}), 5001u << 8);
}

TEST_F(PbrMark, a_parent_that_is_no_aggregator_is_not_looked_at) {
    tarn_ifmgr_list_node node{.ifp = vlan1(), .next = nullptr};
    vlan1()->if_flags |= TARN_IF_F_AGG_DYNAMIC;
    port1()->parents = &node;
    EXPECT_EQ(mark_after(Frame(), {}), 5001u << 8);
    port1()->parents = nullptr;
}

TEST_F(Redirects, grasp_goes_to_the_ip_stack) {
    Ipv6 to_all{.destination = {0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x13}};
    receive(Frame().ipv6(to_all));
    EXPECT_EQ(redirect("grasp").stop_reasons[1], 1u);
    EXPECT_EQ(redirect("grasp").kernel, 1u);
    to_all.destination[15] = 0x14;
    receive(Frame().ipv6(to_all));
    to_all.destination = {0xFF, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x13};
    receive(Frame().ipv6(to_all));
    EXPECT_EQ(redirect("grasp").stops, 1u);
    EXPECT_EQ(redirect("grasp").inspects, 3u);
    receive(Frame().ipv4({}));
    receive(Frame().type(0x0806));
    EXPECT_EQ(redirect("grasp").inspects, 3u);
}

class Dos : public Redirects {
protected:
    Arrival marked(u32 extra = 0) {
        Arrival arrival;
        arrival.meta.flags = TARN_RX_DOS;
        arrival.meta.extra = extra;
        return arrival;
    }
};

TEST_F(Dos, reports_what_the_chip_marks_and_lets_it_go_on) {
    receive(Frame().type(0x88B5).bytes(Bytes(30, 7)), marked(9));
    ASSERT_EQ(calls().dos.size(), 1u);
    EXPECT_EQ(calls().dos[0].ifindex, 5001u);
    EXPECT_EQ(calls().dos[0].reason, 9u);
    EXPECT_EQ(calls().dos[0].ethertype, 0x88B5);
    EXPECT_EQ(calls().dos[0].header, Bytes(20, 7));
    EXPECT_EQ(redirect("dos").userspace, 1u);
    EXPECT_EQ(redirect("dos").stops, 0u);
    EXPECT_EQ(redirect("l2drop").inspects, 1u);
}

TEST_F(Dos, reports_ipv4_fragments) {
    struct Row {
        u16 fragment;
        std::size_t reports;
    };
    for (Row row : {Row{0, 0}, Row{0x2000, 1}, Row{0x0001, 1}, Row{0x1FFF, 1}, Row{0x4000, 0},
                    Row{0x8000, 0}, Row{0xC000, 0}}) {
        calls().dos.clear();
        receive(Frame().ipv4({.fragment = row.fragment}));
        EXPECT_EQ(calls().dos.size(), row.reports) << row.fragment;
    }
}

TEST_F(Dos, on_an_aggregator_the_port_is_reported) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    receive(Frame().padded(), marked(3));
    aggregator->if_flags |= TARN_IF_F_AGG_DYNAMIC;
    receive(Frame().padded(), marked(3));
    ASSERT_EQ(calls().dos.size(), 2u);
    EXPECT_EQ(calls().dos[0].ifindex, 5001u);
    EXPECT_EQ(calls().dos[1].ifindex, 5001u);
}

TEST_F(Dos, other_types_have_no_fragments) {
    tarn_pkt_info info = passing();
    info.ethertype = 0x86DD;
    info.ip_frag_off = 0xFFFF;
    EXPECT_EQ(decide("dos", info), Decision{});
}

TEST_F(Dos, a_short_frame_is_reported_with_zeros) {
    receive(Frame().type(0x88B5).bytes({1, 2}), marked());
    Bytes header(20);
    header[0] = 1;
    header[1] = 2;
    ASSERT_EQ(calls().dos.size(), 1u);
    EXPECT_EQ(calls().dos[0].header, header);
}

TEST_F(Dos, a_local_frame_has_no_port_to_report) {
    enable_redirect(49, 0);
    Arrival local = marked();
    local.meta.local = 1;
    receive(Frame(), local);
    EXPECT_THAT(calls().dos, IsEmpty());
    EXPECT_EQ(redirect("dos").userspace, 1u);
}

class L3Drop : public Redirects {
protected:
    bool passes(const Bytes &frame) {
        sk_buff *skb = userlevel::frame_make(frame);
        sk_buff *result = redirect("l3drop").modify_tx(vlan1(), skb);
        EXPECT_TRUE(!result || result == skb);
        kfree_skb(result);
        return result != nullptr;
    }
};

TEST_F(L3Drop, starts_disabled_and_stops_ip_once_enabled) {
    receive(Frame().ipv4({}));
    EXPECT_EQ(redirect("l3drop").inspects, 0u);
    enable_redirect_by_name("l3drop", 1);
    receive(Frame().ipv4({}));
    receive(Frame().ipv6({}));
    receive(Frame().ipv6({}));
    receive(Frame().type(0x0806));
    EXPECT_EQ(redirect("l3drop").stop_reasons[1], 1u);
    EXPECT_EQ(redirect("l3drop").stop_reasons[2], 2u);
    EXPECT_EQ(redirect("l3drop").stops, 3u);
}

TEST_F(L3Drop, no_ip_frame_leaves) {
    EXPECT_FALSE(passes(Frame().ipv4({})));
    EXPECT_FALSE(passes(Frame().ipv6({})));
    EXPECT_FALSE(passes(Frame().tag(1).ipv4({})));
    EXPECT_FALSE(passes(Frame().tag(1).ipv6({})));
    EXPECT_TRUE(passes(Frame().type(0x0806)));
    EXPECT_TRUE(passes(Frame().tag(1).tag(2).ipv4({}))); // no further tag is looked behind
    EXPECT_TRUE(passes(Bytes(3)));
}

class FilterMatch : public Redirects {
protected:
    static Arrival arriving(u32 flags, u32 code) {
        Arrival arrival{.mark = 1};
        arrival.meta.flags = flags;
        arrival.meta.code = code;
        return arrival;
    }
};

TEST_F(FilterMatch, a_filter_with_code_10_goes_to_the_ip_stack_marked) {
    u32 mark = 0;
    sk_buff *skb = userlevel::frame_make(Frame().build());
    redirect("filterMatchCpuCode").post = nullptr; // not used
    probe(48);
    Arrival arrival = arriving(TARN_RX_FILTER_MATCH, 10);
    auto hook = redirect("filterMatchCpuCode").modify_rx;
    skb_set_mark(skb, 1);
    hook(nullptr, &arrival.meta, port1(), skb);
    mark = skb_mark(skb);
    EXPECT_EQ(mark, 0x20000001u);
    kfree_skb(skb);
    receive(Frame(), arrival);
    EXPECT_EQ(redirect("filterMatchCpuCode").stop_reasons[1], 1u);
    EXPECT_EQ(redirect("filterMatchCpuCode").kernel, 1u);
}

TEST_F(FilterMatch, either_alone_is_nothing) {
    enable_redirect_by_name("pbrMark", 0);
    EXPECT_EQ(mark_after(Frame(), arriving(TARN_RX_FILTER_MATCH, 7)), 1u);
    probe().matched = 0;
    EXPECT_EQ(mark_after(Frame(), arriving(0x40, 10)), 1u);
    EXPECT_EQ(redirect("filterMatchCpuCode").stops, 0u);
}

TEST_F(Replicated, pim_passes_the_gate_to_be_replicated) {
    tarn_pkt_info info = passing();
    info.ethertype = 0x0800;
    info.ip_proto = 103;
    expect_replicated_through_the_gate("pim", info);
    info.ethertype = 0x86DD;
    EXPECT_EQ(decide("pim", info), Decision{}); // the IPv4 protocol of an IPv6 frame
    info.ipv6_next_header = 103;
    expect_replicated_through_the_gate("pim", info);
    info.ethertype = 0x0800;
    info.ip_proto = 0;
    EXPECT_EQ(decide("pim", info), Decision{});
}

TEST_F(Redirects, pim_goes_on_in_the_chain) {
    receive(Frame().ipv4({.protocol = 103}));
    EXPECT_EQ(redirect("pim").stack_rep, 1u);
    EXPECT_EQ(redirect("pim").stops, 0u);
    EXPECT_EQ(redirect("ipv4").stop_reasons[4], 1u);
}

TEST_F(Replicated, vrrp_passes_the_gate_to_be_replicated) {
    tarn_pkt_info info = passing();
    info.ip_proto = 112; // whatever the type: it is 0 for all but IPv4
    expect_replicated_through_the_gate("vrrp", info);
    info.ip_proto = 0;
    info.ethertype = 0x86DD;
    EXPECT_EQ(decide("vrrp", info), Decision{});
    info.ipv6_next_header = 112;
    expect_replicated_through_the_gate("vrrp", info);
    info.ethertype = 0x0800;
    EXPECT_EQ(decide("vrrp", info), Decision{});
}

TEST_F(Redirects, pppoe_goes_to_the_ip_stack_through_the_gate) {
    for (u32 type : {0x8863u, 0x8864u}) {
        tarn_pkt_info info = passing();
        info.ethertype = type;
        EXPECT_EQ(decide("pppoe", info), (Decision{STOP, 3})); // no layer 3 interface
        info.l3_if = vlan1();
        EXPECT_EQ(decide("pppoe", info), (Decision{KERNEL, 2}));
        expect_stopped_at_the_gate("pppoe", info, 1);
    }
    tarn_pkt_info other = passing();
    other.ethertype = 0x8865;
    EXPECT_EQ(decide("pppoe", other), Decision{});
}

TEST_F(Redirects, vlan_local_stops_what_has_no_port) {
    tarn_pkt_info info = passing();
    info.rx_port = port1();
    EXPECT_EQ(decide("vlan_local", info), Decision{});
    info.local = 1;
    EXPECT_EQ(decide("vlan_local", info), (Decision{STOP, 1}));
    info.local = 0;
    info.rx_port = nullptr;
    EXPECT_EQ(decide("vlan_local", info), (Decision{STOP, 1}));

    info.local_post_kernel = 1;
    EXPECT_EQ(decide("vlan_local", info), (Decision{STOP, 1})); // no VLAN interface
    info.vlan_if = vlan1();
    EXPECT_EQ(decide("vlan_local", info), (Decision{STOP, 1})); // the VLAN is not local
    vlan1()->if_flags |= TARN_IF_F_VLAN_LOCAL;
    EXPECT_EQ(decide("vlan_local", info), (Decision{KERNEL, 1}));
    info.local_post_kernel = 0;
    EXPECT_EQ(decide("vlan_local", info), (Decision{STOP, 1}));
}

TEST_F(Redirects, a_local_frame_of_a_local_vlan_reaches_the_ip_stack) {
    vlan1()->if_flags |= TARN_IF_F_VLAN_LOCAL;
    Arrival local;
    local.meta.local = local.meta.local_post_kernel = 1;
    receive(Frame(), local);
    ASSERT_EQ(calls().kernel.size(), 1u);
    EXPECT_EQ(calls().kernel[0].rx_port, nullptr);
    EXPECT_EQ(calls().kernel[0].l3_if, vlan1());
}

TEST_F(Redirects, ptp_goes_through_the_port_once_enabled) {
    receive(Frame().type(0x88F7));
    EXPECT_EQ(redirect("ptp").inspects, 0u);
    enable_redirect_by_name("ptp", 1);
    receive(Frame().type(0x88F7));
    receive(Frame().type(0x88F8));
    EXPECT_EQ(redirect("ptp").stop_reasons[1], 1u);
    EXPECT_EQ(redirect("ptp").kernel_port, 1u);
    ASSERT_EQ(calls().kernel.size(), 1u);
    EXPECT_EQ(calls().kernel[0].l3_if, port1());
}

// At the end of the chain the frame is freed as the driver handed it in, so no redirect may put
// another in its place and let it go on.
// Sockets write an address in front of the frame, the sample tap takes it: both stop what they
// post.
bool posts_to_sockets(const packet_redirect *redirect) {
    return ::testing::Matches(::testing::AnyOf(
        "testd", "befd", "stp", "lacp", "lldp", "udld", "ryke", "mrp", "profinet", "cfm", "isis",
        "ldf", "garp", "kelm_agent", "sflow"))(std::string(redirect->name));
}

TEST_F(Redirects, a_post_that_does_not_stop_gives_back_the_same_frame) {
    for (packet_redirect *one : packet_redirects) {
        if (!one || posts_to_sockets(one))
            continue;
        sk_buff *skb = userlevel::frame_make(Frame().ipv4({}).padded().build());
        tarn_post_info info{.rx_port = port1(), .vlan_if = vlan1(), .vid = 1};
        EXPECT_EQ(one->post(skb, &info), skb) << one->name;
        EXPECT_EQ(skb_len(skb), 60u) << one->name;
        kfree_skb(skb);
    }
}

} // namespace
