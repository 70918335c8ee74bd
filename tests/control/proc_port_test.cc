// The directory of a port: when it is there, and its files.
#include "control/proc_test.h"

#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "vlan/vlan_bits.h"

#include <sys/stat.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char *const FILES[] = {"auth", "authfwd", "authsupp", "disablevlans", "openflow", "bridge"};

class ProcPortTest : public ProcTest {
protected:
    tarn_if *add_aggregator(const char *name, u32 ifindex) {
        return configure([=] {
            const u8 address[6] = {2, 0, 0, 0, 2, 1};
            EXPECT_EQ(tarn_ifmgr_aggregator_add(name, address, TARN_AGG_TYPE_STATIC, ifindex), 0);
            tarn_if *aggregator = tarn_ifmgr_lookup_by_index(ifindex);
            tarn_ifmgr_if_ref_put(aggregator);
            return aggregator;
        });
    }
    void attach(tarn_if *aggregator, tarn_if *port) {
        configure([=] {
            EXPECT_EQ(tarn_ifmgr_aggregator_port_attach(aggregator->ifindex, port->ifindex), 0);
            userlevel::work_run();
        });
    }
    void detach(tarn_if *aggregator, tarn_if *port) {
        configure([=] {
            EXPECT_EQ(tarn_ifmgr_aggregator_port_detach(aggregator, port), 0);
            userlevel::work_run();
        });
    }
    void destroy(tarn_if *ifp) {
        configure([=] { tarn_ifmgr_delete_interface(ifp); });
    }
    bool all_disabled(bool wanted) {
        for (u32 vid = 1; vid <= 4094; vid++)
            if (vlan_bit(port()->vlan_disabled_bmp, vid) != wanted)
                return false;
        return !vlan_bit(port()->vlan_disabled_bmp, 0) &&
               !vlan_bit(port()->vlan_disabled_bmp, 4095);
    }
};

// --- names -----------------------------------------------------------------------------------

TEST_F(ProcPortTest, ports_and_aggregators_have_a_directory_and_others_have_none) {
    add_aggregator("lag1", 6001);
    for (const char *file : FILES) {
        EXPECT_TRUE(exists(std::string("if5011/") + file)) << file;
        EXPECT_TRUE(exists(std::string("lag1/") + file)) << file;
    }
    EXPECT_FALSE(exists("vlan1/bridge"));
    EXPECT_FALSE(exists("lag1/members"));
}

TEST_F(ProcPortTest, a_name_that_no_directory_can_have_gives_none) {
    std::size_t before = userlevel::proc_list("tarn").size();
    u32 ifindex = 5100;
    for (const char *name : {"a/b", "", ".", "..", "/", "tarn/x"}) {
        tarn_if *port = add_named(name, ++ifindex);
        EXPECT_EQ(_module_create_proc_if(port), -1) << name;
        EXPECT_EQ(_module_bind_add_proc_if(port), -1) << name;
        EXPECT_EQ(_module_unbind_del_proc_if(port), 0) << name;
        destroy(port);
    }
    EXPECT_EQ(userlevel::proc_list("tarn").size(), before);
    for (const char *name : {"...", ".a", "a b", "port 1"})
        EXPECT_TRUE(exists(std::string((add_named(name, ++ifindex), name)) + "/bridge")) << name;
}

TEST_F(ProcPortTest, a_name_that_is_taken_stays_with_who_has_it) {
    tarn_if *twin = add_named("if5011", 5012);
    EXPECT_EQ(twin->proc_directory, nullptr);
    port()->openflow = 1;
    EXPECT_EQ(show("if5011/openflow"), "1\n");
    destroy(twin);
    EXPECT_EQ(show("if5011/openflow"), "1\n");
    port()->openflow = 0;
}

TEST_F(ProcPortTest, the_names_of_the_files_of_the_switch_are_taken) {
    u32 ifindex = 5100;
    for (const char *name : {"ifdb", "txmodifycounts", "authglobal", "qoro", "qoro_update"})
        EXPECT_EQ(add_named(name, ++ifindex)->proc_directory, nullptr) << name;
    EXPECT_NE(add_named("ifdb2", ++ifindex)->proc_directory, nullptr);
    EXPECT_NE(add_named("ifd", ++ifindex)->proc_directory, nullptr);
    EXPECT_THAT(show("ifdb"), ::testing::StartsWith("Interface "));
}

TEST_F(ProcPortTest, a_name_of_16_characters_is_whole) {
    tarn_if *port = add_named("a-name-of-16-bytes", 5012);
    EXPECT_THAT(show("a-name-of-16-byt/bridge"), ::testing::StartsWith("00: Blocking\n"));
    EXPECT_EQ(add_named("a-name-of-16-byt", 5013)->proc_directory, nullptr);
    destroy(port);
    EXPECT_FALSE(exists("a-name-of-16-byt/bridge"));
}

// --- when it is there --------------------------------------------------------------------------

TEST_F(ProcPortTest, the_directory_goes_with_the_last_reference) {
    tarn_if *held = tarn_ifmgr_lookup_by_index(5011);
    tarn_ifmgr_delete_interface(port());
    EXPECT_TRUE(exists("if5011/bridge"));
    tarn_ifmgr_if_ref_put(held);
    EXPECT_FALSE(exists("if5011/bridge"));
    remember();
    EXPECT_EQ(add_named("if5011", 5011), port());
    EXPECT_TRUE(exists("if5011/bridge"));
}

TEST_F(ProcPortTest, a_record_dropped_without_being_deleted_leaves_its_directory_to_the_next) {
    tarn_ifmgr_if_ref_put(port());
    EXPECT_THAT(log(), ElementsAre("3 Invalid deletion of interface if5011\n"));
    EXPECT_TRUE(exists("if5011/bridge"));
    remember();
    userlevel::snapshot before = userlevel::take_snapshot();
    const u8 address[6] = {2, 0, 0, 0, 1, 11};
    ASSERT_EQ(tarn_ifmgr_switchport_create("other", address, 0x3, 0, 5011, 0), 0);
    EXPECT_FALSE(exists("if5011/bridge"));
    EXPECT_TRUE(exists("other/bridge"));
    EXPECT_EQ(userlevel::leaked_since(before).size(), 7u); // the new entries
    remember();
    destroy(port());
    EXPECT_FALSE(exists("other/bridge"));
}

TEST_F(ProcPortTest, what_was_made_stays_when_an_entry_cannot_be_made) {
    tarn_if *port = add_named("part", 5012);
    for (u32 fails = 0; fails < 6; fails++) {
        module_remove_proc_if(port);
        userlevel::fail_allocation(2 + fails); // after the directory
        EXPECT_EQ(_module_create_proc_if(port), -1);
        EXPECT_THAT(log(),
                    ElementsAre(std::string("2 Failed to create proc entry /proc/tarn/part/") +
                                FILES[fails] + "\n"));
        for (u32 i = 0; i < 6; i++)
            EXPECT_EQ(exists(std::string("part/") + FILES[i]), i < fails) << FILES[i];
    }
    module_remove_proc_if(port);
    userlevel::fail_allocation(1);
    EXPECT_EQ(_module_create_proc_if(port), -1);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(_module_create_proc_if(port), 0);
    EXPECT_EQ(_module_create_proc_if(port), -1); // it has one
    EXPECT_THAT(log(), IsEmpty());
    remember();
}

// --- members -----------------------------------------------------------------------------------

TEST_F(ProcPortTest, members_are_there_from_the_first_to_the_last) {
    tarn_if *aggregator = add_aggregator("lag1", 6001);
    EXPECT_FALSE(exists("lag1/members"));
    attach(aggregator, port1());
    EXPECT_EQ(show("lag1/members"), "port1\n");
    attach(aggregator, port());
    EXPECT_EQ(show("lag1/members"), "if5011\nport1\n");
    detach(aggregator, port1());
    EXPECT_EQ(show("lag1/members"), "if5011\n");
    detach(aggregator, port());
    EXPECT_FALSE(exists("lag1/members"));
    attach(aggregator, port());
    EXPECT_TRUE(exists("lag1/members"));
    detach(aggregator, port());
}

TEST_F(ProcPortTest, members_can_be_written_by_their_mode_and_take_nothing) {
    tarn_if *aggregator = add_aggregator("lag1", 6001);
    attach(aggregator, port());
    std::map<std::string, u32> modes;
    for (const userlevel::proc_name &entry : userlevel::proc_list("tarn/lag1"))
        modes[entry.name] = entry.mode;
    EXPECT_EQ(modes["members"], S_IFREG | 0666u);
    EXPECT_EQ(store("lag1/members", "port1\n"), -EIO);
    detach(aggregator, port());
}

TEST_F(ProcPortTest, a_member_that_is_not_valid_is_left_out) {
    tarn_if *aggregator = add_aggregator("lag1", 6001);
    attach(aggregator, port1());
    attach(aggregator, port());
    port()->if_flags &= ~TARN_IF_F_VALID;
    EXPECT_EQ(show("lag1/members"), "port1\n");
    port()->if_flags |= TARN_IF_F_VALID;
    detach(aggregator, port());
    detach(aggregator, port1());
}

TEST_F(ProcPortTest, a_binding_without_memory_for_members_is_a_binding) {
    tarn_if *aggregator = add_aggregator("lag1", 6001);
    userlevel::fail_allocation(1);
    attach(aggregator, port());
    EXPECT_THAT(log(), ElementsAre("2 Failed to create proc entry /proc/tarn/lag1/members\n"));
    EXPECT_FALSE(exists("lag1/members"));
    EXPECT_EQ(tarn_ifmgr_isbound(aggregator, port()), 1u);
    detach(aggregator, port());
}

TEST_F(ProcPortTest, a_second_first_member_finds_the_file_there) {
    tarn_if *aggregator = add_aggregator("lag1", 6001);
    configure([=] {
        EXPECT_EQ(_module_bind_add_proc_if(aggregator), 0);
        EXPECT_EQ(_module_bind_add_proc_if(aggregator), 0);
    });
    EXPECT_EQ(show("lag1/members"), "");
    configure([=] { EXPECT_EQ(_module_unbind_del_proc_if(aggregator), 0); });
    EXPECT_FALSE(exists("lag1/members"));
}

TEST_F(ProcPortTest, the_members_go_with_the_aggregator) {
    tarn_if *aggregator = add_aggregator("lag1", 6001);
    attach(aggregator, port());
    destroy(aggregator);
    EXPECT_FALSE(exists("lag1/members"));
    EXPECT_FALSE(exists("lag1/bridge"));
    log();
}

// --- bridge, openflow, disablevlans --------------------------------------------------------------

TEST_F(ProcPortTest, bridge_names_each_state) {
    for (u32 i = 0; i < 6; i++)
        port()->stp_state[i] = i;
    port()->stp_state[63] = 0xFFFFFFFF;
    std::string text = show("if5011/bridge");
    EXPECT_THAT(text, ::testing::StartsWith("00: Disabled\n01: Listening\n02: Learning\n"
                                            "03: Forwarding\n04: Blocking\n05: Unknown\n"
                                            "06: Blocking\n"));
    EXPECT_THAT(text, ::testing::EndsWith("\n62: Blocking\n63: Unknown\n"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 64);
}

TEST_F(ProcPortTest, openflow_of_an_aggregator_is_that_of_its_members) {
    tarn_if *aggregator = add_aggregator("lag1", 6001);
    attach(aggregator, port());
    EXPECT_EQ(store("lag1/openflow", "5"), 1);
    EXPECT_EQ(show("if5011/openflow"), "5\n");
    attach(aggregator, port1());
    EXPECT_EQ(show("port1/openflow"), "5\n"); // who joins takes it over
    EXPECT_EQ(store("if5011/openflow", "1"), 1);
    EXPECT_EQ(show("port1/openflow"), "5\n");
    EXPECT_EQ(show("lag1/openflow"), "5\n");
    EXPECT_EQ(store("lag1/openflow", "0\n"), 2);
    EXPECT_EQ(show("port1/openflow") + show("if5011/openflow"), "0\n0\n");
    detach(aggregator, port());
    detach(aggregator, port1());
}

TEST_F(ProcPortTest, a_1_disables_all_vlans_and_anything_else_enables_them) {
    EXPECT_EQ(store("if5011/disablevlans", "1"), 1);
    EXPECT_TRUE(all_disabled(true));
    EXPECT_EQ(store("if5011/disablevlans", "10"), 2);
    EXPECT_TRUE(all_disabled(false));
    EXPECT_EQ(show("if5011/disablevlans"), "00000010\n");
    EXPECT_EQ(store("if5011/disablevlans", "0x1"), 3);
    EXPECT_TRUE(all_disabled(true));
    EXPECT_EQ(store("if5011/disablevlans", ""), 0);
    EXPECT_TRUE(all_disabled(false));
}

TEST_F(ProcPortTest, disablevlans_of_a_port_that_is_being_deleted_is_kept_and_does_nothing) {
    tarn_if *held = tarn_ifmgr_lookup_by_index(5011);
    tarn_ifmgr_delete_interface(port());
    EXPECT_EQ(store("if5011/disablevlans", "1"), 1);
    EXPECT_TRUE(all_disabled(false));
    EXPECT_EQ(show("if5011/disablevlans"), "00000001\n");
    tarn_ifmgr_if_ref_put(held);
    remember();
}

TEST_F(ProcPortTest, bytes_that_cannot_be_copied_are_a_fault) {
    for (const char *file : {"auth", "authsupp", "disablevlans", "openflow"})
        EXPECT_EQ(userlevel::proc_write(std::string("tarn/if5011/") + file, nullptr, 1), -EFAULT)
            << file;
}

} // namespace
