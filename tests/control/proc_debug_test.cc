// The pktdebug files.
#include "control/proc_test.h"

#include "vlan/pvlan_debug.h"

namespace {

class ProcDebugTest : public ProcTest {};

TEST_F(ProcDebugTest, a_write_reaches_the_word_that_the_packet_path_reads) {
    store("pktdebug", "3\n");
    EXPECT_EQ(tarn_pkt_debug, 3u);
    store("pktdebug", "0\n");
    store("pktdebugvlan", "10\n");
    EXPECT_EQ(tarn_pkt_debug_vlan, 10u);
    store("pktdebuglowmem", "2\n");
    EXPECT_EQ(tarn_pkt_low_mem_normal_return, 1u);
    store("pktdebugslaveonly", "2\n");
    EXPECT_EQ(slave_only_debug_override, 1u);
    store("pktdebugpostenable", "2\n");
    EXPECT_EQ(tarn_packet_post_debug_enable, 2u);
    store("pktdebugpvlanprimary", "2\n");
    EXPECT_EQ(tarn_pkt_pvlan_primary_debug, 2u);
    store("pktdebugratelimitburst", "7\n");
    EXPECT_EQ(ratelimit_burst(&tarn_pkt_debug_ratelimit), 7);
    store("pktdebugratelimitinterval", "9\n");
    EXPECT_EQ(ratelimit_interval(&tarn_pkt_debug_ratelimit), 9);
}

TEST_F(ProcDebugTest, the_frame_log_and_its_vlan_start_to_count_anew) {
    tarn_pkt_debug_cnt = 77;
    store("pktdebug", "0\n");
    EXPECT_EQ(tarn_pkt_debug_cnt, 0);
    tarn_pkt_debug_cnt = 77;
    store("pktdebugvlan", "0\n");
    EXPECT_EQ(tarn_pkt_debug_cnt, 0);
    tarn_pkt_debug_cnt = 77;
    for (const char *file : {"pktdebuglowmem", "pktdebugslaveonly", "pktdebugpostenable",
                             "pktdebugpvlanprimary", "pktdebugratelimitburst"})
        store(file, "1\n");
    EXPECT_EQ(tarn_pkt_debug_cnt, 77);
}

TEST_F(ProcDebugTest, views_are_signed_but_for_two) {
    tarn_pkt_debug_vlan = tarn_pkt_low_mem_normal_return = tarn_packet_post_debug_enable =
        tarn_pkt_pvlan_primary_debug = slave_only_debug_override = 0xFFFFFFFE;
    EXPECT_EQ(show("pktdebugvlan"), "4294967294\n");
    for (const char *file :
         {"pktdebuglowmem", "pktdebugslaveonly", "pktdebugpostenable", "pktdebugpvlanprimary"})
        EXPECT_EQ(show(file), "-2\n") << file;
}

struct Limit {
    const char *file;
    u32 limit;
    long copy_failed;
};
const Limit LIMITS[] = {
    {"pktdebug", 8, -1},
    {"pktdebugvlan", 8, -1},
    {"pktdebugpostenable", 10, -EFAULT},
    {"pktdebugpvlanprimary", 10, -EFAULT},
    {"pktdebuglowmem", 10, -EFAULT},
    {"pktdebugslaveonly", 10, -EFAULT},
    {"pktdebugratelimitburst", 7, -EFAULT},
    {"pktdebugratelimitinterval", 7, -EFAULT},
    {"hidecounter", 20, -EFAULT},
};

TEST_F(ProcDebugTest, each_file_takes_so_many_bytes) {
    for (const Limit &row : LIMITS)
        for (u32 length : {0u, 1u, row.limit - 1, row.limit, row.limit + 1, 5000u})
            EXPECT_EQ(store(row.file, std::string(length, '1')), std::min(length, row.limit))
                << row.file;
}

TEST_F(ProcDebugTest, bytes_that_cannot_be_copied_change_nothing) {
    for (const Limit &row : LIMITS)
        EXPECT_EQ(userlevel::proc_write(std::string("tarn/") + row.file, nullptr, 1),
                  row.copy_failed)
            << row.file;
    EXPECT_EQ(show("pktdebugratelimitburst"), "100\n");
}

TEST_F(ProcDebugTest, a_write_of_no_bytes_is_a_0) {
    tarn_pkt_debug_vlan = 7;
    EXPECT_EQ(store("pktdebugvlan", ""), 0);
    EXPECT_EQ(show("pktdebugvlan"), "0\n");
}

TEST_F(ProcDebugTest, a_limiter_in_use_keeps_its_value) {
    ASSERT_EQ(pthread_mutex_lock(&tarn_pkt_debug_ratelimit.lock), 0);
    EXPECT_EQ(store("pktdebugratelimitburst", "7\n"), 2);
    EXPECT_EQ(store("pktdebugratelimitinterval", "7\n"), 2);
    pthread_mutex_unlock(&tarn_pkt_debug_ratelimit.lock);
    EXPECT_EQ(show("pktdebugratelimitburst"), "100\n");
    EXPECT_EQ(show("pktdebugratelimitinterval"), "500\n");
    EXPECT_EQ(store("pktdebugratelimitinterval", "7\n"), 2);
    EXPECT_EQ(show("pktdebugratelimitinterval"), "7\n");
}

TEST_F(ProcDebugTest, a_negative_length_is_refused_by_the_limiter) {
    for (const char *file : {"pktdebugratelimitburst", "pktdebugratelimitinterval"})
        EXPECT_EQ(userlevel::proc_write(std::string("tarn/") + file, "11111111", ~0ul), -1);
    EXPECT_EQ(show("pktdebugratelimitburst"), "100\n");
}

TEST_F(ProcDebugTest, the_last_post_is_printed_by_what_is_marked_present) {
    tarn_ppdi_last = {.vid_valid = 1, .mld_valid = 0, .vid = 10, .mld_pkt = 1};
    EXPECT_EQ(show("pktdebugpostinfo"), "{'vid': 10}\n");
    tarn_ppdi_last.mld_valid = 1;
    EXPECT_EQ(show("pktdebugpostinfo"), "{'vid': 10, 'mld_pkt': 1}\n");
    tarn_ppdi_last.vid_valid = 0;
    EXPECT_EQ(show("pktdebugpostinfo"), "{'mld_pkt': 1}\n");
    tarn_ppdi_last = {};
    EXPECT_EQ(show("pktdebugpostinfo"), "{}\n");
}

} // namespace
