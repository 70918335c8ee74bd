// arpsecdb and arpseccnt.
#include "control/proc_test.h"

#include "security/arp_sec_stats.h"
#include "security/dhcpsn_db.h"

#include <deque>

namespace {

// -1, 0, 1 by the first word, as the owners of the lists order them.
int by_first_word(const void *node, const void *search) {
    u32 a = *static_cast<const u32 *>(node), b = *static_cast<const u32 *>(search);
    return a < b ? -1 : a > b;
}

class ProcArpsecTest : public ProcTest {
protected:
    void SetUp() override {
        configure([] {
            EXPECT_EQ(tarn_init_skip_list(&dhcpsn_db, by_first_word, 64), 0);
            EXPECT_EQ(tarn_init_skip_list(&dhcpsn_stats, by_first_word, 64), 0);
        });
        for (u32 ifindex : {7, 5001, 5002, 1234567})
            count(ifindex);
    }
    void TearDown() override {
        tarn_flush_skip_list(dhcpsn_db, false);
        tarn_flush_skip_list(dhcpsn_stats, false);
        dhcpsn_db = dhcpsn_stats = nullptr;
        remember();
    }

    void lease(std::array<u8, 4> ip, std::array<u8, 6> mac, u16 vid, u32 ifindex) {
        dhcpsn_lease &made = leases_.emplace_back();
        memcpy(&made.ip, ip.data(), 4);
        memcpy(made.mac, mac.data(), 6);
        made.vid = vid;
        made.ifindex = ifindex;
        configure([&] { EXPECT_EQ(tarn_add_skip_node(dhcpsn_db, &made), 0); });
    }
    void count(u32 ifindex) {
        dhcpsn_port_stats &made =
            stats_.emplace_back(dhcpsn_port_stats{ifindex, 1, 2, 3, 4, 5, 6, 7, 8});
        configure([&] { EXPECT_EQ(tarn_add_skip_node(dhcpsn_stats, &made), 0); });
    }
    void count_anew() {
        for (dhcpsn_port_stats &stats : stats_)
            stats = {stats.ifindex, 1, 2, 3, 4, 5, 6, 7, 8};
    }
    // The ifindexes whose counters are 0, all of them.
    std::vector<u32> cleared() {
        std::vector<u32> found;
        for (const dhcpsn_port_stats &stats : stats_) {
            u32 sum = stats.rx + stats.discarded + stats.no_binding + stats.vlan_mismatch +
                      stats.port_mismatch + stats.mac_mismatch + stats.link_local;
            EXPECT_TRUE(sum == 0 || sum == 28) << "some, and some not";
            EXPECT_EQ(stats.last_event, 8u);
            if (sum == 0)
                found.push_back(stats.ifindex);
        }
        return found;
    }

private:
    std::deque<dhcpsn_lease> leases_;
    std::deque<dhcpsn_port_stats> stats_;
};

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(ProcArpsecTest, leases_are_printed_in_the_order_of_the_list) {
    lease({192, 168, 100, 200}, {0xDE, 0xAD, 0xBE, 0xEF, 0, 1}, 4094, 0xFFFFFFFF);
    lease({1, 2, 3, 4}, {0, 1, 2, 3, 4, 5}, 1, 5001);
    EXPECT_EQ(show("arpsecdb"), "DHCP Snooping ARP Security Database\n---------\n"
                                "Client IP       MAC Address    VLAN Port(ifindex)\n"
                                "1.2.3.4         0001.0203.0405 1    5001\n"
                                "192.168.100.200 dead.beef.0001 4094 -1\n");
}

TEST_F(ProcArpsecTest, statistics_are_printed_in_the_order_of_the_list) {
    EXPECT_EQ(show("arpseccnt"), "DHCP Snooping ARP Security statistics\n---------\n"
                                 "7 1 2 3 4 5 6 7\n5001 1 2 3 4 5 6 7\n5002 1 2 3 4 5 6 7\n"
                                 "1234567 1 2 3 4 5 6 7\n");
}

struct Row {
    const char *text;
    long result;
    std::vector<u32> cleared;
};

TEST_F(ProcArpsecTest, a_write_clears_the_counters_that_it_names) {
    const std::vector<u32> all{7, 5001, 5002, 1234567};
    const Row rows[] = {
        // without a comma
        {"0\n", 2, all},
        {"", 0, all},
        {"none\n", 5, all},
        {"5001\n", 5, {5001}},
        {"5001x5002", 9, {5001}},
        {"9999\n", 5, {}},
        {"-1", 2, {}},
        {"12345678901", 11, {}},
        // lists
        {"5001,", 4, {5001}},
        {"5001,\n", 4, {5001}},
        {"5001,5002,", 4, {5001, 5002}},
        {"5001,5002,\n", 4, {5001, 5002}},
        {"5001,5002", 4, {5001}},
        {"5001,5002,7", 4, {5001, 5002}},
        {"7,7,5001,", 4, {7, 5001}},
        {"5001,7,", 4, {5001}},  // less than four bytes are left
        {"5001,7, ", 4, {5001}}, // its end is the fourth byte ahead
        {"5001,7,  ", 1, {7, 5001}},
        {"1234567,", 7, {1234567}},
        {"7,1234567,", 7, {7, 1234567}},
        {"9999,7,9,", 1, {7}},
        // what ends the write
        {"5001,0,5002,", -1, {5001}},
        {"0,5001,", -1, {}},
        {"5001,,5002,", -1, {5001}},
        {"5001,x,5002,", -1, {5001}},
        {"12345678,5001,", -1, {}},
        {"5001,00005002,", -1, {5001}},
        {",", -1, {}},
    };
    for (const Row &row : rows) {
        count_anew();
        EXPECT_EQ(store("arpseccnt", row.text), row.result) << row.text;
        EXPECT_EQ(cleared(), row.cleared) << row.text;
    }
}

TEST_F(ProcArpsecTest, a_write_is_cut_at_2048_bytes) {
    std::string text = "5001" + std::string(2044, ' ') + ",";
    EXPECT_EQ(store("arpseccnt", text), 2048); // the comma is not seen
    EXPECT_THAT(cleared(), ElementsAre(5001));
}

TEST_F(ProcArpsecTest, a_byte_0_ends_the_text) {
    EXPECT_EQ(store("arpseccnt", std::string("5001\0,5002,", 11)), 11);
    EXPECT_THAT(cleared(), ElementsAre(5001));
}

TEST_F(ProcArpsecTest, without_memory_or_bytes_it_is_refused) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(store("arpseccnt", "0\n"), -1);
    EXPECT_EQ(userlevel::proc_write("tarn/arpseccnt", nullptr, 2), -1);
    EXPECT_THAT(cleared(), IsEmpty());
}

TEST_F(ProcTest, without_a_list_nothing_is_printed_or_cleared) {
    EXPECT_EQ(store("arpseccnt", "0\n"), 0);
    EXPECT_EQ(store("arpseccnt", "5001\n"), 5);
    EXPECT_EQ(store("arpseccnt", "5001,5002,"), 4);
    EXPECT_EQ(show("arpseccnt"), "DHCP Snooping ARP Security statistics\n---------\n");
}

} // namespace
