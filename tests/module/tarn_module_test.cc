// The start of the module, and the catalogue of what it registers.
#include "support/switch_test.h"

#include "module/tarn_module.h"

#include <algorithm>
#include <map>
#include <set>

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

std::vector<int> slots(const u8 *order) {
    std::vector<int> all;
    for (; *order != REDIRECT_ORDER_END; order++)
        all.push_back(*order);
    return all;
}

TEST(OrderTables, name_the_slots_in_the_order_they_are_asked) {
    EXPECT_THAT(slots(process_packet_rxs.data()),
                ElementsAreArray({49, 50, 28, 8,  3,  31, 5,  6,  0,  9,  10, 12, 7,  13, 14, 19,
                                  15, 16, 17, 23, 22, 18, 20, 21, 24, 25, 26, 29, 27, 30, 32, 33,
                                  34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48}));
    EXPECT_THAT(slots(process_packet_modify_rx.data()),
                ElementsAre(45, 1, 2, 31, 4, 9, 11, 40, 41, 42, 25));
    EXPECT_THAT(slots(process_packet_modify_tx.data()), ElementsAre(0, 39, 9, 21, 30));
    EXPECT_THAT(slots(process_packet_rxs_ip.data()), ElementsAre(0, 9, 7, 30, 32, 33, 36, 38, 41));
    EXPECT_THAT(slots(process_packet_rxs_eth.data()), ElementsAre(7, 30, 19, 32));
}

TEST(OrderTables, end_with_their_last_entry) {
    EXPECT_EQ(process_packet_rxs.back(), REDIRECT_ORDER_END);
    EXPECT_EQ(process_packet_modify_rx.back(), REDIRECT_ORDER_END);
    EXPECT_EQ(process_packet_modify_tx.back(), REDIRECT_ORDER_END);
    EXPECT_EQ(process_packet_rxs_ip.back(), REDIRECT_ORDER_END);
    EXPECT_EQ(process_packet_rxs_eth.back(), REDIRECT_ORDER_END);
}

TEST(OrderTables, replication_types_have_names) {
    EXPECT_THAT(stack_repl_strings,
                ElementsAre(::testing::StrEq("Default"), ::testing::StrEq("STP"),
                            ::testing::StrEq("RYKE"), ::testing::StrEq("MRP"),
                            ::testing::StrEq("CFM"), ::testing::StrEq("LACP"),
                            ::testing::StrEq("ISIS"), ::testing::StrEq("Profinet"),
                            ::testing::StrEq("Mcast"), ::testing::StrEq("sFlow"),
                            ::testing::StrEq("BcExc"), ::testing::StrEq("PortAuth")));
}

TEST(BeforeStart, no_slot_is_taken) {
    for (const packet_redirect *redirect : packet_redirects)
        EXPECT_EQ(redirect, nullptr);
}

// A row of the catalogue. Slots whose redirect lands later are empty until then.
struct Row {
    u32 slot;
    const char *name;
    u32 skip;
    bool enabled, posts, modifies_rx, modifies_tx;
    u32 replication = STACK_REPL_DEFAULT;
    bool rewrites = false; // has a pre_post_modify
};

constexpr u32 ALL_L3 = SKIP_ARP | SKIP_IPV4 | SKIP_IPV6;
const Row CATALOGUE[] = {
    {0, "orvo-bridge", 0, true, false, false, true},
    {3, "remote-mirror", 0, false, false, false, false},
    {4, "icmpCpucode", SKIP_ARP, true, false, true, false},
    {5, "sflow", 0, true, true, false, false, STACK_REPL_SFLOW},
    {6, "flowd", 0, false, true, false, false},
    {7, "l2drop", 0, true, false, false, false},
    {8, "l2fdbdrop", 0, false, false, false, false},
    {10, "kelm_agent", ALL_L3, true, true, false, false},
    {11, "pbrMark", 0, true, false, true, false},
    {14, "testd", SKIP_IPV4, true, true, false, false},
    {16, "befd", ALL_L3, true, true, false, false},
    {17, "stp", ALL_L3, true, true, false, false, STACK_REPL_STP},
    {18, "lacp", ALL_L3, true, true, false, false, STACK_REPL_LACP},
    {19, "lldp", ALL_L3, true, true, false, false},
    {20, "udld", ALL_L3, true, true, false, false},
    {21, "ryke", SKIP_ARP, true, true, false, true, STACK_REPL_RYKE},
    {22, "mrp", ALL_L3, true, true, false, false, STACK_REPL_MRP},
    {23, "profinet", ALL_L3, true, true, false, false, STACK_REPL_PROFINET},
    {24, "cfm", ALL_L3, true, true, false, false, STACK_REPL_CFM},
    {25, "isis", ALL_L3, false, true, true, false, STACK_REPL_ISIS},
    {26, "grasp", SKIP_ARP | SKIP_IPV4, true, false, false, false},
    {28, "dos", 0, true, true, false, false},
    {29, "ldf", ALL_L3, true, true, false, false},
    {30, "l3drop", 0, false, false, false, true},
    {31, "filterMatchCpuCode", 0, true, false, true, false},
    {33, "vornappsd", 0, true, false, false, false, STACK_REPL_DEFAULT, true},
    {34, "garp", ALL_L3, true, true, false, false},
    {35, "mcdrop", SKIP_ARP, true, false, false, false},
    {37, "pim", SKIP_ARP, true, false, false, false},
    {38, "vrrp", SKIP_ARP, true, false, false, false},
    {41, "ipv4", SKIP_ARP | SKIP_IPV6, true, false, true, false},
    {42, "ipv6_precheck", SKIP_ARP | SKIP_IPV4, true, false, true, false},
    {44, "ipv6", SKIP_ARP | SKIP_IPV4, true, false, false, false},
    {45, "arp", 0, true, false, false, false},
    {46, "rarp", ALL_L3, true, false, false, false},
    {47, "pppoe", ALL_L3, true, false, false, false},
    {49, "vlan_local", 0, true, false, false, false},
    {50, "ptp", 0, false, false, false, false},
};

TEST(Start, fills_the_catalogue) {
    ASSERT_EQ(init_module(), 0);
    std::size_t filled = 0;
    for (u32 slot = 0; slot < REDIRECT_SLOTS; slot++)
        filled += packet_redirects[slot] != nullptr;
    EXPECT_EQ(filled, std::size(CATALOGUE));

    for (const Row &row : CATALOGUE) {
        const packet_redirect *redirect = packet_redirects[row.slot];
        ASSERT_NE(redirect, nullptr) << row.name;
        EXPECT_STREQ(redirect->name, row.name);
        EXPECT_EQ(redirect->skip_protocols, row.skip) << row.name;
        EXPECT_EQ(redirect->enabled, row.enabled) << row.name;
        EXPECT_EQ(redirect->stack_repl_type, row.replication) << row.name;
        EXPECT_EQ(redirect->post != tarn_pkt_packet_post_dummy, row.posts) << row.name;
        EXPECT_EQ(redirect->modify_rx != nullptr, row.modifies_rx) << row.name;
        EXPECT_EQ(redirect->modify_tx != nullptr, row.modifies_tx) << row.name;
        EXPECT_EQ(redirect->pre_post_modify != nullptr, row.rewrites) << row.name;
    }
    EXPECT_TRUE(userlevel::log_take().empty());
}

// A lock report would print these.
TEST(Start, sets_up_every_lock_once_and_names_it) {
    ASSERT_EQ(init_module(), 0);
    std::vector<std::string> names = userlevel::locks_set_up();
    EXPECT_THAT(names,
                ::testing::UnorderedElementsAre(
                    "tarn_proc_if", "redirect_candidates_lock", "tarn_follow_lock",
                    "tarnfwd_netlink_mutex", "lacp_sock_list_lock", "stp_sock_list_lock",
                    "eapol_sock_list_lock", "garp_sock_list_lock", "igmp_snoop_sock_list_lock",
                    "ryke_sock_list_lock", "ldf_sock_list_lock", "lldp_sock_list_lock",
                    "testd_arming", "testd_sock_list_lock", "sflow_mutex", "frame_sock_list_lock",
                    "mld_snoop_sock_list_lock", "dhcpsn_sock_list_lock", "kelm_sock_list_lock",
                    "kelm_agent_sock_list_lock", "openflowd_sock_list_lock", "udld_sock_list_lock",
                    "flooding_group_lock", "mirror_vlan_lock", "fdb_block_table_lock",
                    "_auth_supp_list_lock", "_auth_fwd_lock", "_auth_pkt_config_lock",
                    "cfm_sock_list_lock", "befd_sock_list_lock", "tarn_vornappsd_redirect_db_lock",
                    "isis_sock_list_lock", "mrp_sock_list_lock", "profinet_sock_list_lock",
                    "tarn_if_db_lock", "update_lock", "tarn_ifmgr_change"));
}

// Which frames each is shown at all. More would cost time on frames that it does not want, less
// would keep from it what it does.
const struct {
    u32 facts;
    std::set<std::string> names;
} CONCERNS[] = {
    {0, {"icmpCpucode", "l2fdbdrop", "pbrMark"}},
    {FRAME_ANY, {"orvo-bridge", "remote-mirror"}},
    {FRAME_WITHOUT_PORT, {"vlan_local"}},
    {FRAME_ARP, {"arp"}},
    {FRAME_IPV4, {"ipv4"}},
    {FRAME_IPV6, {"grasp", "ipv6", "ipv6_precheck"}},
    {FRAME_IPV4 | FRAME_IPV6, {"l3drop"}},
    {FRAME_OF_PROTOCOL, {"cfm", "pppoe", "profinet", "ptp", "rarp", "testd"}},
    {FRAME_TO_PROTOCOL, {"befd", "ldf", "mrp", "ryke", "udld"}},
    {FRAME_TO_BRIDGES, {"garp", "kelm_agent"}},
    {FRAME_TO_BRIDGES | FRAME_TO_PROTOCOL, {"isis"}},
    {FRAME_TO_BRIDGES | FRAME_TO_STP, {"lldp"}},
    {FRAME_TO_STP, {"stp"}},
    {FRAME_TO_LACP, {"lacp"}},
    {FRAME_TO_GROUP, {"mcdrop"}},
    {FRAME_UNREAL_SOURCE, {"l2drop"}},
    {FRAME_TRAP_FLAGS, {"filterMatchCpuCode", "flowd"}},
    {FRAME_TRAP_CODE, {"sflow"}},
    {FRAME_FRAGMENT | FRAME_TRAP_FLAGS, {"dos"}},
    {FRAME_TCP, {"vornappsd"}},
    {FRAME_IP_ROUTING, {"pim", "vrrp"}},
};

TEST(Start, shows_each_redirect_the_frames_that_concern_it) {
    ASSERT_EQ(init_module(), 0);
    std::map<u32, std::set<std::string>> found;
    for (const packet_redirect *redirect : packet_redirects)
        if (redirect)
            found[redirect->concerns].insert(redirect->name);
    for (const auto &[facts, names] : CONCERNS)
        EXPECT_EQ(found[facts], names) << std::hex << facts;
    EXPECT_EQ(found.size(), std::size(CONCERNS));
}

TEST(Start, shows_each_hook_the_frames_that_concern_it) {
    ASSERT_EQ(init_module(), 0);
    std::map<u32, std::set<std::string>> found;
    for (const packet_redirect *redirect : packet_redirects)
        if (redirect && redirect->modify_rx)
            found[redirect->modify_concerns].insert(redirect->name);
    EXPECT_EQ(found, (std::map<u32, std::set<std::string>>{
                         {FRAME_ANY, {"isis", "pbrMark"}},
                         {FRAME_TRAP_FLAGS, {"filterMatchCpuCode", "ipv4", "ipv6_precheck"}},
                         {FRAME_TRAP_CODE, {"icmpCpucode"}},
                     }));
}

// Records are allocated as they are registered, so their serial numbers tell the order of the
// starts.
TEST(Start, registers_in_the_order_of_the_start_sequence) {
    ASSERT_EQ(init_module(), 0);
    std::vector<std::pair<u64, std::string>> started;
    for (const userlevel::object &object : userlevel::live())
        for (const packet_redirect *redirect : packet_redirects)
            if (redirect == object.address)
                started.emplace_back(object.serial, redirect->name);
    std::sort(started.begin(), started.end());
    std::vector<std::string> names;
    for (auto &[serial, name] : started)
        names.push_back(name);
    EXPECT_THAT(names, ElementsAreArray({"lacp",
                                         "stp",
                                         "garp",
                                         "ryke",
                                         "ldf",
                                         "lldp",
                                         "testd",
                                         "sflow",
                                         "flowd",
                                         "kelm_agent",
                                         "udld",
                                         "mcdrop",
                                         "vrrp",
                                         "pim",
                                         "ipv4",
                                         "ipv6_precheck",
                                         "ipv6",
                                         "arp",
                                         "rarp",
                                         "pppoe",
                                         "icmpCpucode",
                                         "orvo-bridge",
                                         "remote-mirror",
                                         "l2drop",
                                         "l2fdbdrop",
                                         "l3drop",
                                         "filterMatchCpuCode",
                                         "pbrMark",
                                         "dos",
                                         "cfm",
                                         "befd",
                                         "vornappsd",
                                         "isis",
                                         "mrp",
                                         "profinet",
                                         "grasp",
                                         "vlan_local",
                                         "ptp"}));
}

TEST(Start, redirects_are_there_before_the_database) {
    ASSERT_EQ(tarn_os_init(), 0);
    EXPECT_NE(packet_redirects[50], nullptr);
    EXPECT_EQ(p_tarn_if_db, nullptr);
    ASSERT_EQ(tarn_init(), 0);
    EXPECT_NE(p_tarn_if_db, nullptr);
    userlevel::log_take();
}

// Whatever allocation fails, the load goes on with what is left. Each start is a process of its
// own; the first that does not come to the n-th allocation ends the loop.
// The directory "tarn" and its files come first, and alone may fail the load.
constexpr u64 PROC_ALLOCATIONS = 24;

TEST(Start, a_failed_proc_entry_fails_the_load_and_leaves_nothing) {
    for (u64 n = 1; n <= PROC_ALLOCATIONS; n++) {
        userlevel::snapshot before = userlevel::take_snapshot();
        userlevel::fail_allocation(n);
        EXPECT_EQ(init_module(), -1) << n;
        EXPECT_TRUE(userlevel::proc_list("").empty()) << n;
        EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before)), "") << n;
        std::vector<userlevel::log_line> log = userlevel::log_take();
        EXPECT_EQ(log.size(), n == 1 ? 0u : 1u) << n; // that of the directory is silent
    }
    EXPECT_EQ(packet_redirects[0], nullptr);
    userlevel::fail_allocation(PROC_ALLOCATIONS);
    EXPECT_EQ(init_module(), -1);
    std::vector<userlevel::log_line> log = userlevel::log_take();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].level, 2);
    EXPECT_EQ(log[0].text, "Failed to create proc entry /proc/tarn/txmodifycounts\n");
    EXPECT_EQ(init_module(), 0);
    EXPECT_EQ(userlevel::proc_list("tarn").size(), 23u);
}

TEST(Start, survives_every_failed_allocation_after_the_proc_entries) {
    constexpr int survived = 0, never_failed = 3;
    auto start = [](u64 n) {
        userlevel::fail_allocation(n);
        int result = init_module();
        bool failed = userlevel::allocations_made() >= n;
        userlevel::fail_allocation(0);
        sk_buff *skb = userlevel::frame_make(Frame().build());
        tarn_rx_meta meta{};
        if (result != 0 || rxtx_hw_packet_recv(skb, 5001, 1, &meta) != 0)
            std::_Exit(1);
        std::_Exit(failed ? survived : never_failed);
    };
    int status = -1;
    auto ended = [&](int code) {
        status = WEXITSTATUS(code);
        return status == survived || status == never_failed;
    };
    u64 n = PROC_ALLOCATIONS;
    while (status != never_failed && n < 1000) {
        n++;
        ASSERT_EXIT(start(n), ended, "") << "allocation " << n;
    }
    EXPECT_GT(n,
              PROC_ALLOCATIONS + std::size(CATALOGUE) + 3); // the records, the caches, the database
}

TEST(Start, the_result_of_the_last_redirect_is_the_result) {
    packet_redirect squatter{.name = "squatter",
                             .match = [](tarn_pkt_info *, redirect_instruct *) { return 0; },
                             .post = tarn_pkt_packet_post_dummy};
    ASSERT_EQ(tarn_pkt_register_packet_redirection(&squatter, 50), 0);
    EXPECT_EQ(tarn_os_init(), -EINVAL);
    EXPECT_EQ(packet_redirects[50]->enabled, 0); // switched off whoever has the slot
    EXPECT_EQ(userlevel::log_take().size(), 1u);
}

TEST(Start, the_result_of_any_other_redirect_is_not) {
    packet_redirect squatter{.name = "squatter",
                             .match = [](tarn_pkt_info *, redirect_instruct *) { return 0; },
                             .post = tarn_pkt_packet_post_dummy};
    for (u32 slot : {3, 30, 49})
        ASSERT_EQ(tarn_pkt_register_packet_redirection(&squatter, slot), 0);
    EXPECT_EQ(tarn_os_init(), 0);
    EXPECT_EQ(userlevel::log_take().size(), 3u);
}

TEST(Start, records_are_had_where_the_load_may_sleep) {
    ASSERT_EQ(init_module(), 0);
    for (const userlevel::object &object : userlevel::live())
        if (object.address == packet_redirects[50]) {
            EXPECT_EQ(object.flags, GFP_KERNEL);
        }
}

TEST(Start, without_the_node_cache_no_interface_can_be_installed) {
    userlevel::fail_allocation(PROC_ALLOCATIONS + 1);
    ASSERT_EQ(init_module(), 0);
    EXPECT_EXIT(plain_switch::add_port(1), ::testing::ExitedWithCode(1), "error -206");
}

} // namespace
