// The starts of the redirects where something is in their way: each says so, and harms nobody.
#include "support/switch_test.h"

#include "containers/tarn_avl.h"
#include "redirects/flooding_group.h"
#include "redirects/redirects.h"
#include "vlan/vlan.h"

namespace {

struct Row {
    const char *name;
    u32 slot;
    i32 (*init)();
};

void PrintTo(const Row &row, std::ostream *out) {
    *out << row.name;
}

constexpr Row ROWS[] = {
    {"mcdrop", 35, tarn_mcdrop_init},
    {"vrrp", 38, tarn_vrrp_init},
    {"pim", 37, tarn_pim_init},
    {"ipv4", 41, tarn_ipv4_init},
    {"arp", 45, tarn_arp_init},
    {"rarp", 46, tarn_rarp_init},
    {"pppoe", 47, tarn_pppoe_init},
    {"icmpCpucode", 4, tarn_icmp_cpucode_init},
    {"orvo-bridge", 0, tarn_orvo_bridge_init},
    {"remote-mirror", 3, tarn_rmirror_init},
    {"l2drop", 7, tarn_l2_drop_init},
    {"l2fdbdrop", 8, tarn_l2_fdb_drop_init},
    {"l2mac", 27, tarn_l2_mac_init},
    {"l3drop", 30, tarn_l3_drop_init},
    {"filterMatchCpuCode", 31, tarn_filter_match_cpucode_init},
    {"pbrMark", 11, pbr_init},
    {"dos", 28, tarn_dos_init},
    {"vornappsd", 33, tarn_vornappsd_init},
    {"grasp", 26, tarn_grasp_init},
    {"vlan_local", 49, tarn_vlan_local_init},
    {"ptp", 50, tarn_ptp_init},
};

void take(u32 slot) {
    packet_redirect squatter{.name = "squatter",
                             .match = [](tarn_pkt_info *, redirect_instruct *) { return 0; },
                             .post = tarn_pkt_packet_post_dummy};
    ASSERT_EQ(tarn_pkt_register_packet_redirection(&squatter, slot), 0);
}

class Start : public ::testing::TestWithParam<Row> {};

TEST_P(Start, registers_in_its_slot) {
    EXPECT_EQ(GetParam().init(), 0);
    ASSERT_NE(packet_redirects[GetParam().slot], nullptr);
    const packet_redirect &there = *packet_redirects[GetParam().slot];
    EXPECT_STREQ(there.name, GetParam().name);
    for (u32 number : {there.inspects, there.stops, there.kernel, there.userspace, there.resend_l2,
                       there.stack_rep, there.flood_l2, there.modify_rx_inspects,
                       there.modify_tx_inspects, there.kernel_port})
        EXPECT_EQ(number, 0u);
    EXPECT_THAT(there.stop_reasons, ::testing::Each(0u));
}

TEST_P(Start, answers_as_the_registry_does_where_its_slot_is_taken) {
    take(GetParam().slot);
    EXPECT_EQ(GetParam().init(), -EINVAL);
    EXPECT_STREQ(packet_redirects[GetParam().slot]->name, "squatter");
    // That of "ptp" turns its slot off, whoever has it.
    EXPECT_EQ(packet_redirects[GetParam().slot]->enabled, GetParam().slot == 50 ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(Redirects, Start, ::testing::ValuesIn(ROWS), [](const auto &row) {
    std::string name = row.param.name;
    std::erase_if(name, [](char one) { return !std::isalnum(static_cast<unsigned char>(one)); });
    return name;
});

TEST(StartIpv6, without_the_precheck_there_is_no_last_decision) {
    take(42);
    EXPECT_EQ(tarn_ipv6_init(), -EINVAL);
    EXPECT_EQ(packet_redirects[44], nullptr);
}

TEST(StartIpv6, the_precheck_stays_where_the_second_slot_is_taken) {
    take(44);
    EXPECT_EQ(tarn_ipv6_init(), -EINVAL);
    ASSERT_NE(packet_redirects[42], nullptr);
    EXPECT_STREQ(packet_redirects[42]->name, "ipv6_precheck");
}

TEST(StartMcdrop, without_memory_for_its_table_it_is_there_all_the_same) {
    tarn_avl_cache_init();
    userlevel::fail_allocation(1);
    EXPECT_NE(tarn_mcdrop_init(), 0);
    ASSERT_NE(packet_redirects[35], nullptr);
    EXPECT_FALSE(flooding_group_any());
    EXPECT_FALSE(flooding_group_lookup(0, 1, 1));
    EXPECT_EQ(tarn_mcdrop_flooding_group_remove(0, 1, 1), -1);
    EXPECT_EQ(tarn_mcdrop_flooding_group_flush(), 0);
    EXPECT_EQ(tarn_mcdrop_flooding_group_add(0, 1, 1), 0); // which makes it
    EXPECT_TRUE(flooding_group_lookup(0, 1, 1));
}

TEST(StartVornappsd, without_memory_for_its_list_it_takes_nobody) {
    for (u64 n : {1, 2}) {
        userlevel::fail_allocation(n);
        EXPECT_EQ(tarn_vornappsd_init(), n == 1 ? 0 : -EINVAL); // the second time it is there
        userlevel::fail_allocation(0);
        const u32 host = 1;
        EXPECT_EQ(tarn_vornappsd_add_ip_address(&host), 0);
        EXPECT_EQ(tarn_vornappsd_remove_ip_address(&host), 0);
        tarn_pkt_info info{};
        info.ethertype = 0x0800;
        info.ip_proto = 6;
        redirect_instruct instruct{};
        EXPECT_EQ(packet_redirects[33]->match(&info, &instruct), 0);
        EXPECT_EQ(instruct.flags, 0u);
    }
}

} // namespace
