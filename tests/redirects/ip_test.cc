// "ipv4", "ipv6_precheck", "ipv6" and "rarp": every line of their decisions, and their hooks.
#include "redirects/redirects_test.h"

#include "kernel/vmstat.h"

namespace {

constexpr u32 IPV4 = 0x0800, IPV6 = 0x86DD, RARP = 0x8035, ARP = 0x0806;

class Ip : public Redirects {
protected:
    Ip() {
        userlevel::clock_stop(1000000);
        remember(); // the frame
    }

    tarn_pkt_info of(u32 ethertype) {
        tarn_pkt_info info = passing(ethertype);
        info.skb = frame_;
        info.rx_port = info.l2_port = port1();
        info.vlan_if = info.l3_if = vlan1();
        return info;
    }
    tarn_pkt_info icmpv6(u8 type) {
        tarn_pkt_info info = of(IPV6);
        info.ipv6_parsed = 1;
        info.ipv6_next_header = 58;
        info.icmpv6_type = type;
        return info;
    }
    // What the unicast throttle lets pass once in a second.
    tarn_pkt_info expired(u32 ethertype) {
        tarn_pkt_info info = of(ethertype);
        info.slave_only = 1;
        info.ip_proto = info.ipv6_next_header = 17;
        info.ttl = info.hop_limit = 1;
        info.ipv6_parsed = 1;
        return info;
    }
    void expect_throttled_for_the_master(const std::string &name, u32 ethertype, u32 throttled,
                                         u32 replicated) {
        tarn_pkt_info info = expired(ethertype);
        EXPECT_EQ(decide(name, info), (Decision{MASTER, replicated}));
        EXPECT_EQ(decide(name, info), (Decision{STOP, throttled}));
        EXPECT_STREQ(why.rule, "throttle: the flow passed a moment ago");
        EXPECT_EQ(why.limit, 100u);
        info.ttl = info.hop_limit = 2; // no business of the throttle
        EXPECT_EQ(decide(name, info), (Decision{MASTER, replicated}));
    }

    ~Ip() override { kfree_skb(frame_); }
    sk_buff *frame_ = userlevel::frame_make(Frame().padded().build());
};

TEST_F(Ip, each_redirect_looks_at_its_own_type_alone) {
    struct Row {
        const char *name;
        u32 type;
    };
    for (Row row : {Row{"ipv4", IPV4}, Row{"ipv6_precheck", IPV6}, Row{"ipv6", IPV6},
                    Row{"arp", ARP}, Row{"rarp", RARP}})
        for (u32 type : {IPV4, IPV6, RARP, ARP, 0x9000u})
            if (type != row.type) {
                tarn_pkt_info other = of(type);
                EXPECT_EQ(decide(row.name, other), Decision{}) << row.name << " " << type;
            }
}

TEST_F(Ip, the_gate_stands_before_all_of_them) {
    expect_stopped_at_the_gate("ipv4", of(IPV4), 1);
    expect_stopped_at_the_gate("ipv6_precheck", icmpv6(128), 1);
    expect_stopped_at_the_gate("ipv6", icmpv6(128), 1);
    expect_stopped_at_the_gate("rarp", of(RARP), 1);
}

TEST_F(Ip, a_frame_to_the_switch_itself_in_a_disabled_vlan_stops_at_the_gate) {
    port1()->vlan_disabled_bmp[0] = 2;
    receive(Frame().to("02:00:00:00:00:01").ipv4({}));
    EXPECT_EQ(redirect("ipv4").stop_reasons[1], 1u);
    EXPECT_TRUE(calls().kernel.empty());
}

TEST_F(Ip, short_memory_is_told_with_its_number) {
    for (unsigned item : {NR_FREE_PAGES, NR_ZONE_INACTIVE_FILE, NR_ZONE_ACTIVE_FILE})
        userlevel::zone_pages_set(item, 10);
    while (redirect("ipv4").stop_reasons[1] == 0 && redirect("ipv4").inspects < 2000)
        receive(Frame().ipv4({}));
    ASSERT_EQ(redirect("ipv4").stop_reasons[1], 1u);
    tarn_pkt_info info = of(IPV4);
    info.low_mem = 1;
    decide("ipv4", info);
    EXPECT_STREQ(why.number, "bytes free");
    EXPECT_LE(why.measured, 30u * 4096);
    EXPECT_EQ(why.limit, 20u << 20);
}

TEST_F(Ip, ipv4_goes_to_the_ip_stack_where_there_is_an_interface) {
    tarn_pkt_info info = of(IPV4);
    EXPECT_EQ(decide("ipv4", info), (Decision{KERNEL, 4}));
    info.l3_if = nullptr;
    EXPECT_EQ(decide("ipv4", info), (Decision{STOP, 5}));
}

TEST_F(Ip, ipv4_in_a_vlan_without_an_interface_is_never_posted) {
    receive(Frame().ipv4({}), {.vid = 2});
    EXPECT_EQ(redirect("ipv4").stop_reasons[5], 1u);
    EXPECT_EQ(redirect("ipv4").kernel, 0u);
    EXPECT_TRUE(calls().kernel.empty());
}

TEST_F(Ip, ipv4_for_the_master_is_throttled_before_the_interface_is_looked_at) {
    expect_throttled_for_the_master("ipv4", IPV4, 2, 3);
    tarn_pkt_info info = of(IPV4);
    info.slave_only = 1;
    info.l3_if = nullptr;
    EXPECT_EQ(decide("ipv4", info), (Decision{MASTER, 3}));
}

TEST_F(Ip, the_precheck_decides_line_by_line) {
    tarn_pkt_info info = of(IPV6);
    info.ipv6_parsed = 1;
    EXPECT_EQ(decide("ipv6_precheck", info), Decision{});
    info.ipv6_parsed = 0;
    EXPECT_EQ(decide("ipv6_precheck", info), (Decision{STOP, 5}));
    info.slave_only = 1; // asked first: it is replicated, not dropped
    EXPECT_EQ(decide("ipv6_precheck", info), (Decision{MASTER, 4}));
    info.l3_if = nullptr;
    EXPECT_EQ(decide("ipv6_precheck", info), (Decision{STOP, 2}));
    expect_throttled_for_the_master("ipv6_precheck", IPV6, 3, 4);
}

TEST_F(Ip, ipv6_decides_line_by_line) {
    tarn_pkt_info info = of(IPV6);
    EXPECT_EQ(decide("ipv6", info), (Decision{STOP, 5})); // not parsed
    info.ipv6_parsed = 1;
    EXPECT_EQ(decide("ipv6", info), (Decision{KERNEL, 6}));
    info.l3_if = nullptr; // the precheck's business
    EXPECT_EQ(decide("ipv6", info), (Decision{KERNEL, 6}));
    info.slave_only = 1;
    info.ipv6_parsed = 0;
    EXPECT_EQ(decide("ipv6", info), (Decision{MASTER, 4}));
    expect_throttled_for_the_master("ipv6", IPV6, 3, 4);
}

TEST_F(Ip, every_kind_of_icmpv6_is_for_the_other_members_too) {
    for (u32 type : {1u, 128u, 129u, 132u, 133u, 136u, 137u, 255u})
        EXPECT_EQ(decide("ipv6", icmpv6(static_cast<u8>(type))),
                  (Decision{KERNEL | REDIRECT_STACK_REPLICATE, 6}))
            << type;
}

TEST_F(Ip, no_decision_allocates) {
    tarn_pkt_info arp = of(ARP);
    arp.rx_vid = 1;
    u64 before = userlevel::allocations_made();
    EXPECT_EQ(decide("ipv4", of(IPV4)).reason, 4u);
    EXPECT_EQ(decide("ipv4", expired(IPV4)).reason, 3u);
    EXPECT_EQ(decide("ipv6_precheck", icmpv6(135)).reason, 0u);
    EXPECT_EQ(decide("ipv6", icmpv6(135)).reason, 6u);
    EXPECT_EQ(decide("rarp", of(RARP)).reason, 3u);
    EXPECT_EQ(decide("arp", arp).reason, 12u);
    EXPECT_EQ(userlevel::allocations_made(), before);
}

class NeighbourDiscovery : public Ip {
protected:
    u32 passed(u32 frames, u8 type = 135) {
        u32 count = 0;
        for (u32 i = 0; i < frames; i++)
            count += decide("ipv6", icmpv6(type)).reason == 6;
        return count;
    }
};

TEST_F(NeighbourDiscovery, the_102nd_frame_of_a_period_is_stopped) {
    EXPECT_EQ(passed(101), 101u);
    EXPECT_EQ(decide("ipv6", icmpv6(135)), (Decision{STOP, 2}));
    EXPECT_STREQ(why.number, "frames in this second");
    EXPECT_EQ(why.measured, 101u);
    EXPECT_EQ(why.limit, 100u);
}

TEST_F(NeighbourDiscovery, a_period_ends_with_the_first_frame_after_100_jiffies) {
    EXPECT_EQ(passed(500), 101u);
    userlevel::clock_advance(100);
    EXPECT_EQ(passed(1), 0u);
    userlevel::clock_advance(1); // all others were stopped: it opens a new one
    EXPECT_EQ(passed(500), 101u);
}

TEST_F(NeighbourDiscovery, counts_the_four_kinds_and_all_ports_together) {
    for (u32 type : {133u, 134u, 135u, 136u})
        EXPECT_EQ(passed(25, static_cast<u8>(type)), 25u);
    tarn_pkt_info other = icmpv6(136);
    other.rx_port = other.l2_port = add_port(2);
    EXPECT_EQ(decide("ipv6", other).reason, 6u);
    EXPECT_EQ(decide("ipv6", other).reason, 2u);
    for (u32 type : {132u, 137u, 128u}) // none of discovery
        EXPECT_EQ(passed(1, static_cast<u8>(type)), 1u);
}

TEST_F(NeighbourDiscovery, is_stopped_over_its_limit_on_a_slave_too) {
    passed(101);
    tarn_pkt_info info = icmpv6(133);
    info.slave_only = 1;
    EXPECT_EQ(decide("ipv6", info), (Decision{STOP, 2}));
    info.icmpv6_type = 132;
    EXPECT_EQ(decide("ipv6", info), (Decision{MASTER, 4}));
}

TEST_F(NeighbourDiscovery, a_wrap_of_the_clock_does_not_end_the_period) {
    userlevel::clock_stop(0xFFFFFFFFul - 49);
    EXPECT_EQ(passed(500), 101u);
    userlevel::clock_advance(100);
    EXPECT_EQ(passed(1), 0u);
    userlevel::clock_advance(1);
    EXPECT_EQ(passed(1), 1u);
}

TEST_F(Ip, rarp_decides_line_by_line) {
    tarn_pkt_info info = of(RARP);
    EXPECT_EQ(decide("rarp", info), (Decision{KERNEL, 3}));
    info.l3_if = nullptr;
    EXPECT_EQ(decide("rarp", info), (Decision{STOP, 4}));
    info.slave_only = 1;
    for (int i = 0; i < 300; i++) // no throttle
        ASSERT_EQ(decide("rarp", info), (Decision{MASTER, 2}));
}

TEST_F(Ip, mld_snooping_is_asked_between_the_two) {
    std::vector<std::string> order;
    receive(Frame().ipv6({.next = 17}).bytes(Bytes(8)));
    EXPECT_EQ(redirect("ipv6_precheck").inspects, 1u);
    EXPECT_EQ(redirect("ipv6_precheck").stops, 0u);
    EXPECT_EQ(redirect("ipv6").stop_reasons[6], 1u);
}

// --- the hooks before classification
// ----------------------------------------------------------------

class SubnetVlan : public Redirects {
protected:
    // The two VIDs after the frame has passed the hooks.
    std::pair<u32, u32> vids_after(const Bytes &frame, u32 flags) {
        Arrival arrival;
        arrival.meta.flags = flags;
        tarn_pkt_info info = classify(frame, arrival);
        return {info.rx_vid, info.vid};
    }
    // The hook on its own, with a frame as it stands.
    std::pair<u32, u32> hook(const std::string &name, const Bytes &frame) {
        sk_buff *skb = userlevel::frame_make(frame);
        tarn_rx_modify modify{.rx_vid = 1, .vid = 1};
        tarn_rx_meta meta{.flags = TARN_RX_SUBNET_VLAN};
        redirect(name).modify_rx(&modify, &meta, port1(), skb);
        kfree_skb(skb);
        return {modify.rx_vid, modify.vid};
    }
    SubnetVlan() { port1()->default_pvid = 7; }
};

constexpr u32 WANTED = TARN_RX_SUBNET_VLAN;
using Vids = std::pair<u32, u32>;

TEST_F(SubnetVlan, an_address_of_a_subnet_gives_its_vlan) {
    answers().subnet_vlans[be32_to_cpu(0xC0000201)] = 20; // 192.0.2.1
    EXPECT_EQ(vids_after(Frame().ipv4({}), WANTED), (Vids{20, 20}));
    EXPECT_EQ(vids_after(Frame().ipv4({.source = {192, 0, 2, 9}}), WANTED), (Vids{7, 7}));
}

TEST_F(SubnetVlan, without_rules_it_is_the_ports_default) {
    EXPECT_EQ(vids_after(Frame().ipv4({}), WANTED), (Vids{7, 7}));
    EXPECT_EQ(vids_after(Frame().ipv6({}), WANTED), (Vids{7, 7}));
}

TEST_F(SubnetVlan, nothing_changes_unless_the_chip_wants_it) {
    answers().subnet_vlans[be32_to_cpu(0xC0000201)] = 20;
    EXPECT_EQ(vids_after(Frame().ipv4({}), ~WANTED & 0x10), (Vids{1, 1}));
    EXPECT_EQ(vids_after(Frame().ipv6({}), 0), (Vids{1, 1}));
}

TEST_F(SubnetVlan, other_types_keep_their_vlan) {
    EXPECT_EQ(vids_after(Frame().type(0x88B5), WANTED), (Vids{1, 1}));
    EXPECT_EQ(hook("ipv4", Frame().ipv6({})), (Vids{1, 1}));
    EXPECT_EQ(hook("ipv6_precheck", Frame().ipv4({})), (Vids{1, 1}));
}

// The hooks come when the first tag is off.
TEST_F(SubnetVlan, a_frame_that_came_with_one_tag_goes_where_an_untagged_one_goes) {
    answers().subnet_vlans[be32_to_cpu(0xC0000201)] = 20; // 192.0.2.1
    EXPECT_EQ(vids_after(Frame().tag(5).ipv4({}), WANTED), (Vids{20, 20}));
    EXPECT_EQ(vids_after(Frame().tag(5).ipv4({.source = {192, 0, 2, 9}}), WANTED), (Vids{7, 7}));
    EXPECT_EQ(vids_after(Frame().tag(5).ipv6({}), WANTED), (Vids{7, 7}));
}

TEST_F(SubnetVlan, a_frame_that_has_a_second_tag_keeps_its_vlan) {
    EXPECT_EQ(hook("ipv4", Frame().tag(5).ipv4({})), (Vids{1, 1}));
    EXPECT_EQ(hook("ipv6_precheck", Frame().tag(5).ipv6({})), (Vids{1, 1}));
    EXPECT_EQ(vids_after(Frame().tag(5).tag(6).ipv4({}), WANTED), (Vids{1, 1}));
    EXPECT_EQ(vids_after(Frame().tag(5).tag(6).ipv6({}), WANTED), (Vids{1, 1}));
}

TEST_F(SubnetVlan, a_header_that_is_cut_short_has_address_zero) {
    answers().subnet_vlans[0] = 30;
    EXPECT_EQ(hook("ipv4", Frame().ipv4({}).cut(20)), (Vids{30, 30}));
}

TEST_F(SubnetVlan, the_kind_of_interface_is_not_looked_at) {
    port1()->type = TARN_IF_TYPE_ETHERNET;
    EXPECT_EQ(hook("ipv6_precheck", Frame().ipv6({})), (Vids{7, 7}));
    port1()->type = TARN_IF_TYPE_SWITCHPORT;
}

TEST_F(Redirects, icmp_that_the_chip_trapped_is_marked_for_the_ip_stack) {
    auto marked = [&](u32 code) {
        sk_buff *skb = userlevel::frame_make(Frame().ipv4({.protocol = 1}).build());
        tarn_rx_modify modify{.rx_vid = 1, .vid = 1};
        tarn_rx_meta meta{.code = code};
        redirect("icmpCpucode").modify_rx(&modify, &meta, port1(), skb);
        EXPECT_EQ(modify.vid, 1u);
        EXPECT_EQ(Bytes(skb_data(skb), skb_data(skb) + skb_len(skb)),
                  Frame().ipv4({.protocol = 1}).build());
        EXPECT_EQ(skb_mark(skb), 0u);
        u8 mark = skb->icmp_trapped;
        kfree_skb(skb);
        return mark;
    };
    EXPECT_EQ(marked(2), 1);
    EXPECT_EQ(marked(1), 0);
    EXPECT_EQ(marked(3), 0);
    EXPECT_EQ(decide("icmpCpucode", passing(0x0800)), Decision{});
}

} // namespace
