// Transmit, the bottom layer: VLAN, spanning tree, tagging, the chip or a device.
#include "support/transmit_test.h"

#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/netdev.h"
#include "kernel/preempt.h"
#include "kernel/time.h"
#include "netdev.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

class PortTransmit : public TransmitTest {
protected:
    PortTransmit() {
        failures.clear();
        userlevel::clock_stop(4711);
    }

    // The result; a frame that comes back is freed.
    u32 send(tarn_if *port, tarn_if *vlan_if, const Bytes &bytes = plain()) {
        sk_buff *skb = frame(bytes);
        u32 result = _tarn_port_start_xmit(port, vlan_if, skb, 3, 5, 1, false);
        if (result != 0)
            kfree_skb(skb);
        return result;
    }

    // What the driver was given; fails unless the frame was sent.
    fake_driver::Sent sent(tarn_if *port, tarn_if *vlan_if, const Bytes &bytes = plain()) {
        driver().sent.clear();
        EXPECT_EQ(send(port, vlan_if, bytes), 0u);
        EXPECT_THAT(driver().sent, SizeIs(1));
        return driver().sent.empty() ? fake_driver::Sent{} : driver().sent[0];
    }

    bool leaves(tarn_if *port, tarn_if *vlan_if) {
        driver().sent.clear();
        dropped();
        EXPECT_EQ(send(port, vlan_if), 0u);
        EXPECT_EQ(driver().sent.size() + dropped(), 1u);
        return !driver().sent.empty();
    }

    static void tag_on(tarn_if *port, u32 vid) {
        port->vlan_tagged_bmp[vid >> 5] |= 1u << (vid & 31);
    }
};

// --- VLAN ---------------------------------------------------------------------------------------

TEST_F(PortTransmit, the_vid_is_that_of_the_vlan_whatever_the_tag_says) {
    EXPECT_EQ(sent(port1(), vlan1(), Frame().tag(77).padded()).vid, 1u);
    EXPECT_EQ(sent(nullptr, vlan1(), Frame().tag(77).padded()).vid, 1u);
}

TEST_F(PortTransmit, without_a_vlan_the_vid_is_that_of_the_tag) {
    EXPECT_EQ(sent(port1(), nullptr, Frame().tag(0xF04D).padded()).vid, 77u);
    EXPECT_EQ(sent(port1(), nullptr, Frame().tag(0xFFFF).padded()).vid, 0xFFFu);
}

TEST_F(PortTransmit, without_vlan_and_tag_the_vid_is_0) {
    EXPECT_EQ(sent(port1(), nullptr).vid, 0u);
    EXPECT_EQ(sent(port1(), nullptr, Frame().tag(77, 0x88A8).padded()).vid, 0u);
}

TEST_F(PortTransmit, of_a_tag_that_the_frame_ends_in_the_missing_bytes_are_0) {
    EXPECT_EQ(sent(port1(), nullptr, Frame().tag(0x0A4D).cut(15)).vid, 0xA00u);
    EXPECT_EQ(sent(port1(), nullptr, Frame().tag(0x0A4D).cut(14)).vid, 0u);
    EXPECT_EQ(sent(port1(), nullptr, Frame().tag(0x0A4D).cut(13)).vid, 0u);
    EXPECT_EQ(sent(port1(), nullptr, Bytes{}).vid, 0u);
}

TEST_F(PortTransmit, every_argument_reaches_the_driver) {
    sk_buff *skb = frame();
    EXPECT_EQ(_tarn_port_start_xmit(port1(), vlan1(), skb, 7, 0x1FE, 0, true), 0u);
    ASSERT_THAT(driver().sent, SizeIs(1));
    const auto &it = driver().sent[0];
    EXPECT_EQ(it.ifindex, 5001u);
    EXPECT_EQ(it.tx_option, 1u);
    EXPECT_EQ(it.cos, 7u);
    EXPECT_EQ(it.queue, 0xFEu) << "cut to 8 bits";
    EXPECT_EQ(it.tx_enable, 0u);
    EXPECT_EQ(it.bytes, plain());
}

TEST_F(PortTransmit, the_discard_switch_is_asked_further_up) {
    tarn_tx_discard_all_set(1);
    EXPECT_TRUE(leaves(port1(), vlan1()));
}

// --- spanning tree ------------------------------------------------------------------------------

TEST_F(PortTransmit, spanning_tree_stops_an_uncontrolled_port_that_does_not_forward) {
    for (u32 state = 0; state <= 6; state++) {
        for (u32 auth = 0; auth <= 6; auth++) {
            port1()->stp_state[0] = state;
            port1()->auth_state = auth;
            bool stopped = state != 3 && auth == 3;
            EXPECT_EQ(leaves(port1(), vlan1()), !stopped) << "state " << state << " auth " << auth;
            EXPECT_TRUE(leaves(port1(), nullptr)) << "without a VLAN nobody asks";
        }
    }
    EXPECT_TRUE(leaves(nullptr, vlan1()));
}

TEST_F(PortTransmit, a_frame_stopped_by_spanning_tree_is_no_failure) {
    vlan1()->tx_failure_cb = failed;
    port1()->stp_state[0] = TARN_STP_BLOCKING;
    EXPECT_FALSE(leaves(port1(), vlan1()));
    EXPECT_THAT(failures, IsEmpty());
    EXPECT_EQ(vlan1()->last_tx_failure, 0u);
    vlan1()->tx_failure_cb = nullptr;
}

TEST_F(PortTransmit, the_vlan_chooses_the_spanning_tree_instance) {
    port1()->stp_state[0] = TARN_STP_BLOCKING;
    port1()->stp_state[63] = TARN_STP_FORWARDING;
    EXPECT_FALSE(leaves(port1(), vlan1()));
    vlan1()->stp_instance = 63;
    EXPECT_TRUE(leaves(port1(), vlan1()));
}

TEST_F(PortTransmit, an_instance_that_does_not_exist_does_not_forward) {
    for (u32 instance : {64u, 255u}) {
        vlan1()->stp_instance = static_cast<u8>(instance);
        EXPECT_FALSE(leaves(port1(), vlan1()));
    }
}

TEST_F(PortTransmit, of_a_member_the_state_of_its_aggregator_counts) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    aggregator->stp_state[0] = TARN_STP_BLOCKING;
    EXPECT_FALSE(leaves(port1(), vlan1()));
    aggregator->stp_state[0] = TARN_STP_FORWARDING;
    port1()->stp_state[0] = TARN_STP_BLOCKING;
    EXPECT_TRUE(leaves(port1(), vlan1()));
    aggregator->stp_state[0] = TARN_STP_BLOCKING;
    aggregator->auth_state = 4;
    EXPECT_TRUE(leaves(port1(), vlan1())) << "and its authentication state, too";
}

TEST_F(PortTransmit, a_vlan_as_first_parent_leaves_the_port_to_itself) {
    ASSERT_NE(port1()->parents, nullptr);
    ASSERT_EQ(port1()->parents->ifp, vlan1());
    vlan1()->stp_state[0] = TARN_STP_BLOCKING;
    EXPECT_TRUE(leaves(port1(), vlan1()));
    port1()->stp_state[0] = TARN_STP_BLOCKING;
    vlan1()->stp_state[0] = TARN_STP_FORWARDING;
    EXPECT_FALSE(leaves(port1(), vlan1()));
}

TEST_F(PortTransmit, spanning_tree_of_an_ethernet_port_counts) {
    net_device *device = configure([] { return userlevel::netdev_create("eth7"); });
    tarn_if *ethernet = add_ethernet("eth7", 7);
    auto &recorded = userlevel::netdev_recorded(device);
    EXPECT_EQ(send(ethernet, vlan1()), 0u);
    EXPECT_THAT(recorded.sent, SizeIs(1)) << "it starts out forwarding";
    ethernet->stp_state[0] = TARN_STP_BLOCKING;
    EXPECT_EQ(send(ethernet, vlan1()), 0u);
    EXPECT_THAT(recorded.sent, SizeIs(1));
    ethernet->stp_state[0] = TARN_STP_FORWARDING;
}

TEST_F(PortTransmit, an_interface_that_is_no_port_has_no_spanning_tree) {
    tarn_if *vlan = add_vlan(20);
    vlan->stp_state[0] = TARN_STP_BLOCKING;
    vlan->auth_state = TARN_AUTH_UNCONTROLLED;
    auto it = sent(vlan, vlan1());
    EXPECT_EQ(it.ifindex, 320u);
    EXPECT_EQ(it.tagged, 0u);
}

// --- tagging ------------------------------------------------------------------------------------

TEST_F(PortTransmit, a_frame_leaves_tagged_where_the_port_says_so) {
    EXPECT_EQ(sent(port1(), vlan1()).tagged, 0u);
    tag_on(port1(), 1);
    EXPECT_EQ(sent(port1(), vlan1()).tagged, 1u);
    EXPECT_EQ(sent(nullptr, vlan1()).tagged, 0u) << "without a port: not";
}

TEST_F(PortTransmit, a_tag_names_the_vlan_that_is_looked_up) {
    tag_on(port1(), 77);
    EXPECT_EQ(sent(port1(), nullptr, Frame().tag(0x604D).padded()).tagged, 1u);
    EXPECT_EQ(sent(port1(), nullptr, Frame().tag(78).padded()).tagged, 0u);
    EXPECT_EQ(sent(port1(), nullptr).tagged, 0u);
}

TEST_F(PortTransmit, a_vid_in_no_bitmap_is_untagged) {
    tarn_if far{};
    far.type = TARN_IF_TYPE_SWITCHPORT;
    std::fill(std::begin(port1()->vlan_tagged_bmp), std::end(port1()->vlan_tagged_bmp), ~0u);
    far.vid = 4095;
    EXPECT_EQ(sent(port1(), &far).tagged, 1u);
    far.vid = 4096;
    EXPECT_EQ(sent(port1(), &far).tagged, 0u);
    EXPECT_EQ(sent(port1(), &far).vid, 4096u);
}

TEST_F(PortTransmit, an_interface_that_is_no_switch_port_sends_untagged) {
    tarn_if *vlan = add_vlan(20);
    tag_on(vlan, 1);
    EXPECT_EQ(sent(vlan, vlan1()).tagged, 0u);
}

TEST_F(PortTransmit, under_openflow_a_frame_keeps_its_form) {
    port1()->openflow = 1;
    EXPECT_EQ(sent(port1(), vlan1(), Frame().tag(1).padded()).tagged, 1u);
    EXPECT_EQ(sent(port1(), vlan1()).tagged, 0u);
    tag_on(port1(), 1);
    EXPECT_EQ(sent(port1(), vlan1()).tagged, 0u) << "the VLAN does not count";
    EXPECT_EQ(sent(port1(), vlan1(), Frame().tag(1, 0x88A8).padded()).tagged, 0u);
    EXPECT_EQ(sent(port1(), vlan1(), Frame().tag(1).cut(12)).tagged, 0u);
}

// --- a plain device -----------------------------------------------------------------------------

class DeviceTransmit : public PortTransmit {
protected:
    DeviceTransmit() {
        device_ = configure([] { return userlevel::netdev_create("eth7"); });
        ethernet_ = add_ethernet("eth7", 7);
        vlan1()->tx_failure_cb = failed;
    }
    ~DeviceTransmit() override { vlan1()->tx_failure_cb = nullptr; }

    userlevel::netdev_record &recorded() { return userlevel::netdev_recorded(device_); }

    net_device *device_;
    tarn_if *ethernet_;
};

TEST_F(DeviceTransmit, a_frame_leaves_as_it_is) {
    recorded();
    EXPECT_EQ(send(ethernet_, vlan1(), Frame().tag(5).padded()), 0u);
    ASSERT_THAT(recorded().sent, SizeIs(1));
    EXPECT_EQ(recorded().sent[0].bytes, Bytes(Frame().tag(5).padded()));
    EXPECT_THAT(driver().sent, IsEmpty());
    EXPECT_THAT(failures, IsEmpty());
    EXPECT_EQ(vlan1()->last_tx_failure, 0u);
}

TEST_F(DeviceTransmit, without_a_device_the_frame_stays_with_the_caller_and_the_failure_is_told) {
    net_device *device = std::exchange(ethernet_->netdev, nullptr);
    sk_buff *skb = frame();
    EXPECT_EQ(_tarn_port_start_xmit(ethernet_, vlan1(), skb, 0, 9, 1, false),
              static_cast<u32>(-ENODEV));
    EXPECT_EQ(bytes_of(skb), plain());
    kfree_skb(skb);
    EXPECT_THAT(failures, ElementsAre(Failure{vlan1(), 9, -ENODEV}));
    EXPECT_EQ(vlan1()->last_tx_failure, 4711u);
    ethernet_->netdev = device;
}

// The queue of a device consumes what it is given even then; the caller's frame is another.
TEST_F(DeviceTransmit, a_refusal_leaves_the_frame_with_the_caller) {
    for (int result : {-ENODEV, 1, 2}) {
        failures.clear();
        recorded().queue_result = result;
        sk_buff *skb = frame();
        EXPECT_EQ(_tarn_port_start_xmit(ethernet_, vlan1(), skb, 0, 9, 1, false),
                  static_cast<u32>(result));
        EXPECT_EQ(bytes_of(skb), plain());
        kfree_skb(skb);
        EXPECT_THAT(failures, ElementsAre(Failure{vlan1(), 9, result}));
    }
    EXPECT_THAT(recorded().sent, SizeIs(3));
}

// Whoever frees a device waits for those who have bottom halves off.
TEST_F(DeviceTransmit, the_device_cannot_go_while_it_takes_the_frame) {
    static u32 depth = 0;
    static const userlevel::netdev_back back{.transmit = [](net_device *, sk_buff *skb) {
        depth = preempt_count();
        consume_skb(skb);
        return 0;
    }};
    userlevel::netdev_use_back(&back);
    device_->back = &depth;
    EXPECT_EQ(send(ethernet_, vlan1()), 0u);
    EXPECT_NE(depth, 0u);
    EXPECT_EQ(preempt_count(), 0u);
    device_->back = nullptr;
    userlevel::netdev_use_back(nullptr);
}

TEST_F(DeviceTransmit, without_memory_the_frame_stays_with_the_caller) {
    recorded();
    sk_buff *skb = frame();
    userlevel::fail_allocation(1);
    EXPECT_EQ(_tarn_port_start_xmit(ethernet_, vlan1(), skb, 0, 9, 1, false),
              static_cast<u32>(-ENOMEM));
    EXPECT_EQ(bytes_of(skb), plain());
    kfree_skb(skb);
    EXPECT_THAT(recorded().sent, IsEmpty());
    EXPECT_THAT(failures, ElementsAre(Failure{vlan1(), 9, -ENOMEM}));
}

// --- owners -------------------------------------------------------------------------------------

u32 destroyed = 0;

TEST_F(PortTransmit, the_frame_is_taken_from_its_socket_before_the_driver_sees_it) {
    int socket = 0;
    sk_buff *skb = frame();
    skb->sk = &socket;
    skb->destructor = [](sk_buff *) { destroyed++; };
    EXPECT_EQ(_tarn_port_start_xmit(port1(), vlan1(), skb, 0, 0, 1, false), 0u);
    EXPECT_EQ(destroyed, 1u);
    ASSERT_THAT(driver().sent, SizeIs(1));
    EXPECT_FALSE(driver().sent[0].owned);
}

TEST_F(PortTransmit, a_refused_frame_has_left_its_socket) {
    int socket = 0;
    driver().xmit_result = 1;
    sk_buff *skb = frame();
    skb->sk = &socket;
    skb->destructor = [](sk_buff *) { destroyed++; };
    EXPECT_EQ(_tarn_port_start_xmit(port1(), vlan1(), skb, 0, 0, 1, false), 1u);
    EXPECT_EQ(destroyed, 1u);
    EXPECT_EQ(skb->sk, nullptr);
    kfree_skb(skb);
    EXPECT_EQ(destroyed, 1u) << "once";
}

using PortTransmitDeathTest = PortTransmit;

TEST_F(PortTransmitDeathTest, a_frame_of_a_socket_that_cannot_be_told_stops_the_kernel) {
    int socket = 0;
    sk_buff *skb = frame();
    skb->sk = &socket;
    EXPECT_DEATH(_tarn_port_start_xmit(port1(), vlan1(), skb, 0, 0, 1, false), "kernel BUG");
    skb->sk = nullptr;
    kfree_skb(skb);
}

// --- failures -----------------------------------------------------------------------------------

TEST_F(PortTransmit, a_refusal_is_booked_on_the_vlan) {
    vlan1()->tx_failure_cb = failed;
    for (i32 result : {-ENODEV, -1, 1, 0x7FFFFFFF}) {
        failures.clear();
        userlevel::clock_advance(1);
        driver().xmit_result = static_cast<u32>(result);
        sk_buff *skb = frame();
        EXPECT_EQ(_tarn_port_start_xmit(port1(), vlan1(), skb, 0, 0x109, 1, false),
                  static_cast<u32>(result));
        EXPECT_EQ(bytes_of(skb), plain());
        kfree_skb(skb);
        EXPECT_THAT(failures, ElementsAre(Failure{vlan1(), 0x109, result})) << "the whole queue";
        EXPECT_EQ(vlan1()->last_tx_failure, get_jiffies());
    }
    EXPECT_EQ(vlan1()->last_tx_failure, 4715u);
    vlan1()->tx_failure_cb = nullptr;
}

TEST_F(PortTransmit, a_refusal_without_listener_is_booked_all_the_same) {
    driver().xmit_result = 1;
    EXPECT_EQ(send(port1(), vlan1()), 1u);
    EXPECT_EQ(vlan1()->last_tx_failure, 4711u);
    EXPECT_EQ(port1()->last_tx_failure, 0u);
}

TEST_F(PortTransmit, a_refusal_without_vlan_is_booked_nowhere) {
    driver().xmit_result = 1;
    port1()->tx_failure_cb = failed;
    EXPECT_EQ(send(port1(), nullptr), 1u);
    EXPECT_EQ(port1()->last_tx_failure, 0u);
    EXPECT_THAT(failures, IsEmpty());
    port1()->tx_failure_cb = nullptr;
}

TEST_F(PortTransmit, a_success_books_nothing) {
    vlan1()->tx_failure_cb = failed;
    EXPECT_EQ(send(port1(), vlan1()), 0u);
    EXPECT_EQ(vlan1()->last_tx_failure, 0u);
    EXPECT_THAT(failures, IsEmpty());
    vlan1()->tx_failure_cb = nullptr;
}

TEST_F(PortTransmit, without_a_driver_a_send_succeeds_and_books_nothing) {
    fake_driver::detach();
    vlan1()->tx_failure_cb = failed;
    dropped();
    EXPECT_EQ(send(port1(), vlan1()), 0u);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_THAT(failures, IsEmpty());
    EXPECT_THAT(log(), ElementsAre("3 No platform start xmit function\n"));
    vlan1()->tx_failure_cb = nullptr;
}

} // namespace
