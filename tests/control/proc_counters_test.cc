// The counters and the switches of the redirects.
#include "control/proc_test.h"

namespace {

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string HEADING = "PACKET COUNTS\n---------\n";

class ProcCountersTest : public ProcTest {};

TEST_F(ProcCountersTest, each_view_prints_the_counters_of_its_order) {
    receive(Frame().from("ff:ff:ff:ff:ff:ff"));
    EXPECT_THAT(show("pktcounts"), HasSubstr("\nl2drop_inspects: 1\n"));
    auto counters = [](u32 mode) {
        return HEADING + printed([=](seq_file *view) { print_redirect_counters(mode, view); });
    };
    EXPECT_EQ(show("pktcounts"), counters(REDIRECT_COUNTERS_RX));
    EXPECT_EQ(show("rxmodifycounts"), counters(REDIRECT_COUNTERS_MODIFY_RX));
    EXPECT_EQ(show("txmodifycounts"), counters(REDIRECT_COUNTERS_MODIFY_TX));
    EXPECT_NE(show("rxmodifycounts"), show("txmodifycounts"));
}

TEST_F(ProcCountersTest, a_write_clears_the_counters_of_every_slot) {
    for (packet_redirect *redirect : packet_redirects)
        if (redirect)
            redirect->inspects = redirect->modify_tx_inspects = 5;
    EXPECT_EQ(userlevel::proc_write("tarn/clearpktcount", nullptr, 5), 5); // it is not read
    for (packet_redirect *redirect : packet_redirects) {
        if (redirect) {
            EXPECT_EQ(redirect->inspects + redirect->modify_tx_inspects, 0u) << redirect->name;
        }
    }
}

// Also of frames that nobody has looked at the counters since.
TEST_F(ProcCountersTest, frames_before_a_clear_are_not_counted_after_it) {
    const char *counts = "_inspects: [1-9]";
    receive(Frame().ipv4({}).padded());
    EXPECT_THAT(show("pktcounts"), ContainsRegex(counts));
    receive(Frame().padded());
    receive(Frame().ipv4({}).padded());
    EXPECT_EQ(store("clearpktcount", "1\n"), 2);
    EXPECT_THAT(show("pktcounts"), Not(ContainsRegex(counts)));
    EXPECT_THAT(show("rxmodifycounts"), Not(ContainsRegex(counts)));
    receive(Frame().ipv4({}).padded());
    EXPECT_THAT(show("pktcounts"), HasSubstr("\nl2drop_inspects: 1\n"));
    EXPECT_THAT(show("pktcounts"), HasSubstr("\nipv4_stops: 1 4:1\n"));
    EXPECT_THAT(show("rxmodifycounts"), HasSubstr("\nipv4_modify_rx_inspects: "));
}

TEST_F(ProcCountersTest, the_last_byte_of_a_name_is_cut_off) {
    EXPECT_EQ(store("redirectprotocoldisable", "vrrp\n"), 5);
    EXPECT_EQ(redirect("vrrp").enabled, 0);
    EXPECT_EQ(store("redirectprotocolenable", "vrrp"), 4);
    EXPECT_EQ(redirect("vrrp").enabled, 0);
    EXPECT_EQ(store("redirectprotocolenable", "vrrpX"), 5);
    EXPECT_EQ(redirect("vrrp").enabled, 1);
    EXPECT_EQ(store("redirectprotocoldisable", "vrrp"), 4);
    EXPECT_EQ(redirect("vrrp").enabled, 1);
    EXPECT_THAT(log(), ElementsAre("2 Error enabling redirect 'vrr'\n",
                                   "2 Error disabling redirect 'vrr'\n"));
}

TEST_F(ProcCountersTest, a_name_is_cut_at_19_bytes_and_the_write_is_whole) {
    EXPECT_EQ(store("redirectprotocolenable", "filterMatchCpuCode\n and more"), 28);
    EXPECT_EQ(store("redirectprotocolenable", std::string(5000, 'n')), 5000);
    EXPECT_THAT(log(), ElementsAre("2 Error enabling redirect '" + std::string(18, 'n') + "'\n"));
    EXPECT_EQ(userlevel::proc_write("tarn/redirectprotocolenable", nullptr, 5), -EFAULT);
    EXPECT_EQ(userlevel::proc_write("tarn/redirectprotocoldisable", nullptr, 5), -EFAULT);
}

TEST_F(ProcCountersTest, enabled_and_disabled_redirects_are_named) {
    auto names = [](u8 enabled) {
        return printed([=](seq_file *view) { print_redirect_protocols(enabled, view); });
    };
    EXPECT_EQ(show("redirectprotocolenable"), names(1));
    EXPECT_EQ(show("redirectprotocoldisable"), names(0));
    EXPECT_THAT(show("redirectprotocoldisable"), HasSubstr("l3drop\n"));
}

TEST_F(ProcCountersTest, one_name_can_be_hidden) {
    EXPECT_EQ(store("hidecounter", "vrrp\n"), 5);
    EXPECT_THAT(show("pktcounts"), Not(HasSubstr("vrrp")));
    EXPECT_EQ(store("hidecounter", "vrrp"), 4); // "vrr"
    EXPECT_THAT(show("pktcounts"), HasSubstr("vrrp"));
    EXPECT_EQ(store("hidecounter", "vrrp\n"), 5);
    EXPECT_EQ(store("hidecounter", ""), 0);
    EXPECT_THAT(show("pktcounts"), HasSubstr("vrrp"));
}

} // namespace
