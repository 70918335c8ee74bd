// "mcdrop" and the flooding groups.
#include "redirects/redirects_test.h"

#include "redirects/redirects.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr u32 GROUP = 0x030201EF; // 239.1.2.3, as in a packet
constexpr const char *GROUP_MAC = "01:00:5e:01:02:03";
constexpr const char *GROUP6_MAC = "33:33:00:00:00:fb";

class Mcdrop : public Redirects {
protected:
    Mcdrop() {
        userlevel::clock_stop(1000000);
        answers().ipv4_type = answers().ipv6_type = 0; // but where a test says more
    }
    ~Mcdrop() override {
        tarn_mcdrop_flooding_group_flush();
        remember(); // the table keeps the nodes of what was in it
    }

    static Frame ipv4() {
        Frame frame;
        return frame.to(GROUP_MAC).ipv4({.destination = {239, 1, 2, 3}}).padded();
    }
    static Frame ipv6() {
        Frame frame;
        Ipv6 header{.destination = {0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFB}};
        return frame.to(GROUP6_MAC).ipv6(header).padded();
    }
    // The reason it was stopped for, 0 where it went on.
    u32 reason_for(const Bytes &frame, const Arrival &arrival = {}) {
        const packet_redirect before = redirect("mcdrop");
        receive(frame, arrival);
        for (u32 reason = 0; reason < REDIRECT_REASONS; reason++)
            if (redirect("mcdrop").stop_reasons[reason] != before.stop_reasons[reason])
                return reason;
        EXPECT_EQ(redirect("mcdrop").stops, before.stops);
        return 0;
    }
};

TEST_F(Mcdrop, one_station_and_broadcast_are_no_multicast) {
    EXPECT_EQ(reason_for(Frame().padded()), 0u);
    EXPECT_EQ(reason_for(Frame().to("ff:ff:ff:ff:ff:ff").padded()), 0u);
}

TEST_F(Mcdrop, multicast_of_no_ip_family_that_nobody_claimed_ends_here) {
    EXPECT_EQ(reason_for(Frame().to("01:80:c2:00:00:0e").padded()), 1u);
    EXPECT_EQ(reason_for(Frame().to("01:00:5f:00:00:01").padded()), 1u);
    EXPECT_EQ(reason_for(Frame().to("33:34:00:00:00:01").padded()), 1u);
    EXPECT_EQ(reason_for(Frame().to(GROUP_MAC).padded()), 0u); // by its address, not its type
    EXPECT_EQ(reason_for(Frame().to(GROUP6_MAC).padded()), 0u);
}

TEST_F(Mcdrop, a_disabled_vlan_is_left_to_others) {
    port1()->vlan_disabled_bmp[0] = 2;
    EXPECT_EQ(reason_for(Frame().to("01:80:c2:00:00:0e").padded()), 0u);
}

TEST_F(Mcdrop, a_group_that_the_chip_floods_ends_here) {
    add_vlan(2);
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), 0);
    EXPECT_EQ(reason_for(ipv4()), 2u);
    EXPECT_EQ(reason_for(ipv6()), 0u);
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 3, GROUP), 0);
    EXPECT_EQ(reason_for(ipv4(), {.vid = 3}), 0u); // no interface
    EXPECT_EQ(reason_for(ipv4(), {.vid = 2}), 0u); // another VLAN
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 2, GROUP), 0);
    EXPECT_EQ(reason_for(ipv4(), {.vid = 2}), 2u);
    vlan1()->fib_id = 5;
    EXPECT_EQ(reason_for(ipv4()), 0u);
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(5, 1, GROUP), 0);
    EXPECT_EQ(reason_for(ipv4()), 2u);
    EXPECT_EQ(reason_for(Frame().to(GROUP_MAC).ipv4({.destination = {239, 1, 2, 4}})), 0u);
}

// Of a routed port it is 0, whatever VID the frame came with.
TEST_F(Mcdrop, such_a_group_is_of_the_receive_vid) {
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), 0);
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    EXPECT_EQ(reason_for(ipv4()), 0u);
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 0, GROUP), 0);
    EXPECT_EQ(reason_for(ipv4()), 2u);
}

// Of other frames the words that would be a group are not: they read zero, or are of IPv6.
TEST_F(Mcdrop, only_ipv4_has_such_groups) {
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, 0), 0);
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, 0x000002FF), 0); // ff02:0000
    EXPECT_EQ(reason_for(Frame().to(GROUP_MAC).type(0x88B5).padded()), 0u);
    EXPECT_EQ(reason_for(ipv6()), 0u);
    EXPECT_EQ(reason_for(Frame().to(GROUP_MAC).ipv4({.destination = {0, 0, 0, 0}})), 2u);
    EXPECT_EQ(reason_for(Frame().to(GROUP_MAC).ipv4({.destination = {0xFF, 2, 0, 0}})), 2u);
}

TEST_F(Mcdrop, groups_that_are_far_apart_are_found) {
    const u32 groups[] = {0, 1, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFF, GROUP, 0xEF010203};
    for (u32 group : groups)
        EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, group), 0);
    for (u32 group : groups)
        EXPECT_EQ(tarn_mcdrop_flooding_group_remove(0, 1, group), 0) << group;
}

TEST_F(Mcdrop, an_equal_entry_may_stand_twice) {
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), 0);
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), 0);
    EXPECT_EQ(tarn_mcdrop_flooding_group_remove(0, 1, GROUP), 0);
    EXPECT_EQ(reason_for(ipv4()), 2u);
    EXPECT_EQ(tarn_mcdrop_flooding_group_remove(0, 1, GROUP), 0);
    EXPECT_EQ(reason_for(ipv4()), 0u);
    EXPECT_EQ(tarn_mcdrop_flooding_group_remove(0, 1, GROUP), -1);
}

TEST_F(Mcdrop, after_a_flush_the_table_is_there_again_empty) {
    EXPECT_EQ(tarn_mcdrop_flooding_group_flush(), 0);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), 0);
        EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP + 1), 0);
        EXPECT_EQ(reason_for(ipv4()), 2u);
        EXPECT_EQ(tarn_mcdrop_flooding_group_flush(), 0);
        EXPECT_EQ(reason_for(ipv4()), 0u);
        EXPECT_EQ(tarn_mcdrop_flooding_group_remove(0, 1, GROUP), -1);
    }
}

TEST_F(Mcdrop, a_flush_without_memory_leaves_a_table_that_the_next_add_makes) {
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), 0);
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_mcdrop_flooding_group_flush(), 0);
    EXPECT_EQ(reason_for(ipv4()), 0u);
    EXPECT_EQ(tarn_mcdrop_flooding_group_remove(0, 1, GROUP), -1);
    EXPECT_EQ(tarn_mcdrop_flooding_group_flush(), 0);
    userlevel::fail_allocation(2); // the record can be had, the table cannot
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), -1);
    EXPECT_THAT(log(), ElementsAre("4 Failed to add MC flooding group to tree 0 1 30201ef\n"));
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), 0);
    EXPECT_EQ(reason_for(ipv4()), 2u);
}

TEST_F(Mcdrop, an_add_without_memory_fails_and_leaves_nothing) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), -1);
    userlevel::fail_allocation(2);
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0xFFFFFFFF, 9, GROUP), -1);
    EXPECT_THAT(log(), ElementsAre("4 Failed to add MC flooding group to tree -1 9 30201ef\n"));
    expect_nothing_leaked();
    EXPECT_EQ(reason_for(ipv4()), 0u);
}

TEST_F(Mcdrop, unregistered_data_is_held_to_its_rate) {
    answers().ipv4_type = 3;
    EXPECT_EQ(reason_for(ipv4()), 0u);
    EXPECT_EQ(reason_for(ipv4()), 3u);
    answers().ipv4_type = 0;
    answers().ipv6_type = 3;
    EXPECT_EQ(reason_for(ipv6()), 0u);
    EXPECT_EQ(reason_for(ipv6()), 4u);
    for (i32 other : {0, 1, 2, 4}) {
        answers().ipv4_type = answers().ipv6_type = other;
        for (int i = 0; i < 50; i++)
            ASSERT_EQ(reason_for(ipv4()) + reason_for(ipv6()), 0u) << other;
    }
}

TEST_F(Mcdrop, a_group_that_the_chip_floods_costs_no_token) {
    answers().ipv4_type = 3;
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, GROUP), 0);
    for (int i = 0; i < 50; i++)
        ASSERT_EQ(reason_for(ipv4()), 2u);
    EXPECT_EQ(tarn_mcdrop_flooding_group_flush(), 0);
    EXPECT_EQ(reason_for(ipv4()), 0u);
    EXPECT_EQ(reason_for(ipv4()), 3u);
}

TEST_F(Mcdrop, both_types_are_asked_for_whatever_the_family) {
    answers().ipv4_type = 3;
    EXPECT_EQ(reason_for(ipv6()), 0u);
    EXPECT_EQ(reason_for(ipv6()), 3u);
    answers().ipv4_type = 0;
    answers().ipv6_type = 3;
    EXPECT_EQ(reason_for(ipv4()), 0u);
    EXPECT_EQ(reason_for(ipv4()), 4u);
}

TEST_F(Mcdrop, a_stream_at_100_a_second_gives_the_daemon_its_limit) {
    answers().ipv4_type = 3;
    tarn_update_mcast_limits(5);
    u32 passed = 0;
    for (u32 jiffy = 0; jiffy < 1000; jiffy++) {
        userlevel::clock_stop(2000000 + jiffy);
        passed += reason_for(ipv4()) == 0;
    }
    EXPECT_EQ(passed, 20u); // a flow, every 50 jiffies
}

TEST_F(Mcdrop, with_routing_in_software_the_throttle_is_left_to_others) {
    answers().ipv4_type = answers().ipv6_type = 3;
    answers().ipv4_routing = answers().ipv6_routing = true;
    for (int i = 0; i < 50; i++)
        ASSERT_EQ(reason_for(ipv4()) + reason_for(ipv6()), 0u);
    answers().ipv6_routing = false;
    EXPECT_EQ(reason_for(ipv6()), 0u);
    EXPECT_EQ(reason_for(ipv6()), 4u);
}

TEST_F(Mcdrop, dhcpv6_and_name_resolution_are_not_held_back) {
    answers().ipv6_type = 3;
    for (u8 high : {2, 20})
        for (u8 low : {34, 35, 235}) {
            if ((high == 20) != (low == 235))
                continue;
            Frame frame;
            frame.to(GROUP6_MAC).ipv6({}).bytes({0, 9, high, low, 0, 8, 0, 0});
            for (int i = 0; i < 50; i++)
                ASSERT_EQ(reason_for(frame), 0u) << int{high} << " " << int{low};
        }
}

TEST_F(Mcdrop, a_throttle_that_lets_pass_has_a_word_on_it) {
    answers().ipv4_type = 3;
    std::vector<std::string> told;
    userlevel::trace_watch watch([&](const redirect_event &event) {
        if (event.redirect == std::string("mcdrop"))
            told.push_back(std::string(event.rule) + " " + event.number + " " +
                           std::to_string(event.measured) + "/" + std::to_string(event.limit));
    });
    reason_for(ipv4());
    reason_for(ipv4());
    EXPECT_THAT(told, ElementsAre("throttle: it may pass tokens left 9/10",
                                  "throttle: the flow passed a moment ago jiffies since then "
                                  "0/20"));
}

} // namespace
