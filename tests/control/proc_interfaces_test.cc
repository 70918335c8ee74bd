// ifdb, refcounts, subnetvlan, meminfo.
#include "control/proc_test.h"

#include "control/control.h"
#include "kernel/vmstat.h"
#include "vlan/vlan_member.h"

#include <algorithm>
#include <cstring>

namespace {

const std::string IFDB = "Interface  IfIndex  Flags  Oper cnt.  Ref cnt. IfFlags\n"
                         "======================================================\n";
const std::string REFCOUNTS = "IRREGULAR REFERENCE COUNTS\n"
                              "Regular reference counts of 1 are not shown\n---------\n";

class ProcInterfacesTest : public ProcTest {
protected:
    // A record with no more than what is printed, in the order of creation.
    tarn_if *bare(const char *name, u32 ifindex) {
        return configure([=] {
            tarn_if *record = _tarn_ifmgr_if_alloc();
            memcpy(record->name, name, std::min(strlen(name), sizeof(record->name)));
            record->ifindex = ifindex;
            record->type = TARN_IF_TYPE_ETHERNET;
            tarn_if *out = nullptr;
            EXPECT_EQ(_tarn_ifmgr_if_install(record, &out, true), 0);
            return out;
        });
    }
};

TEST_F(ProcInterfacesTest, ifdb_prints_a_line_for_each_record_in_the_order_of_the_ifindexes) {
    add_named("second", 5002);
    port()->oper_count = 7;
    EXPECT_EQ(show("ifdb"), IFDB + "vlan1       301       1043           1       1  1000\n"
                                   "  Children: port1 \n"
                                   "port1       5001        43           1       1  1000\n"
                                   "second      5002         3           0       1  1000\n"
                                   "if5011      5011         3           7       1  1000\n");
    port()->oper_count = 0;
}

TEST_F(ProcInterfacesTest, ifdb_prints_large_values_whole) {
    tarn_if *large = bare("a-name-of-16-byt", 0x7FFFFFFF);
    large->flags = 0xFEDCBA98;
    large->oper_count = 255;
    large->if_flags |= 0x80000;
    EXPECT_THAT(show("ifdb"), ::testing::EndsWith("a-name-of-16-byt  2147483647  fedcba98         "
                                                  "255       1  81000\n"));
}

TEST_F(ProcInterfacesTest, ifdb_walks_a_tall_tree_in_order) {
    for (u32 k = 0; k < 180; k++)
        add_port((k * 37) % 181 + 20);
    std::string text = show("ifdb");
    std::size_t at = 0;
    for (u32 k = 20; k <= 200; k++) {
        if (k == (180 * 37) % 181 + 20)
            continue; // the one that is not there
        std::size_t found = text.find("\nport" + std::to_string(k) + " ", at);
        ASSERT_NE(found, std::string::npos) << k;
        at = found;
    }
}

TEST_F(ProcInterfacesTest, a_record_that_is_not_valid_is_not_printed) {
    port()->if_flags &= ~TARN_IF_F_VALID;
    EXPECT_THAT(show("ifdb"), ::testing::Not(::testing::HasSubstr("if5011")));
    port()->if_flags |= TARN_IF_F_VALID;
}

// Twelve characters stand before the first name; the break comes after the name that makes the line
// longer than 60.
TEST_F(ProcInterfacesTest, a_line_of_children_is_broken_when_it_is_longer_than_60) {
    tarn_if *vlan = add_vlan(9);
    for (u32 k = 20; k < 32; k++)
        configure([&] { plain_switch::add_member(add_port(k), 9); });
    (void)vlan;
    EXPECT_THAT(show("ifdb"), ::testing::HasSubstr(
                                  "\n  Children: port31 port30 port29 port28 port27 port26 port25 "
                                  "\n    port24 port23 port22 port21 port20 \n"));
}

TEST_F(ProcInterfacesTest, a_line_of_60_is_not_broken_and_one_of_61_is) {
    tarn_if a{}, b{};
    strcpy(a.name, "abcdefghijk");  // 12 with its blank: 12 + 4 * 12 = 60
    strcpy(b.name, "abcdefghijkl"); // 13
    tarn_ifmgr_list_node nodes[4] = {
        {&a, &nodes[1]}, {&a, &nodes[2]}, {&a, &nodes[3]}, {&a, nullptr}};
    tarn_if *holder = bare("holder", 9000);
    holder->children = nodes;
    std::string three = "\n  Children: abcdefghijk abcdefghijk abcdefghijk ";
    EXPECT_THAT(show("ifdb"), ::testing::EndsWith(three + "abcdefghijk \n"));
    nodes[3].ifp = &b;
    EXPECT_THAT(show("ifdb"), ::testing::EndsWith(three + "abcdefghijkl \n    \n"));
    nodes[1].ifp = nullptr; // skipped
    EXPECT_THAT(show("ifdb"),
                ::testing::EndsWith("\n  Children: abcdefghijk abcdefghijk abcdefghijkl \n"));
    holder->children = nullptr;
}

TEST_F(ProcInterfacesTest, refcounts_print_what_is_not_1) {
    EXPECT_EQ(show("refcounts"), REFCOUNTS);
    tarn_ifmgr_if_ref_get(port());
    EXPECT_EQ(show("refcounts"), REFCOUNTS + "Interface if5011 reference count 2\n");
    tarn_ifmgr_if_ref_put(port());
}

TEST_F(ProcInterfacesTest, refcounts_leave_out_a_count_of_0_only_when_the_record_has_ended) {
    refcount_set(&port()->refcnt, 0);
    EXPECT_EQ(show("refcounts"), REFCOUNTS + "Interface if5011 reference count 0\n");
    port()->if_flags &= ~TARN_IF_F_VALID;
    EXPECT_EQ(show("refcounts"), REFCOUNTS);
    refcount_set(&port()->refcnt, 2);
    EXPECT_EQ(show("refcounts"), REFCOUNTS + "Interface if5011 reference count 2\n");
    port()->if_flags |= TARN_IF_F_VALID;
    refcount_set(&port()->refcnt, 1);
}

TEST_F(ProcInterfacesTest, refcounts_are_in_pre_order) {
    tarn_if *root = static_cast<tarn_if *>(tarn_avl_top(p_tarn_if_db->tree)->info);
    ASSERT_EQ(root, port1()); // 301 and 5011 below it
    for (tarn_if *ifp : {port(), vlan1(), port1()})
        tarn_ifmgr_if_ref_get(ifp);
    EXPECT_EQ(show("refcounts"), REFCOUNTS + "Interface port1 reference count 2\n"
                                             "Interface vlan1 reference count 2\n"
                                             "Interface if5011 reference count 2\n");
    for (tarn_if *ifp : {port(), vlan1(), port1()})
        tarn_ifmgr_if_ref_put(ifp);
}

TEST_F(ProcInterfacesTest, subnetvlan_prints_the_size_of_each_tree_in_the_order_of_the_ifindexes) {
    tarn_avl_tree one{}, two{};
    one.count = 1;
    two.count = 2;
    port()->subnet_tree = &two;
    port1()->subnet_tree = &one;
    EXPECT_EQ(show("subnetvlan"),
              "Interfaces are skipped if the tree is NULL for that interface\n\n"
              "port1 tree size: 1\nif5011 tree size: 2\n");
    port()->subnet_tree = port1()->subnet_tree = nullptr;
}

TEST_F(ProcInterfacesTest, meminfo_prints_free_pages_and_added_memberships) {
    u32 adds = vlan_port_adds;
    userlevel::zone_pages_set(NR_FREE_PAGES, 4711);
    EXPECT_EQ(show("meminfo"), "MEMINFO TABLE\n---------\nFree Pages 4711\n"
                               "Number of vlan_port_adds " +
                                   std::to_string(adds) + "\n");
    userlevel::zone_pages_set(NR_FREE_PAGES, -3);
    configure([&] { plain_switch::add_member(port(), 1); });
    EXPECT_EQ(show("meminfo"), "MEMINFO TABLE\n---------\nFree Pages 0\n"
                               "Number of vlan_port_adds " +
                                   std::to_string(adds + 1) + "\n");
}

// A reader may come while the module loads.
TEST(ProcBeforeTheDatabase, views_print_their_headings) {
    ASSERT_EQ(_module_create_proc(), 0);
    EXPECT_EQ(userlevel::proc_read("tarn/ifdb").text, IFDB);
    EXPECT_EQ(userlevel::proc_read("tarn/refcounts").text, REFCOUNTS);
    EXPECT_EQ(userlevel::proc_read("tarn/subnetvlan").text,
              "Interfaces are skipped if the tree is NULL for that interface\n\n");
    EXPECT_EQ(userlevel::proc_read("tarn/pktcounts").text, "PACKET COUNTS\n---------\n");
    EXPECT_EQ(userlevel::proc_read("tarn/authglobal").text,
              "listening-socket=0.0.0.0:80/0\nhook-http-ports=\nhook-https-ports=\n");
    for (const userlevel::proc_name &entry : userlevel::proc_list("tarn")) {
        userlevel::proc_read("tarn/" + entry.name);
        userlevel::proc_write("tarn/" + entry.name, "1\n");
    }
}

} // namespace
