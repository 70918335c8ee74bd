// The boundary with the driver, from the core's side.
#include "support/transmit_test.h"

#include "kernel/netdev.h"
#include "pkt/pkt_calls.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

namespace {

class Boundary : public TransmitTest {
protected:
    Boundary() { fake_driver::detach(); }

    u32 xmit() { return rxtx_hw_start_xmit(5001, 1, 0, 0, frame(), 0, 0, 1); }
};

TEST_F(Boundary, without_a_driver_every_call_has_an_answer) {
    net_device *device = vlan1()->netdev;
    EXPECT_EQ(rxtx_hw_sdma_counters(1, 2, 3), 0u);
    EXPECT_EQ(tarn_pkt_sdma_counters_get(1, 2, 3), 0u);
    EXPECT_EQ(rxtx_hw_auth_set(device, 1), 0u);
    EXPECT_EQ(rxtx_hw_unknown_multicast_flood_set(1), 0u);
    EXPECT_EQ(rxtx_hw_cache_index(1, 2, 3), -1);
    sk_buff *skb = frame();
    EXPECT_EQ(rxtx_hw_flood_except(5001, 1, FLOOD_NO_EXCEPTION, 0, skb, 0, 0, 0, 0, 0),
              -EOPNOTSUPP);
    EXPECT_EQ(bytes_of(skb), plain()) << "it stays with the caller";
    kfree_skb(skb);
}

TEST_F(Boundary, without_a_driver_frames_vanish_and_the_log_says_so_once) {
    dropped();
    EXPECT_EQ(xmit(), 0u);
    EXPECT_EQ(xmit(), 0u);
    EXPECT_EQ(dropped(), 2u);
    EXPECT_THAT(log(), ElementsAre("3 No platform start xmit function\n"));
}

TEST_F(Boundary, a_driver_that_stops_sending_is_not_reported_again) {
    EXPECT_EQ(xmit(), 0u);
    log();
    fake_driver::attach();
    EXPECT_EQ(xmit(), 0u);
    EXPECT_THAT(driver().sent, SizeIs(1));
    rxtx_hw_callbacks silent = fake_driver::callbacks();
    silent.start_xmit = nullptr;
    rxtx_hw_register(silent);
    dropped();
    EXPECT_EQ(xmit(), 0u);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Boundary, a_driver_that_never_could_send_is_reported_when_a_frame_comes) {
    rxtx_hw_callbacks silent = fake_driver::callbacks();
    silent.start_xmit = nullptr;
    rxtx_hw_register(silent);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(xmit(), 0u);
    EXPECT_THAT(log(), SizeIs(1));
}

TEST_F(Boundary, a_transmit_hands_all_over_and_the_result_back) {
    fake_driver::attach();
    EXPECT_EQ(rxtx_hw_start_xmit(11, 12, 13, 14, frame(), 15, 16, 17), 0u);
    ASSERT_THAT(driver().sent, SizeIs(1));
    const auto &sent = driver().sent[0];
    EXPECT_EQ(sent.ifindex, 11u);
    EXPECT_EQ(sent.vid, 12u);
    EXPECT_EQ(sent.tagged, 13u);
    EXPECT_EQ(sent.tx_option, 14u);
    EXPECT_EQ(sent.cos, 15u);
    EXPECT_EQ(sent.queue, 16u);
    EXPECT_EQ(sent.tx_enable, 17u);
    driver().xmit_result = 0xFFFFFFFF;
    sk_buff *skb = frame();
    EXPECT_EQ(rxtx_hw_start_xmit(11, 12, 13, 14, skb, 15, 16, 17), 0xFFFFFFFFu);
    kfree_skb(skb);
}

TEST_F(Boundary, a_flood_hands_all_over_and_the_result_back) {
    fake_driver::attach();
    EXPECT_EQ(rxtx_hw_flood_except(11, 12, 13, 14, frame(), 15, 16, 17, 18, 19), 0);
    ASSERT_THAT(driver().flooded, SizeIs(1));
    const auto &flood = driver().flooded[0];
    EXPECT_EQ(flood.ifindex, 11u);
    EXPECT_EQ(flood.vid, 12u);
    EXPECT_EQ(flood.except0, 13u);
    EXPECT_EQ(flood.except1, 14u);
    EXPECT_EQ(flood.cos, 15u);
    EXPECT_EQ(flood.queue, 16u);
    EXPECT_EQ(flood.mask, 17u);
    EXPECT_EQ(flood.reserved, 18u);
    EXPECT_EQ(flood.tagged, 19u);
    driver().flood_result = -EINVAL;
    sk_buff *skb = frame();
    EXPECT_EQ(rxtx_hw_flood_except(11, 12, 13, 14, skb, 15, 16, 17, 18, 19), -EINVAL);
    kfree_skb(skb);
}

TEST_F(Boundary, authentication_mode_is_told_for_a_device) {
    fake_driver::attach();
    driver().auth_result = 5;
    EXPECT_EQ(rxtx_hw_auth_set(vlan1()->netdev, 1), 5u);
    EXPECT_EQ(rxtx_hw_auth_set(vlan1()->netdev, 0), 5u);
    EXPECT_THAT(driver().auth, ElementsAre(Pair(vlan1()->netdev, 1u), Pair(vlan1()->netdev, 0u)));
}

TEST_F(Boundary, authentication_mode_without_a_device_is_not) {
    fake_driver::attach();
    driver().auth_result = 5;
    EXPECT_EQ(rxtx_hw_auth_set(nullptr, 1), 0u);
    EXPECT_THAT(driver().auth, IsEmpty());
}

TEST_F(Boundary, counters_are_the_drivers_business) {
    fake_driver::attach();
    driver().counters_result = 9;
    EXPECT_EQ(rxtx_hw_sdma_counters(1, 2, 3), 9u);
    EXPECT_EQ(tarn_pkt_sdma_counters_get(4, 5, 6), 9u);
    EXPECT_THAT(driver().counters,
                ElementsAre(fake_driver::Three{1, 2, 3}, fake_driver::Three{4, 5, 6}));
}

TEST_F(Boundary, a_cache_index_is_the_drivers_business) {
    fake_driver::attach();
    driver().cache_result = 8;
    EXPECT_EQ(rxtx_hw_cache_index(1, 2, 3), 8);
    EXPECT_THAT(driver().cache, ElementsAre(fake_driver::Three{1, 2, 3}));
}

TEST_F(Boundary, the_flood_of_unknown_multicast_is_remembered_and_told) {
    EXPECT_EQ(tarn_pkt_unknown_multicast_flood_enabled(), 1u) << "at first";
    tarn_pkt_unknown_multicast_flood_set(0);
    EXPECT_EQ(tarn_pkt_unknown_multicast_flood_enabled(), 0u) << "without a driver, too";
    fake_driver::attach();
    driver().unknown_multicast_result = 7;
    tarn_pkt_unknown_multicast_flood_set(2);
    EXPECT_EQ(tarn_pkt_unknown_multicast_flood_enabled(), 2u);
    EXPECT_EQ(rxtx_hw_unknown_multicast_flood_set(0), 7u);
    EXPECT_THAT(driver().unknown_multicast, ElementsAre(2, 0));
}

TEST_F(Boundary, a_registration_replaces_all_six_callbacks) {
    fake_driver::attach();
    rxtx_hw_register({});
    EXPECT_EQ(rxtx_hw_cache_index(1, 2, 3), -1);
    EXPECT_EQ(rxtx_hw_sdma_counters(1, 2, 3), 0u);
    EXPECT_EQ(rxtx_hw_auth_set(vlan1()->netdev, 1), 0u);
    EXPECT_EQ(rxtx_hw_unknown_multicast_flood_set(1), 0u);
    sk_buff *skb = frame();
    EXPECT_EQ(rxtx_hw_flood_except(0, 1, 0, 0, skb, 0, 0, 0, 0, 0), -EOPNOTSUPP);
    kfree_skb(skb);
    EXPECT_THAT(driver().cache, IsEmpty());
    EXPECT_THAT(driver().counters, IsEmpty());
    EXPECT_THAT(driver().auth, IsEmpty());
    EXPECT_THAT(driver().unknown_multicast, IsEmpty());
    EXPECT_THAT(driver().flooded, IsEmpty());
}

TEST_F(Boundary, each_callback_may_be_missing_alone) {
    for (u32 missing = 0; missing < 6; missing++) {
        rxtx_hw_callbacks some = fake_driver::callbacks();
        switch (missing) {
        case 0:
            some.sdma_counters = nullptr;
            break;
        case 1:
            some.auth_set = nullptr;
            break;
        case 2:
            some.start_xmit = nullptr;
            break;
        case 3:
            some.flood_except = nullptr;
            break;
        case 4:
            some.unknown_multicast_flood_set = nullptr;
            break;
        case 5:
            some.cache_index = nullptr;
            break;
        }
        rxtx_hw_register(some);
        driver() = {};
        driver().counters_result = driver().auth_result = driver().unknown_multicast_result = 3;
        driver().cache_result = 3;
        EXPECT_EQ(rxtx_hw_sdma_counters(0, 0, 0), missing == 0 ? 0u : 3u);
        EXPECT_EQ(rxtx_hw_auth_set(vlan1()->netdev, 1), missing == 1 ? 0u : 3u);
        EXPECT_EQ(xmit(), 0u);
        EXPECT_THAT(driver().sent, SizeIs(missing == 2 ? 0 : 1));
        sk_buff *skb = frame();
        i32 flooded = rxtx_hw_flood_except(0, 1, 0, 0, skb, 0, 0, 0, 0, 0);
        EXPECT_EQ(flooded, missing == 3 ? -EOPNOTSUPP : 0);
        if (flooded != 0)
            kfree_skb(skb);
        EXPECT_EQ(rxtx_hw_unknown_multicast_flood_set(1), missing == 4 ? 0u : 3u);
        EXPECT_EQ(rxtx_hw_cache_index(0, 0, 0), missing == 5 ? -1 : 3);
    }
    EXPECT_THAT(log(), SizeIs(1));
}

TEST_F(Boundary, frames_may_arrive_before_a_driver_is_registered) {
    EXPECT_EQ(receive(Frame().padded()), 0u);
}

TEST_F(Boundary, a_management_queue_told_before_there_is_a_management_vlan_is_lost) {
    EXPECT_EQ(tarn_stacking_mgmt_queue(5), 0u);
    u32 vid = 4711;
    EXPECT_EQ(tarn_stack_mgmt_vlan_get_vid(&vid), -1);
    EXPECT_EQ(vid, 4711u);
}

} // namespace
