// The frame log.
#include "support/switch_test.h"

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

namespace {

class DebugLog : public SwitchTest {
protected:
    DebugLog() { userlevel::clock_stop(10000); }

    std::string dump(std::size_t length) {
        Bytes bytes(length);
        for (std::size_t i = 0; i < length; i++)
            bytes[i] = static_cast<u8>(i);
        sk_buff *skb = userlevel::frame_make(bytes);
        std::array<char, TARN_LOG_DUMP_SIZE> text{};
        text.fill('?');
        text[0] = '\0';
        EXPECT_EQ(tarn_log_skb_to_str(skb, text.data()), text.data());
        kfree_skb(skb);
        return text.data();
    }

    void send(u32 vid = 1, bool except = false) {
        sk_buff *skb = userlevel::frame_make(Bytes{1, 2, 3, 4});
        _tarn_pkt_debug_tx("port7", "vlan1", vid, skb, 5, except);
        kfree_skb(skb);
    }
};

TEST_F(DebugLog, dumps_in_groups_of_four) {
    EXPECT_EQ(dump(4), "00010203 ");
    EXPECT_EQ(dump(8), "00010203 04050607 ");
}

TEST_F(DebugLog, breaks_the_line_after_every_fourth_group_that_is_followed) {
    EXPECT_EQ(dump(16), "00010203 04050607 08090a0b 0c0d0e0f ");
    EXPECT_EQ(dump(20), "00010203 04050607 08090a0b 0c0d0e0f \n\t10111213 ");
}

TEST_F(DebugLog, an_empty_frame_leaves_the_buffer_as_it_is) {
    EXPECT_EQ(dump(0), "");
}

TEST_F(DebugLog, a_length_that_is_no_multiple_of_four_prints_surplus_bytes_as_zero) {
    EXPECT_EQ(dump(5), "00010203 04000000 00"); // nine bytes
    EXPECT_EQ(dump(6), "00010203 04050000 0000");
    EXPECT_EQ(dump(7), "00010203 04050600 000000");
    EXPECT_EQ(dump(1), "00000000 00");
}

TEST_F(DebugLog, dumps_64_bytes_at_most) {
    std::string whole = dump(64);
    EXPECT_THAT(whole, EndsWith("\n\t30313233 34353637 38393a3b 3c3d3e3f "));
    EXPECT_EQ(dump(65), whole + "\n\t(...)");
    EXPECT_EQ(dump(1500), whole + "\n\t(...)");
}

TEST_F(DebugLog, the_longest_dump_fits_its_buffer) {
    for (std::size_t length = 56; length <= 70; length++)
        EXPECT_LT(dump(length).size(), TARN_LOG_DUMP_SIZE);
    EXPECT_THAT(dump(63), EndsWith("3c3d3e00 000000"));
}

TEST_F(DebugLog, a_received_frame_is_one_line) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    Arrival arrival;
    arrival.meta.queue = 3;
    arrival.meta.cpu_code = 44;
    receive(Frame().tag(5).bytes({1, 2}), arrival);
    EXPECT_THAT(log(), ElementsAre("6 RxPkt(00001) Q:3 vid:1 port1 cpuC:44 len:20\n"
                                   "\t02000000 00010200 00000099 81000005 \n\t88b50102 \n"));
}

TEST_F(DebugLog, a_replicated_frame_says_so) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    Arrival arrival;
    arrival.meta.replicated = 1;
    receive(Frame(), arrival);
    EXPECT_THAT(log(), ElementsAre(HasSubstr(" len:14 (replicated)\n\t")));
}

TEST_F(DebugLog, a_frame_without_the_debug_mark_is_not_logged) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    Arrival arrival;
    arrival.meta.debug = 0;
    auto before = userlevel::allocations_made();
    sk_buff *skb = userlevel::frame_make(Frame().build());
    receive_skb(skb, arrival);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(userlevel::allocations_made(), before + 2); // the frame itself
}

TEST_F(DebugLog, a_sent_frame_is_one_line) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    send();
    send(1, true);
    EXPECT_THAT(log(), ElementsAre("6 TxPkt(00001) Q:5 vlan1 port7 len:4\n\t01020304 \n",
                                   "6 TxPkt(00002) Q:5 vlan1 except port7 len:4\n\t01020304 \n"));
}

TEST_F(DebugLog, records_name_themselves) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    vlan1()->vid = 1;
    sk_buff *skb = userlevel::frame_make(Bytes{1, 2, 3, 4});
    tarn_pkt_debug_tx(port1(), vlan1(), skb, 1, false);
    tarn_pkt_debug_tx(nullptr, nullptr, skb, 2, false);
    EXPECT_THAT(log(), ElementsAre("6 TxPkt(00001) Q:1 vlan1 port1 len:4\n\t01020304 \n",
                                   "6 TxPkt(00002) Q:2 vid:0 portUnknown len:4\n\t01020304 \n"));
    // The filter sees the VID of a VLAN interface, and 0 of any other.
    tarn_pkt_debug_vlan = 1;
    tarn_pkt_debug_tx(port1(), vlan1(), skb, 1, false);
    EXPECT_THAT(log(), SizeIs(1));
    vlan1()->type = TARN_IF_TYPE_SWITCHPORT;
    tarn_pkt_debug_tx(port1(), vlan1(), skb, 1, false);
    EXPECT_THAT(log(), IsEmpty());
    vlan1()->type = TARN_IF_TYPE_VLAN;
    kfree_skb(skb);
}

TEST_F(DebugLog, each_direction_has_its_bit_and_numbers_interleave) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    send();
    EXPECT_THAT(log(), IsEmpty());
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    receive(Frame());
    EXPECT_THAT(log(), IsEmpty());
    tarn_pkt_debug = TARN_PKT_DEBUG_RX | TARN_PKT_DEBUG_TX;
    receive(Frame());
    send();
    receive(Frame());
    EXPECT_THAT(log(), ElementsAre(HasSubstr("RxPkt(00001)"), HasSubstr("TxPkt(00002)"),
                                   HasSubstr("RxPkt(00003)")));
}

TEST_F(DebugLog, other_bits_log_nothing_and_cost_the_text) {
    tarn_pkt_debug = 4;
    sk_buff *skb = userlevel::frame_make(Frame().build());
    auto before = userlevel::allocations_made();
    receive_skb(skb);
    EXPECT_EQ(userlevel::allocations_made(), before + 1);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(DebugLog, the_number_wraps_at_65536) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    tarn_pkt_debug_cnt = 65534;
    send();
    send();
    EXPECT_THAT(log(), ElementsAre(HasSubstr("(65535)"), HasSubstr("(00000)")));
}

TEST_F(DebugLog, the_filter_passes_one_vlan) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX | TARN_PKT_DEBUG_TX;
    tarn_pkt_debug_vlan = 7;
    receive(Frame(), {.vid = 7});
    receive(Frame(), {.vid = 8});
    send(7);
    send(0);
    EXPECT_THAT(log(), ElementsAre(HasSubstr("RxPkt(00001)"), HasSubstr("TxPkt(00002)")));
}

TEST_F(DebugLog, a_filter_of_zero_passes_every_vid) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX | TARN_PKT_DEBUG_TX;
    receive(Frame(), {.vid = 0});
    send(0);
    EXPECT_THAT(log(), SizeIs(2));
}

TEST_F(DebugLog, the_received_vid_is_the_drivers_and_not_the_tags) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    tarn_pkt_debug_vlan = 9;
    receive(Frame().tag(5), {.vid = 9});
    EXPECT_THAT(log(), ElementsAre(HasSubstr("vid:9 ")));
}

TEST_F(DebugLog, a_flood_of_frames_prints_a_hundred_lines_in_the_interval) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    for (int i = 0; i < 150; i++)
        receive(Frame());
    EXPECT_THAT(log(), SizeIs(100));

    userlevel::clock_advance(500);
    receive(Frame());
    EXPECT_THAT(log(), IsEmpty()); // the interval has not passed yet

    userlevel::clock_advance(1);
    receive(Frame());
    EXPECT_THAT(log(), ElementsAre("4 tarn_pkt_debug_rx: 51 callbacks suppressed\n",
                                   "6 Packet debug rate limit skipped 51 messages\n",
                                   AllOf(StartsWith("6 RxPkt(00101)"), Not(HasSubstr("skipped")))));
    receive(Frame());
    EXPECT_THAT(log(), SizeIs(1));
}

TEST_F(DebugLog, both_directions_share_the_limit) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX | TARN_PKT_DEBUG_TX;
    ratelimit_set_burst(&tarn_pkt_debug_ratelimit, 2);
    receive(Frame());
    send();
    send();
    EXPECT_THAT(log(), SizeIs(2));
    userlevel::clock_advance(501);
    send();
    EXPECT_THAT(log(), ElementsAre("4 _tarn_pkt_debug_tx: 1 callbacks suppressed\n",
                                   "6 Packet debug rate limit skipped 1 messages\n",
                                   HasSubstr("TxPkt(00003)")));
}

TEST_F(DebugLog, the_limiter_starts_with_its_documented_numbers) {
    EXPECT_EQ(ratelimit_interval(&tarn_pkt_debug_ratelimit), 500);
    EXPECT_EQ(ratelimit_burst(&tarn_pkt_debug_ratelimit), 100);
}

TEST_F(DebugLog, without_memory_for_the_text_the_line_is_skipped) {
    tarn_pkt_debug = TARN_PKT_DEBUG_RX | TARN_PKT_DEBUG_TX;
    sk_buff *skb = userlevel::frame_make(Frame().build());
    userlevel::fail_allocation(1);
    receive_skb(skb);
    skb = userlevel::frame_make(Frame().build());
    userlevel::fail_allocation(1);
    tarn_pkt_debug_tx(port1(), vlan1(), skb, 0, false);
    kfree_skb(skb);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(DebugLog, a_sender_that_must_not_sleep_does_not) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    local_bh_disable();
    sk_buff *skb = userlevel::frame_make(Bytes(20));
    auto before = userlevel::sleeping_allocations_in_atomic();
    tarn_pkt_debug_tx(port1(), vlan1(), skb, 0, false);
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), before);
    kfree_skb(skb);
    local_bh_enable();
    EXPECT_THAT(log(), SizeIs(1));
}

TEST_F(DebugLog, the_record_of_the_last_post_starts_clear) {
    EXPECT_EQ(tarn_packet_post_debug_enable, 0u);
    EXPECT_EQ(tarn_ppdi_last.vid_valid, 0);
    EXPECT_EQ(tarn_ppdi_last.mld_valid, 0);
    EXPECT_EQ(tarn_ppdi_last.vid, 0u);
    EXPECT_EQ(tarn_ppdi_last.mld_pkt, 0u);
}

} // namespace
