// What a multicast frame is to snooping, line by line.
#include "redirects/redirects_test.h"

#include "redirects/redirect_calls.h"

namespace {

using Address6 = std::array<u8, 16>;

constexpr Address6 link_group(u8 last) {
    return {0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
}

class McType : public Redirects {
protected:
    // Data for 239.1.2.3, with the right MAC address.
    tarn_pkt_info ipv4(u32 group = 0xEF010203) {
        tarn_pkt_info info = passing(0x0800);
        info.l3_if = vlan1();
        info.ip_proto = 17;
        info.mac_multicast = info.mac_ipv4_mc = info.ipv4_mc_mac_matches = 1;
        u32 wire = cpu_to_be32(group);
        memcpy(info.dst_ip, &wire, sizeof(wire));
        return info;
    }
    tarn_pkt_info ipv6(const Address6 &group = link_group(0xFB)) {
        tarn_pkt_info info = passing(0x86DD);
        info.ipv6_next_header = 17;
        info.mac_multicast = info.mac_ipv6_mc = info.ipv6_mc_mac_matches = info.ipv6_parsed = 1;
        memcpy(info.dst_ip, group.data(), group.size());
        info.src_ip[0] = 0xFE;
        info.src_ip[1] = 0x80;
        return info;
    }
    tarn_pkt_info mld(u8 type) {
        tarn_pkt_info info = ipv6(link_group(0x16));
        info.ipv6_next_header = 58;
        info.icmpv6_type = type;
        info.rtr_alert = 1;
        return info;
    }
    static i32 type(const tarn_pkt_info &info) {
        return info.ethertype == 0x0800 ? tarn_igs_get_mc_type(&info)
                                        : tarn_mlds_get_mc_type(&info);
    }
    void expect_routers(std::initializer_list<u32> last_bytes) {
        for (u32 last = 0; last < 256; last++) {
            bool expected = std::ranges::find(last_bytes, last) != last_bytes.end();
            EXPECT_EQ(type(ipv4(0xE0000000 | last)), expected ? TARN_MC_ROUTER : TARN_MC_DATA)
                << last;
        }
    }
};

TEST_F(McType, each_family_leaves_the_other_alone) {
    tarn_pkt_info info = ipv4();
    EXPECT_EQ(tarn_mlds_get_mc_type(&info), TARN_MC_NONE);
    info = ipv6();
    info.ip_proto = 2;
    EXPECT_EQ(tarn_igs_get_mc_type(&info), TARN_MC_NONE);
}

TEST_F(McType, ipv4_line_by_line) {
    tarn_pkt_info info = ipv4();
    EXPECT_EQ(type(info), TARN_MC_DATA);
    info.ip_proto = 112;
    EXPECT_EQ(type(info), TARN_MC_NONE);
    info.vlan_port_disabled = 1;
    info.ip_proto = 17;
    EXPECT_EQ(type(info), TARN_MC_NONE);
    info.ipv4_mc_mac_matches = 0; // told before a disabled VLAN is
    EXPECT_EQ(type(info), TARN_MC_MISMATCH);
    info.mac_ipv4_mc = 0;
    EXPECT_EQ(type(info), TARN_MC_NONE);
    info.ip_proto = 2; // whatever its address
    EXPECT_EQ(type(info), TARN_MC_MESSAGE);
}

TEST_F(McType, these_ipv4_groups_are_of_routers) {
    expect_routers({1, 2, 4, 5, 6, 9, 13, 15, 24});
    EXPECT_EQ(type(ipv4(0xE25E0104)), TARN_MC_ROUTER); // 226.94.1.4
    EXPECT_EQ(type(ipv4(0xE25E0105)), TARN_MC_DATA);
    EXPECT_EQ(type(ipv4(0xE0000101)), TARN_MC_DATA); // 224.0.1.1
    tarn_pkt_info hello = ipv4(0xE0000012);          // VRRP's group is none of them
    hello.ip_proto = 112;
    EXPECT_EQ(type(hello), TARN_MC_NONE);
    hello = ipv4(0xE0000005);
    hello.ip_proto = 112; // but theirs come first
    EXPECT_EQ(type(hello), TARN_MC_ROUTER);
}

TEST_F(McType, without_a_router_mode_no_group_is_of_routers) {
    tarn_pkt_info info = ipv4(0xE0000005);
    info.l3_if = nullptr;
    EXPECT_EQ(type(info), TARN_MC_DATA);
    vlan1()->fib_id = 7;
    EXPECT_EQ(type(ipv4(0xE0000005)), TARN_MC_DATA);
}

TEST_F(McType, ipv6_line_by_line) {
    tarn_pkt_info info = ipv6();
    EXPECT_EQ(type(info), TARN_MC_DATA);
    for (u8 next : {58, 112}) {
        info.ipv6_next_header = next;
        info.icmpv6_type = 135;
        EXPECT_EQ(type(info), TARN_MC_NONE) << int{next};
    }
    info = ipv6();
    for (u16 port : {546, 548, 5355, 547}) {
        info.udp_dport = cpu_to_be16(port);
        EXPECT_EQ(type(info), port == 547 ? TARN_MC_NONE : TARN_MC_DATA) << port;
    }
    info.ipv6_mc_mac_matches = 0;
    EXPECT_EQ(type(info), TARN_MC_MISMATCH);
    info.ipv6_mc_mac_matches = 1;
    info.ipv6_parsed = 0;
    EXPECT_EQ(type(info), TARN_MC_MISMATCH);
    info.mac_ipv6_mc = 0;
    EXPECT_EQ(type(info), TARN_MC_NONE);
}

TEST_F(McType, these_ipv6_groups_are_of_routers) {
    for (u32 last = 0; last < 256; last++) {
        bool expected =
            last == 4 || last == 5 || last == 6 || last == 9 || last == 10 || last == 13;
        EXPECT_EQ(type(ipv6(link_group(static_cast<u8>(last)))),
                  expected ? TARN_MC_ROUTER : TARN_MC_DATA)
            << last;
    }
    Address6 wider = link_group(5);
    wider[1] = 5; // of the site
    EXPECT_EQ(type(ipv6(wider)), TARN_MC_DATA);
    tarn_pkt_info hello = ipv6(link_group(5));
    hello.ipv6_next_header = 112; // the group comes first
    EXPECT_EQ(type(hello), TARN_MC_ROUTER);
}

TEST_F(McType, a_message_of_mld_has_a_router_alert_and_a_source_on_the_link) {
    for (u32 number = 0; number < 256; number++) {
        bool expected = (number >= 130 && number <= 132) || number == 143;
        EXPECT_EQ(type(mld(static_cast<u8>(number))), expected ? TARN_MC_MESSAGE : TARN_MC_NONE)
            << number;
    }
    tarn_pkt_info info = mld(143);
    info.src_ip[1] = 0xC0; // a global source, or one of the site
    EXPECT_EQ(type(info), TARN_MC_NONE);
    info = mld(143);
    memset(info.dst_ip, 0, 15);
    info.dst_ip[15] = 1; // ::1
    EXPECT_EQ(type(info), TARN_MC_NONE);
    info.rtr_alert = 0;
    EXPECT_EQ(type(info), TARN_MC_MISMATCH);
    info.ipv6_next_header = 17; // a number of ICMP means nothing elsewhere
    EXPECT_EQ(type(info), TARN_MC_DATA);
}

// In the chain: the throttle has a say about data, and about nothing else.
TEST_F(McType, data_that_nobody_joined_is_held_to_its_limit_in_the_chain) {
    userlevel::clock_stop(1000000);
    Frame data = Frame().to("01:00:5e:01:02:03").ipv4({.destination = {239, 1, 2, 3}});
    Frame hello = Frame().to("01:00:5e:00:00:05").ipv4({.destination = {224, 0, 0, 5}});
    Frame data6 =
        Frame()
            .to("33:33:00:00:00:fb")
            .ipv6({.destination = {0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFB}});
    for (int i = 0; i < 20; i++) {
        receive(data);
        receive(hello);
        receive(data6);
    }
    EXPECT_EQ(redirect("mcdrop").stop_reasons[3], 19u);
    EXPECT_EQ(redirect("mcdrop").stop_reasons[4], 19u);
    EXPECT_EQ(redirect("ipv4").stop_reasons[4], 1u + 20u);
    EXPECT_EQ(redirect("ipv6").stop_reasons[6], 1u);
}

} // namespace
