// The low-memory detector.
#include "support/switch_test.h"

#include "kernel/vmstat.h"

namespace {

constexpr u32 PAGE = 4096;
constexpr long THRESHOLD_PAGES = 0x1400000 / PAGE;

class LowMem : public SwitchTest {
protected:
    void pages(long free_pages, long inactive = 0, long active = 0) {
        userlevel::zone_pages_set(NR_FREE_PAGES, free_pages);
        userlevel::zone_pages_set(NR_ZONE_INACTIVE_FILE, inactive);
        userlevel::zone_pages_set(NR_ZONE_ACTIVE_FILE, active);
    }
    // Frames of no length count without debiting the estimate.
    void frames(u32 count) {
        for (u32 i = 0; i < count; i++)
            tarn_pkt_low_mem(0);
    }
};

TEST_F(LowMem, the_first_frame_counts_the_pages) {
    pages(THRESHOLD_PAGES - 1);
    EXPECT_EQ(tarn_pkt_low_mem(60), 1);
}

TEST_F(LowMem, the_threshold_itself_is_enough) {
    pages(THRESHOLD_PAGES);
    EXPECT_EQ(tarn_pkt_low_mem(60), 0);
}

TEST_F(LowMem, file_pages_count_as_free) {
    pages(THRESHOLD_PAGES - 2, 1, 1);
    EXPECT_EQ(tarn_pkt_low_mem(60), 0);
    pages(THRESHOLD_PAGES - 2, 1, 0);
    EXPECT_EQ(tarn_pkt_low_mem(60), 1); // the estimate fell below: counted anew
}

// 64 debits of 64 bytes lead exactly to the threshold; with the tag's four bytes more, the 61st
// would pass it.
TEST_F(LowMem, a_frame_is_debited_without_its_tag) {
    pages(THRESHOLD_PAGES + 1);
    auto low = [&] { return classify(Frame().tag(1).padded(68)).low_mem; };
    EXPECT_EQ(low(), 0); // counts the pages
    pages(0);
    for (u32 i = 0; i < PAGE / 64; i++)
        ASSERT_EQ(low(), 0) << "frame " << i;
    EXPECT_EQ(low(), 1);
}

TEST_F(LowMem, other_pages_do_not) {
    pages(0);
    for (unsigned item : {1u, 2u, 5u})
        userlevel::zone_pages_set(item, 1 << 20);
    EXPECT_EQ(tarn_pkt_low_mem(60), 1);
    for (unsigned item : {1u, 2u, 5u})
        userlevel::zone_pages_set(item, 0);
}

TEST_F(LowMem, a_negative_counter_counts_as_zero) {
    pages(THRESHOLD_PAGES, -1000000, -1);
    EXPECT_EQ(tarn_pkt_low_mem(60), 0);
}

TEST_F(LowMem, more_than_32_bits_of_memory_is_plenty) {
    pages(1L << 20); // 4 GiB exactly: 0 in 32 bits
    EXPECT_EQ(tarn_pkt_low_mem(60), 0);
}

TEST_F(LowMem, while_memory_is_short_every_frame_counts_anew) {
    pages(10);
    EXPECT_EQ(tarn_pkt_low_mem(60), 1);
    EXPECT_EQ(tarn_pkt_low_mem(60), 1);
    pages(THRESHOLD_PAGES);
    EXPECT_EQ(tarn_pkt_low_mem(60), 0);
}

TEST_F(LowMem, while_there_is_plenty_pages_are_counted_every_1024_frames) {
    pages(1 << 18);
    frames(1024); // the first counts; 1023 more do not
    pages(10);
    // This is the 1025th.
    EXPECT_EQ(tarn_pkt_low_mem(0), 1);
}

TEST_F(LowMem, a_shortage_is_not_seen_before_the_recount) {
    pages(1 << 18);
    frames(1);
    pages(10);
    for (int i = 0; i < 1023; i++)
        ASSERT_EQ(tarn_pkt_low_mem(0), 0) << i;
    EXPECT_EQ(tarn_pkt_low_mem(0), 1);
}

TEST_F(LowMem, the_recount_starts_the_count_anew) {
    pages(1 << 18);
    frames(1025);
    pages(10);
    for (int i = 0; i < 1024; i++)
        ASSERT_EQ(tarn_pkt_low_mem(0), 0) << i;
    EXPECT_EQ(tarn_pkt_low_mem(0), 1);
}

// The estimate runs out with the very frame before the count is full: the count goes on.
TEST_F(LowMem, a_recount_at_the_1024th_frame_does_not_start_the_count_anew) {
    pages(THRESHOLD_PAGES + 1);
    frames(1023);
    pages(1 << 18);
    EXPECT_EQ(tarn_pkt_low_mem(PAGE + 1), 0); // below the threshold: counted anew
    pages(10);
    EXPECT_EQ(tarn_pkt_low_mem(0), 1); // the 1025th
}

TEST_F(LowMem, frames_debit_the_estimate) {
    pages(THRESHOLD_PAGES + 1);
    EXPECT_EQ(tarn_pkt_low_mem(60), 0); // counts: 4096 bytes above the threshold
    pages(10);
    EXPECT_EQ(tarn_pkt_low_mem(4096), 0); // at the threshold
    EXPECT_EQ(tarn_pkt_low_mem(1), 1);    // below it: counted anew
}

TEST_F(LowMem, a_frame_that_is_not_below_the_estimate_does_not_debit_it) {
    pages(THRESHOLD_PAGES);
    tarn_pkt_low_mem(0);
    pages(10);
    EXPECT_EQ(tarn_pkt_low_mem(0x1400000), 0);
    EXPECT_EQ(tarn_pkt_low_mem(1), 1);
}

TEST_F(LowMem, a_debug_control_reads_as_short_with_plenty_of_memory) {
    tarn_pkt_low_mem_normal_return = 1;
    EXPECT_EQ(tarn_pkt_low_mem(60), 1); // the path of the recount
    EXPECT_EQ(tarn_pkt_low_mem(60), 1); // and the other
}

TEST_F(LowMem, frames_carry_the_answer) {
    EXPECT_EQ(classify(Frame()).low_mem, 0);
    tarn_pkt_low_mem_normal_return = 7;
    EXPECT_EQ(classify(Frame()).low_mem, 1);
    Arrival local;
    local.meta.local = 1;
    enable_redirect(49, 0);
    EXPECT_EQ(classify(Frame(), local).low_mem, 1);
}

} // namespace
