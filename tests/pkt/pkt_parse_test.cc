// What the parsers make of a frame.
#include "support/switch_test.h"

namespace {

class Parse : public SwitchTest {
protected:
    // A hop-by-hop header of eight bytes whose options start with `options`, then ICMPv6 type 143.
    tarn_pkt_info hop_by_hop(std::initializer_list<int> options) {
        Bytes header{58, 0};
        for (int byte : options)
            header.push_back(static_cast<u8>(byte));
        header.resize(8);
        return classify(Frame().ipv6({.next = 0}).bytes(header).bytes({143, 0}));
    }
};

TEST_F(Parse, the_type_is_behind_at_most_one_remaining_tag) {
    EXPECT_EQ(classify(Frame().type(0x1234)).ethertype, 0x1234u);
    EXPECT_EQ(classify(Frame().tag(1).type(0x1234)).ethertype, 0x1234u);
    EXPECT_EQ(classify(Frame().tag(1).tag(2).type(0x1234)).ethertype, 0x1234u);
    EXPECT_EQ(classify(Frame().tag(1).tag(2).tag(3).type(0x1234)).ethertype, 0x8100u);
}

TEST_F(Parse, knows_the_kinds_of_multicast_address) {
    struct Row {
        const char *to;
        int multicast, ipv4, ipv6;
    };
    for (Row row : {Row{"02:00:00:00:00:01", 0, 0, 0}, Row{"01:80:c2:00:00:01", 1, 0, 0},
                    Row{"ff:ff:ff:ff:ff:ff", 0, 0, 0}, Row{"ff:ff:ff:ff:ff:fe", 1, 0, 0},
                    Row{"01:00:5e:00:00:01", 1, 1, 0}, Row{"01:00:5e:ff:ff:ff", 1, 1, 0},
                    Row{"01:00:5f:00:00:01", 1, 0, 0}, Row{"33:33:00:00:00:01", 1, 0, 1},
                    Row{"33:34:00:00:00:01", 1, 0, 0}}) {
        tarn_pkt_info info = classify(Frame().to(row.to).padded());
        EXPECT_EQ(info.mac_multicast, row.multicast) << row.to;
        EXPECT_EQ(info.mac_ipv4_mc, row.ipv4) << row.to;
        EXPECT_EQ(info.mac_ipv6_mc, row.ipv6) << row.to;
    }
}

TEST_F(Parse, reads_the_ipv4_header) {
    tarn_pkt_info info = classify(Frame().ipv4({.protocol = 89,
                                                .source = {10, 1, 2, 3},
                                                .destination = {10, 4, 5, 6},
                                                .fragment = 0x2001,
                                                .ttl = 7}));
    EXPECT_EQ(info.ethertype, 0x0800u);
    EXPECT_EQ(Bytes(info.src_ip, info.src_ip + 5), (Bytes{10, 1, 2, 3, 0}));
    EXPECT_EQ(Bytes(info.dst_ip, info.dst_ip + 5), (Bytes{10, 4, 5, 6, 0}));
    EXPECT_EQ(info.ip_proto, 89);
    EXPECT_EQ(info.ip_frag_off, cpu_to_be16(0x2001)); // network order
    EXPECT_EQ(info.ttl, 7);
    EXPECT_EQ(info.ipv6_parsed, 0);
}

TEST_F(Parse, reads_ip_headers_behind_a_remaining_tag) {
    EXPECT_EQ(classify(Frame().tag(1).tag(2).ipv4({.protocol = 89})).ip_proto, 89);
    EXPECT_EQ(classify(Frame().tag(1).tag(2).ipv6({.next = 89})).ipv6_next_header, 89);
}

TEST_F(Parse, a_group_address_matches_its_mac_in_23_bits) {
    struct Row {
        const char *to;
        std::array<u8, 4> group;
        int matches;
    };
    for (Row row :
         {Row{"01:00:5e:01:02:03", {224, 1, 2, 3}, 1},
          Row{"01:00:5e:01:02:03", {239, 129, 2, 3}, 1},
          Row{"01:00:5e:81:02:03", {239, 1, 2, 3}, 1}, Row{"01:00:5e:01:02:03", {224, 2, 2, 3}, 0},
          Row{"01:00:5e:01:02:03", {224, 1, 3, 3}, 0}, Row{"01:00:5e:01:02:03", {224, 1, 2, 4}, 0},
          Row{"01:00:5e:01:02:03", {223, 1, 2, 3}, 0}, Row{"01:00:5e:01:02:03", {240, 1, 2, 3}, 0},
          Row{"01:00:5f:01:02:03", {224, 1, 2, 3}, 0}}) {
        tarn_pkt_info info = classify(Frame().to(row.to).ipv4({.destination = row.group}));
        EXPECT_EQ(info.ipv4_mc_mac_matches, row.matches) << row.to << " " << int(row.group[0]);
    }
}

TEST_F(Parse, an_ipv4_header_that_is_cut_short_reads_zero) {
    tarn_pkt_info info =
        classify(Frame().ipv4({.protocol = 89, .destination = {10, 4, 5, 6}}).cut(14 + 17));
    EXPECT_EQ(info.ip_proto, 89);
    EXPECT_EQ(Bytes(info.dst_ip, info.dst_ip + 4), (Bytes{10, 0, 0, 0}));
}

TEST_F(Parse, reads_the_ipv6_header) {
    Ipv6 header{.next = 89, .hop_limit = 3};
    tarn_pkt_info info = classify(Frame().ipv6(header));
    EXPECT_EQ(info.ethertype, 0x86DDu);
    EXPECT_TRUE(std::equal(header.source.begin(), header.source.end(), info.src_ip));
    EXPECT_TRUE(std::equal(header.destination.begin(), header.destination.end(), info.dst_ip));
    EXPECT_EQ(info.ipv6_next_header, 89);
    EXPECT_EQ(info.hop_limit, 3);
    EXPECT_EQ(info.ipv6_parsed, 1);
    EXPECT_EQ(info.ip_proto, 0);
    EXPECT_EQ(info.rtr_alert, 0);
}

TEST_F(Parse, an_ipv6_group_matches_its_mac_in_32_bits) {
    Ipv6 group{.destination = {0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4}};
    EXPECT_EQ(classify(Frame().to("33:33:01:02:03:04").ipv6(group)).ipv6_mc_mac_matches, 1);
    EXPECT_EQ(classify(Frame().to("33:33:01:02:03:05").ipv6(group)).ipv6_mc_mac_matches, 0);
    EXPECT_EQ(classify(Frame().to("33:34:01:02:03:04").ipv6(group)).ipv6_mc_mac_matches, 0);
    group.destination[0] = 0xFE;
    EXPECT_EQ(classify(Frame().to("33:33:01:02:03:04").ipv6(group)).ipv6_mc_mac_matches, 0);
}

TEST_F(Parse, reads_the_icmpv6_type) {
    EXPECT_EQ(classify(Frame().ipv6({.next = 58}).bytes({135, 0})).icmpv6_type, 135);
    EXPECT_EQ(classify(Frame().ipv6({.next = 58})).icmpv6_type, 0); // not there
}

TEST_F(Parse, reads_the_udp_port_in_network_order) {
    tarn_pkt_info info = classify(Frame().ipv6({.next = 17}).bytes({1, 2, 0x02, 0x22}));
    EXPECT_EQ(info.udp_dport, cpu_to_be16(546));
    EXPECT_EQ(info.icmpv6_type, 0);
}

TEST_F(Parse, walks_extension_headers_to_the_transport) {
    Bytes destination_options{43, 0, 1, 4, 0, 0, 0, 0};
    Bytes routing{44, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    Bytes first_fragment{51, 0, 0, 1, 0, 0, 0, 9};
    Bytes authentication{58, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    tarn_pkt_info info = classify(Frame()
                                      .ipv6({.next = 60})
                                      .bytes(destination_options)
                                      .bytes(routing)
                                      .bytes(first_fragment)
                                      .bytes(authentication)
                                      .bytes({128, 0}));
    EXPECT_EQ(info.ipv6_parsed, 1);
    EXPECT_EQ(info.ipv6_next_header, 58);
    EXPECT_EQ(info.icmpv6_type, 128);
}

TEST_F(Parse, walks_extension_headers_behind_a_remaining_tag) {
    tarn_pkt_info info = classify(Frame()
                                      .tag(1)
                                      .tag(2)
                                      .ipv6({.next = 60})
                                      .bytes({17, 0, 1, 4, 0, 0, 0, 0})
                                      .bytes({0, 0, 2, 2}));
    EXPECT_EQ(info.ipv6_next_header, 17);
    EXPECT_EQ(info.udp_dport, cpu_to_be16(0x202));
}

TEST_F(Parse, no_next_header_is_an_end_like_any_other) {
    tarn_pkt_info info = classify(Frame().ipv6({.next = 59}));
    EXPECT_EQ(info.ipv6_parsed, 1);
    EXPECT_EQ(info.ipv6_next_header, 59);
}

TEST_F(Parse, a_chain_that_ends_in_59_was_not_walked) {
    tarn_pkt_info info = classify(Frame().ipv6({.next = 60}).bytes({59, 0, 1, 4, 0, 0, 0, 0}));
    EXPECT_EQ(info.ipv6_parsed, 0);
    EXPECT_EQ(info.ipv6_next_header, 60); // what the fixed header says
}

TEST_F(Parse, headers_that_do_not_lie_in_the_frame_are_not_walked) {
    EXPECT_EQ(classify(Frame().ipv6({.next = 60})).ipv6_parsed, 0);
    EXPECT_EQ(classify(Frame().ipv6({.next = 60}).bytes({58})).ipv6_parsed, 0);
}

TEST_F(Parse, a_header_that_lies_about_its_length_was_not_walked) {
    // Eight bytes there, 2048 claimed: the transport header would lie beyond the frame.
    tarn_pkt_info info = classify(Frame().ipv6({.next = 60}).bytes({58, 255, 1, 4, 0, 0, 0, 0}));
    EXPECT_EQ(info.ipv6_parsed, 0);
    EXPECT_EQ(info.ipv6_next_header, 60);
    EXPECT_EQ(info.icmpv6_type, 0);
}

TEST_F(Parse, a_later_fragment_ends_the_walk_at_its_header) {
    tarn_pkt_info info =
        classify(Frame().ipv6({.next = 44}).bytes({58, 0, 0x10, 0, 0, 0, 0, 9}).bytes({143, 0}));
    EXPECT_EQ(info.ipv6_parsed, 1);
    EXPECT_EQ(info.ipv6_next_header, 44);
    EXPECT_EQ(info.icmpv6_type, 0);
}

TEST_F(Parse, finds_a_router_alert_at_once) {
    EXPECT_EQ(hop_by_hop({5, 2, 0, 0, 1, 0}).rtr_alert, 1);
}

TEST_F(Parse, finds_a_router_alert_behind_padding) {
    EXPECT_EQ(hop_by_hop({1, 0, 5, 2, 0, 0}).rtr_alert, 1);
    EXPECT_EQ(hop_by_hop({0, 0, 5, 2, 0, 0}).rtr_alert, 1);
    EXPECT_EQ(hop_by_hop({0, 5, 2, 0, 0, 0}).rtr_alert, 1);
}

TEST_F(Parse, finds_no_router_alert_elsewhere) {
    EXPECT_EQ(hop_by_hop({5, 3, 0, 0, 0, 0}).rtr_alert, 0); // another length
    EXPECT_EQ(hop_by_hop({6, 2, 0, 0, 0, 0}).rtr_alert, 0); // another option
    EXPECT_EQ(hop_by_hop({0, 0, 0, 0, 0, 0}).rtr_alert, 0); // padding alone
    EXPECT_EQ(hop_by_hop({1, 4, 0, 0, 0, 0}).rtr_alert, 0);
    EXPECT_EQ(hop_by_hop({1, 250, 0, 0, 0, 0}).rtr_alert, 0); // padding beyond the header
    EXPECT_EQ(classify(Frame().ipv6({.next = 60}).bytes({58, 0, 5, 2, 0, 0, 1, 0})).rtr_alert, 0);
}

TEST_F(Parse, a_router_alert_must_lie_in_its_header) {
    // The header is eight bytes; what looks like the option follows it.
    tarn_pkt_info info =
        classify(Frame().ipv6({.next = 0}).bytes({58, 0, 0, 0, 0, 0, 0, 0}).bytes({5, 2, 0, 0}));
    EXPECT_EQ(info.rtr_alert, 0);
    // And in the frame.
    EXPECT_EQ(classify(Frame().ipv6({.next = 0}).bytes({58, 0})).rtr_alert, 0);
}

TEST_F(Parse, other_types_leave_the_ip_fields_zero) {
    tarn_pkt_info info = classify(Frame().type(0x0806).bytes(Bytes(46, 0xFF)));
    EXPECT_EQ(info.ip_proto, 0);
    EXPECT_EQ(info.ttl, 0);
    EXPECT_EQ(info.ipv6_next_header, 0);
    EXPECT_EQ(info.hop_limit, 0);
    EXPECT_EQ(info.ipv6_parsed, 0);
    EXPECT_EQ(info.src_ip[0], 0);
}

// Every frame, cut at every length, is parsed and nothing outside it read: the sanitizers look.
TEST_F(Parse, a_frame_may_end_anywhere) {
    const Bytes frames[] = {
        Frame().tag(1).tag(2).ipv4({.protocol = 112}),
        Frame()
            .tag(1)
            .tag(2)
            .ipv6({.next = 0})
            .bytes({60, 0, 1, 0, 5, 2, 0, 0})
            .bytes({17, 0, 1, 4, 0, 0, 0, 0})
            .bytes(Bytes(8)),
    };
    enable_redirect_by_name("l2drop", 0); // a runt has the source address zero
    enable_redirect_by_name("vrrp", 0);
    for (const Bytes &whole : frames)
        for (std::size_t length = 0; length <= whole.size(); length++)
            classify(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
}

} // namespace
