// The follower alone: what the chip asks a core that is a few maps, and when.
#include "chip_test.h"

#include "kernel/errno.h"
#include "port.h"

#include <algorithm>
#include <random>

namespace {

const std::string ALL = "ff:ff:ff:ff:ff:ff";
constexpr u32 LAG = 4501;

class ChipFollows : public ChipTest {
protected:
    ChipFollows() {
        home.facts.vlans[1] = {};
        home.facts.vlans[4094] = {};
        home.follower.vlan(1);
        home.follower.vlan(4094);
    }

    static rxtx_follow_port up() {
        rxtx_follow_port port{};
        port.up = port.running = port.ingress_filter = 1;
        port.pvid = 1;
        return port;
    }
    static void know(u32 ifindex, u32 aggregator = 0) {
        home.facts.ports[ifindex] = up();
        home.facts.ports[ifindex].aggregator = aggregator;
        std::snprintf(home.facts.ports[ifindex].name, 17, "port%u", ifindex);
        home.facts.port_vlans[{ifindex, 0}].member = 1u << 1;
    }
    static void know_all() {
        for (u32 ifindex = 101; ifindex <= 104; ifindex++) {
            know(ifindex);
            home.follower.port(ifindex);
        }
    }
    static void make_lag(std::initializer_list<u32> members) {
        know(LAG);
        for (u32 ifindex : members)
            home.facts.ports[ifindex].aggregator = LAG;
        for (u32 ifindex : members)
            home.follower.port(ifindex);
    }

    std::string flood_from(u32 ifindex, u16 tag = 0) {
        home.sent.clear();
        Frame frame = Frame().to(ALL);
        if (tag != 0)
            frame.tag(tag);
        receive(ifindex, frame.type(0x88B5).padded(64));
        return ports_that_sent();
    }
};

} // namespace

TEST_F(ChipFollows, a_port_is_asked_for_when_it_is_told_of) {
    know(102);
    home.facts.ports[102].up = 0;
    EXPECT_EQ(flood_from(101), "102 103 104") << "nobody has told the chip";
    home.follower.port(102);
    EXPECT_EQ(flood_from(101), "103 104");
}

TEST_F(ChipFollows, calls_of_others_are_none_of_its_business) {
    home.follower.port(7);
    home.follower.port_vlans(7, 1, 4094);
    home.follower.port_stp(7, 0);
    home.follower.port_vlans(101, 1, 4094);
    home.follower.port_stp(101, 0);
    EXPECT_EQ(flood_from(101), "102 103 104") << "a port that the core does not know";
}

TEST_F(ChipFollows, numbers_out_of_range_are_passed_over) {
    know_all();
    home.follower.port_vlans(101, 0, ~0u);
    home.follower.port_vlans(101, 4095, 4096);
    home.follower.port_stp(101, 64);
    home.follower.vlan(0);
    home.follower.vlan(4095);
    home.follower.vlan(~0u);
    home.facts.vlans[1].stp_instance = 200;
    home.follower.vlan(1);
    EXPECT_EQ(flood_from(101), "102 103 104");
}

TEST_F(ChipFollows, vlans_are_read_by_the_range_that_was_told) {
    know_all();
    for (u32 ifindex : {101u, 102u, 103u})
        home.facts.port_vlans[{ifindex, 4094 / 32}] = {1u << 30, 1u << 30, 0};
    home.follower.port_vlans(101, 4094, 4094);
    home.follower.port_vlans(102, 4000, 4094);
    home.follower.port_vlans(103, 4000, 4093);
    EXPECT_EQ(flood_from(101, 4094), "102");
    home.follower.port_vlans(103, 1, 4094);
    EXPECT_EQ(flood_from(101, 4094), "102 103");
}

// Whatever comes first, and however often: the same chip.
TEST_F(ChipFollows, the_order_of_calls_means_nothing) {
    std::mt19937 random{20261121};
    for (u32 ifindex = 101; ifindex <= 104; ifindex++)
        know(ifindex, ifindex >= 103 ? LAG : 0);
    know(LAG);
    home.facts.vlans[1].stp_instance = 5;
    home.facts.stp[{102, 5}] = RXTX_FOLLOW_STP_BLOCKING;
    std::vector<std::function<void()>> calls;
    for (u32 ifindex : {101u, 102u, 103u, 104u, LAG})
        calls.insert(calls.end(),
                     {[=] { home.follower.port(ifindex); },
                      [=] { home.follower.port_vlans(ifindex, 1, 4094); },
                      [=] { home.follower.port_stp(ifindex, 5); }, [=] { home.follower.vlan(1); }});
    for (int round = 0; round < 50; round++) {
        chip_stop();
        FakeFacts facts = std::exchange(home.facts, {});
        chip_start();
        home.facts = facts;
        for (u32 ifindex = 101; ifindex <= 104; ifindex++)
            tell("port " + std::to_string(ifindex) + " " + device_of(ifindex));
        std::shuffle(calls.begin(), calls.end(), random);
        for (const auto &call : calls)
            call();
        std::string out = flood_from(101);
        ASSERT_TRUE(out == "103" || out == "104") << out;
        ASSERT_EQ(flood_from(102), "");
        ASSERT_EQ(flood_from(103), "101");
    }
}

TEST_F(ChipFollows, an_aggregator_keeps_its_addresses_when_the_first_member_has_no_link) {
    know_all();
    make_lag({102, 103});
    receive(103, Frame().from("02:00:00:00:00:0a").to(ALL).padded());
    home.facts.ports[102].running = 0;
    home.follower.port(102);
    chip_tick();
    home.sent.clear();
    receive(101, Frame().to("02:00:00:00:00:0a").padded());
    EXPECT_EQ(ports_that_sent(), "103");
}

TEST_F(ChipFollows, an_aggregator_that_changes_forgets_what_was_behind_it) {
    know_all();
    make_lag({102, 103});
    receive(103, Frame().from("02:00:00:00:00:0a").to(ALL).padded());
    home.facts.ports[102].aggregator = 0;
    home.follower.port(102);
    home.sent.clear();
    receive(101, Frame().to("02:00:00:00:00:0a").padded());
    EXPECT_EQ(ports_that_sent(), "102 103 104");
}

TEST_F(ChipFollows, a_member_that_the_chip_closes_carries_nothing_more) {
    know_all();
    make_lag({102, 103});
    tell("noport 102");
    for (char last = '0'; last <= '9'; last++) {
        home.sent.clear();
        receive(101, Frame().from(std::string("02:00:00:00:07:0") + last).to(ALL).padded());
        EXPECT_EQ(ports_that_sent(), "103 104");
    }
}

TEST_F(ChipFollows, a_static_address_on_a_member_is_behind_the_aggregator) {
    know_all();
    make_lag({102, 103});
    tell("static 02:00:00:00:00:0a 1 102");
    home.facts.ports[102].running = 0;
    home.follower.port(102);
    receive(101, Frame().to("02:00:00:00:00:0a").padded());
    EXPECT_EQ(ports_that_sent(), "103");
}

TEST_F(ChipFollows, a_frame_sent_to_an_aggregator_leaves_by_one_member_with_link) {
    know_all();
    make_lag({102, 103});
    home.facts.ports[102].running = 0;
    home.follower.port(102);
    EXPECT_EQ(transmit(LAG, 1, false, Frame().padded()), 0u);
    EXPECT_EQ(ports_that_sent(), "103");
    home.facts.ports[103].running = 0;
    home.follower.port(103);
    EXPECT_EQ(transmit(LAG, 1, false, Frame().padded()), 0u);
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(102, "drop-link"), 1u);
    EXPECT_EQ(transmit(4502, 1, false, Frame().padded()), static_cast<u32>(-ENODEV));
}

TEST_F(ChipFollows, a_source_that_is_the_switchs_own_is_not_learned) {
    home.facts.vlans[1] = {{2, 0, 0, 0, 0, 1}, 0, 0};
    home.follower.vlan(1);
    receive(101, Frame().from("02:00:00:00:00:01").to(ALL).padded());
    EXPECT_EQ(tell("show fdb"), "fdb 02:00:00:00:00:01 1 own\n");
}

TEST_F(ChipFollows, what_it_follows_can_be_seen) {
    know_all();
    make_lag({103, 104});
    home.facts.ports[102].routed = 1;
    home.facts.ports[102].routed_vid = 4000;
    home.follower.port(102);
    std::string ports = tell("show ports");
    EXPECT_NE(
        ports.find("port 101 p1 link up pvid 1 learn on trusted off auth off name port101 rx"),
        std::string::npos)
        << ports;
    EXPECT_NE(ports.find(" name port102 routed 4000 rx"), std::string::npos) << ports;
    EXPECT_NE(ports.find(" name port103 lag 4501 rx"), std::string::npos) << ports;
    EXPECT_EQ(tell("show vlans"), "vlan 1 port101 untagged port103 untagged port104 untagged\n"
                                  "vlan 4000 port102 untagged\n");
}

// --- an aggregator and its members -------------------------------------------------------------

TEST_F(ChipFollows, a_members_own_tags_go_before_the_aggregators) {
    know_all();
    make_lag({102, 103});
    home.facts.port_vlans[{LAG, 0}] = {1u << 1, 1u << 1, 0};
    for (u32 ifindex : {102u, 103u})
        home.follower.port_vlans(ifindex, 1, 1);
    const Bytes frame = Frame().to(ALL).padded();
    receive(101, frame);
    Frames out = sent(102);
    for (const Bytes &one : sent(103))
        out.push_back(one);
    EXPECT_EQ(out, Frames{frame}) << "it is an untagged member itself";
}

TEST_F(ChipFollows, a_member_filters_as_its_aggregator_does) {
    know_all();
    make_lag({102});
    home.facts.ports[102].ingress_filter = 0;
    home.facts.port_vlans[{101, 4094 / 32}].member = 1u << 30;
    home.follower.port_vlans(101, 4094, 4094);
    home.follower.port(102);
    EXPECT_EQ(flood_from(102, 4094), "");
    home.facts.ports[LAG].ingress_filter = 0;
    home.follower.port(LAG);
    EXPECT_EQ(flood_from(102, 4094), "101");
}

TEST_F(ChipFollows, a_member_of_an_aggregator_that_nobody_knows_is_alone) {
    know_all();
    for (u32 ifindex : {102u, 103u}) {
        home.facts.ports[ifindex].aggregator = LAG;
        home.follower.port(ifindex);
    }
    EXPECT_EQ(flood_from(101), "102 103 104");
    EXPECT_EQ(flood_from(102), "101 103 104");
    EXPECT_EQ(tell("show ports").find(" lag "), std::string::npos);
}

TEST_F(ChipFollows, members_of_a_routed_aggregator_are_routed) {
    know_all();
    make_lag({102, 103});
    home.facts.ports[LAG].routed = 1;
    home.facts.ports[LAG].routed_vid = 4000;
    home.facts.ports[LAG].mac[5] = 7;
    home.follower.port(LAG);
    EXPECT_EQ(flood_from(101), "104");
    EXPECT_EQ(flood_from(102), "");
    home.trapped.clear();
    receive(102, Frame().to("00:00:00:00:00:07").padded());
    ASSERT_EQ(home.trapped.size(), 1u);
    EXPECT_EQ(home.trapped[0].vid, 4000u);
    EXPECT_EQ(traps(), "own-other");
}

// --- routed ports ------------------------------------------------------------------------------

TEST_F(ChipFollows, a_routed_port_is_in_its_own_vlan_alone_whatever_was_before) {
    know_all();
    home.facts.vlans[1] = {{2, 0, 0, 0, 0, 1}, 0, 0};
    home.follower.vlan(1);
    home.facts.ports[102].ingress_filter = 0;
    home.facts.port_vlans[{102, 4000 / 32}].disabled = 1; // VLAN 4000
    home.follower.port_vlans(102, 1, 4094);
    home.facts.ports[102].routed = 1;
    home.facts.ports[102].routed_vid = 4000;
    home.facts.ports[102].mac[5] = 7;
    home.follower.port(102);
    receive(102, Frame().to("00:00:00:00:00:07").padded());
    EXPECT_EQ(traps(), "own-other");
    receive(102, Frame().to("02:00:00:00:00:01").tag(1).padded(64));
    EXPECT_EQ(traps(), "") << "not in VLAN 1, though it filtered nothing";
    home.facts.ports[102].routed_vid = 4001;
    home.follower.port(102);
    EXPECT_NE(tell("show vlans").find("vlan 4001 port102 untagged\n"), std::string::npos);
    EXPECT_EQ(tell("show vlans").find("vlan 4000"), std::string::npos);
}

TEST_F(ChipFollows, only_a_routed_port_has_an_address) {
    know_all();
    home.facts.ports[102].mac[5] = 7;
    home.follower.port(102);
    receive(102, Frame().to("00:00:00:00:00:07").padded());
    EXPECT_EQ(traps(), "");
    EXPECT_EQ(ports_that_sent(), "101 103 104");
}

TEST_F(ChipFollows, the_state_of_a_port_that_nobody_knows_is_none_of_its_business) {
    home.facts.stp[{101, 0}] = RXTX_FOLLOW_STP_BLOCKING;
    home.follower.port_stp(101, 0);
    EXPECT_EQ(flood_from(101), "102 103 104");
}
