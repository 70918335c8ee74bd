// "sflow" and "flowd": which frames they take, and every byte of what they send.
#include "redirects/redirects_test.h"

#include "netlink.h"
#include "redirects/tap.h"

#include <cstring>
#include <linux/netlink.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr u32 FLOW = TARN_RX_FLOW_SAMPLE;

Bytes words(std::initializer_list<u32> values) {
    Bytes bytes;
    for (u32 value : values) {
        const auto *at = reinterpret_cast<const u8 *>(&value);
        bytes.insert(bytes.end(), at, at + sizeof(value));
    }
    return bytes;
}

Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class Taps : public Redirects {
protected:
    Taps() {
        EXPECT_EQ(sflow_.set_option(NETLINK_USERSOCK, NETLINK_ADD_MEMBERSHIP, 1), 0);
        EXPECT_EQ(flowd_.set_option(NETLINK_USERSOCK, NETLINK_ADD_MEMBERSHIP, 2), 0);
        enable_redirect_by_name("flowd", 1);
    }
    static Arrival sampled(u32 code) {
        Arrival arrival;
        arrival.meta.code = code;
        return arrival;
    }
    static Arrival tracked() {
        Arrival arrival;
        arrival.meta.flags = FLOW;
        return arrival;
    }
    // A frame on its own, with that much headroom.
    void receive_with(u32 headroom, const Bytes &bytes, const Arrival &arrival) {
        receive_skb(userlevel::frame_make(bytes, headroom), arrival);
    }
    static Bytes sflow_message(const Bytes &frame, u32 kind, u32 ifindex = 5001) {
        auto length = static_cast<u32>(frame.size());
        return words({length - 16, 0, 0, 0, ifindex, kind, length}) + frame;
    }
    static Bytes flowd_message(const Bytes &frame, u32 ifindex = 5001) {
        auto length = static_cast<u32>(frame.size());
        return words({length + 8, 0, 0, 0, ifindex, length}) + frame;
    }

    std::vector<Bytes> samples, flows;

private:
    userlevel::netlink_socket sflow_{[this](std::span<const u8> message) {
        samples.emplace_back(message.begin(), message.end());
    }};
    userlevel::netlink_socket flowd_{[this](std::span<const u8> message) {
        flows.emplace_back(message.begin(), message.end());
    }};
};

using Sflow = Taps;
using Flowd = Taps;

const Bytes PLAIN = Frame().bytes({1, 2, 3}).padded();
const Bytes TAGGED = Frame().tag(0x6005).bytes({1, 2, 3}).padded(64);

TEST_F(Sflow, takes_samples_and_nothing_else) {
    for (u32 code = 0; code < 12; code++)
        receive(PLAIN, sampled(code));
    EXPECT_EQ(redirect("sflow").stops, 2u);
    EXPECT_EQ(redirect("sflow").stop_reasons[3], 2u);
    EXPECT_THAT(samples, ElementsAre(sflow_message(PLAIN, 0), sflow_message(PLAIN, 1)));
    EXPECT_THAT(flows, IsEmpty());
}

TEST_F(Sflow, a_frame_without_port_is_stopped_without_a_sample) {
    tarn_pkt_info info = passing();
    info.code = 8;
    EXPECT_EQ(decide("sflow", info), (Decision{STOP, 1}));
}

TEST_F(Sflow, multicast_of_code_9_is_stopped_without_a_sample) {
    Bytes multicast = Frame().to("01:00:5e:00:00:01").padded();
    Bytes broadcast = Frame().to("ff:ff:ff:ff:ff:ff").padded();
    receive(multicast, sampled(9));
    EXPECT_EQ(redirect("sflow").stop_reasons[3], 1u);
    EXPECT_EQ(redirect("sflow").userspace, 0u);
    EXPECT_THAT(samples, IsEmpty());
    receive(multicast, sampled(8));
    receive(broadcast, sampled(9));
    EXPECT_THAT(samples, ElementsAre(sflow_message(multicast, 0), sflow_message(broadcast, 1)));
}

TEST_F(Taps, the_tag_is_put_back) {
    receive(TAGGED, sampled(8));
    EXPECT_THAT(samples, ElementsAre(sflow_message(TAGGED, 0)));
    receive(TAGGED, tracked());
    EXPECT_THAT(flows, ElementsAre(flowd_message(TAGGED)));
}

// It was never taken off.
TEST_F(Taps, a_frame_that_ends_within_its_tag_is_told_as_it_came) {
    for (std::size_t length : {12u, 13u, 14u, 15u, 16u, 17u}) {
        Bytes frame = Frame().tag(0x6005).bytes({1, 2, 3}).cut(length);
        samples.clear();
        flows.clear();
        receive(frame, sampled(8));
        receive(frame, tracked());
        EXPECT_THAT(samples, ElementsAre(sflow_message(frame, 0))) << length;
        EXPECT_THAT(flows, ElementsAre(flowd_message(frame))) << length;
        frame = Frame().tag(0x6005).tag(0x1234).cut(4 + length); // its second tag
        receive(frame, sampled(8));
        EXPECT_EQ(samples.back(), sflow_message(frame, 0)) << length;
    }
}

TEST_F(Taps, the_link_header_begins_where_the_tag_is_put_back) {
    tarn_post_info info{.rx_port = port1(), .code = 8, .tag = 0x10005};
    for (u32 headroom : {3u, 40u}) {
        sk_buff *skb = userlevel::frame_make(PLAIN, headroom);
        skb->mac_header = static_cast<u16>(headroom);
        skb = redirect("sflow").post(skb, &info);
        EXPECT_EQ(skb->head + skb->mac_header, skb->data + 28) << headroom; // behind the message
        kfree_skb(skb);
    }
}

TEST_F(Taps, a_link_header_that_nobody_named_stays_unnamed) {
    tarn_post_info info{.rx_port = port1(), .code = 8, .tag = 0x10005};
    sk_buff *skb = redirect("sflow").post(userlevel::frame_make(PLAIN), &info);
    EXPECT_EQ(skb->mac_header, SKB_NO_MAC_HEADER);
    kfree_skb(skb);
}

TEST_F(Taps, a_tag_without_its_mark_is_none) {
    tarn_post_info info{.rx_port = port1(), .code = 8, .tag = 0x0FFFF};
    for (const char *name : {"sflow", "flowd"}) {
        sk_buff *skb = userlevel::frame_make(PLAIN);
        skb = redirect(name).post(skb, &info);
        kfree_skb(skb);
    }
    EXPECT_THAT(samples, ElementsAre(sflow_message(PLAIN, 0)));
    EXPECT_THAT(flows, ElementsAre(flowd_message(PLAIN)));
}

TEST_F(Taps, room_is_made_where_it_is_short) {
    for (u32 headroom : {0u, 3u, 4u, 23u, 24u, 27u, 28u, 31u, 32u, 100u}) {
        samples.clear();
        flows.clear();
        receive_with(headroom, TAGGED, sampled(9));
        receive_with(headroom, PLAIN, sampled(9));
        receive_with(headroom, TAGGED, tracked());
        receive_with(headroom, PLAIN, tracked());
        EXPECT_THAT(samples, ElementsAre(sflow_message(TAGGED, 1), sflow_message(PLAIN, 1)));
        EXPECT_THAT(flows, ElementsAre(flowd_message(TAGGED), flowd_message(PLAIN))) << headroom;
    }
}

TEST_F(Taps, narrow_headroom_grows_by_64) {
    tarn_post_info info{.rx_port = port1(), .code = 8, .tag = 0x10005};
    sk_buff *skb = userlevel::frame_make(PLAIN, 3);
    sk_buff *posted = redirect("sflow").post(skb, &info);
    EXPECT_EQ(posted, skb); // 3 + 64 are enough for tag and message
    EXPECT_EQ(skb_headroom(posted), 3u + 64 - 4 - 28);
    kfree_skb(posted);
}

TEST_F(Taps, headroom_for_a_tag_is_enough_for_one) {
    sk_buff *skb = userlevel::frame_make(PLAIN, 4);
    EXPECT_EQ(tap_restore_tag(skb, 0x10005), 0);
    EXPECT_EQ(skb_headroom(skb), 0u);
    EXPECT_EQ(tap_make_room(skb, 0), skb);
    kfree_skb(skb);
}

TEST_F(Taps, shared_bytes_are_copied_with_the_headroom_they_have) {
    tarn_post_info info{.rx_port = port1(), .code = 8, .tag = 0x10005};
    sk_buff *skb = userlevel::frame_make(PLAIN, 40);
    sk_buff *held = skb_clone(skb, GFP_ATOMIC);
    sk_buff *posted = redirect("sflow").post(skb, &info);
    EXPECT_EQ(posted, skb);
    EXPECT_EQ(skb_headroom(posted), 40u - 4 - 28);
    kfree_skb(posted);
    kfree_skb(held);
}

TEST_F(Taps, a_sampled_frame_comes_back_with_its_message_before_it) {
    tarn_post_info info{.rx_port = port1(), .code = 8, .tag = 1};
    sk_buff *posted = redirect("sflow").post(userlevel::frame_make(PLAIN), &info);
    EXPECT_EQ(Bytes(skb_data(posted), skb_data(posted) + skb_len(posted)), sflow_message(PLAIN, 0));
    kfree_skb(posted);
}

TEST_F(Taps, a_tracked_frame_comes_back_as_it_was) {
    tarn_post_info info{.rx_port = port1(), .tag = 0x10005};
    sk_buff *skb = userlevel::frame_make(PLAIN);
    EXPECT_EQ(redirect("flowd").post(skb, &info), skb);
    EXPECT_EQ(Bytes(skb_data(skb), skb_data(skb) + skb_len(skb)), PLAIN);
    kfree_skb(skb);
}

TEST_F(Taps, bytes_shared_with_a_clone_are_left_alone) {
    for (const Arrival &arrival : {sampled(8), tracked()}) {
        sk_buff *skb = userlevel::frame_make(TAGGED);
        sk_buff *held = skb_clone(skb, GFP_ATOMIC);
        receive_skb(skb, arrival);
        EXPECT_EQ(Bytes(skb_data(held), skb_data(held) + skb_len(held)), TAGGED);
        kfree_skb(held);
    }
    EXPECT_THAT(samples, SizeIs(1));
    EXPECT_THAT(flows, SizeIs(1));
}

// Wherever memory fails, the frame ends once and nothing is left.
TEST_F(Taps, survive_every_failed_allocation) {
    for (const Arrival &arrival : {sampled(8), tracked()})
        for (u32 headroom : {0u, 5u, 64u})
            for (u64 n = 1; n <= 6; n++) {
                sk_buff *skb = userlevel::frame_make(TAGGED, headroom);
                userlevel::fail_allocation(n);
                EXPECT_EQ(receive_skb(skb, arrival), 0u);
                userlevel::fail_allocation(0);
                expect_nothing_leaked();
                log();
            }
    EXPECT_EQ(redirect("sflow").stop_reasons[3], 18u);
    EXPECT_EQ(redirect("flowd").stop_reasons[2], 18u);
}

TEST_F(Taps, a_frame_of_no_length_is_sampled_all_the_same) {
    receive(Bytes(7, 2), sampled(8));
    EXPECT_THAT(samples, ElementsAre(sflow_message(Bytes(7, 2), 0)));
}

TEST_F(Flowd, starts_disabled) {
    EXPECT_EQ(redirect("flowd").enabled, 1);
    enable_redirect_by_name("flowd", 0);
    receive(PLAIN, tracked());
    EXPECT_EQ(redirect("flowd").inspects, 0u);
}

TEST_F(Flowd, takes_what_is_marked_and_nothing_else) {
    for (u32 bit = 0; bit < 16; bit++) {
        tarn_pkt_info info = passing();
        info.flags = 1u << bit;
        EXPECT_EQ(decide("flowd", info), bit == 8 ? (Decision{STOP, 1}) : Decision{});
        info.rx_port = port1();
        EXPECT_EQ(decide("flowd", info),
                  bit == 8 ? (Decision{STOP | REDIRECT_POST_USERSPACE, 2}) : Decision{});
    }
}

TEST_F(Flowd, a_port_of_a_static_aggregator_speaks_for_itself) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    ASSERT_EQ(aggregator->if_flags & TARN_IF_F_AGG, TARN_IF_F_AGG_STATIC);
    ASSERT_EQ(tarn_ifmgr_logical_port(port1()), aggregator);
    receive(PLAIN, tracked());
    EXPECT_THAT(flows, ElementsAre(flowd_message(PLAIN, 5001)));
}

TEST_F(Flowd, a_dynamic_aggregator_speaks_for_its_ports) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    receive(PLAIN, tracked());
    aggregator->if_flags |= TARN_IF_F_AGG_DYNAMIC;
    receive(PLAIN, tracked());
    EXPECT_THAT(flows, ElementsAre(flowd_message(PLAIN, 5001), flowd_message(PLAIN, 4501)));
    receive(PLAIN, sampled(8)); // sFlow names the port
    EXPECT_THAT(samples, ElementsAre(sflow_message(PLAIN, 0, 5001)));
}

} // namespace
