// Changes of the graph: one at a time, and who may walk it.
#include "support/graph_test.h"

#include "kernel/preempt.h"

#include <atomic>
#include <thread>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Change : public GraphTest {
protected:
    // The last reference goes.
    void end(tarn_if *ifp) {
        tarn_if *found = tarn_ifmgr_lookup_by_index(ifp->ifindex);
        ASSERT_EQ(found, ifp);
        tarn_ifmgr_if_ref_put(found);
        tarn_ifmgr_delete_interface(found);
    }
};

TEST_F(Change, what_ends_inside_one_is_torn_down_at_the_end_of_the_outermost) {
    tarn_if *port = port_with(77);
    add_member(port, 1);
    auto calls = seams::calls_of([&] {
        tarn_ifmgr_change_begin();
        tarn_ifmgr_change_begin();
        end(port);
        tarn_ifmgr_change_end();
        EXPECT_THAT(seams::ifmgr().trace, IsEmpty());
        EXPECT_THAT(named_by(port->parents), ElementsAre(vlan1()));
        tarn_ifmgr_change_end();
    });
    EXPECT_THAT(calls, ElementsAre("delete_all p77", "unbind vlan1 p77", "remove_proc p77"));
    remember();
}

TEST_F(Change, what_waits_is_torn_down_before_the_first_change) {
    tarn_if *port = port_with(77), *v10 = vlan(10);
    add_member(port, 10);
    local_bh_disable();
    end(v10);
    local_bh_enable();
    EXPECT_THAT(named_by(port->parents), ElementsAre(v10));
    auto calls = seams::calls_of([&] { tarn_vlan_add_vlan_to_port(77, 1, 0); });
    EXPECT_THAT(calls,
                ElementsAre("unbind_vlan vlan10 p77 1", "unbind vlan10 p77",
                            "flags_set vlan10 0x1003", "unconfigure vlan10", "bind vlan1 p77"));
    EXPECT_THAT(log(), ElementsAre("4 Child interface p77 found while deleting vlan10\n"));
    EXPECT_THAT(named_by(port->parents), ElementsAre(vlan1()));
    settle();
    userlevel::neigh_flushes_take();
    remember();
}

TEST_F(Change, another_waits_for_its_end) {
    tarn_if *v10 = vlan(10), *port = port_with(77);
    std::atomic<bool> bound = false;
    tarn_ifmgr_change_begin();
    EXPECT_TRUE(tarn_ifmgr_is_changing());
    std::thread other([&] {
        EXPECT_FALSE(tarn_ifmgr_is_changing());
        tarn_ifmgr_bind(v10, port);
        bound = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(bound);
    tarn_ifmgr_change_end();
    EXPECT_FALSE(tarn_ifmgr_is_changing());
    other.join();
    EXPECT_EQ(tarn_ifmgr_isbound(v10, port), 1u);
    settle();
    remember();
}

// --- who may walk --------------------------------------------------------------------------------

TEST_F(Change, the_lists_are_for_those_inside_one_and_for_those_with_the_lock) {
    if (!LOCKDEP)
        GTEST_SKIP() << "nobody keeps account in this build";
    EXPECT_FALSE(tarn_ifmgr_may_walk());
    EXPECT_DEATH(tarn_ifmgr_parents(port1()), "kernel BUG");
    EXPECT_DEATH(tarn_ifmgr_children(vlan1()), "kernel BUG");

    tarn_ifmgr_change_begin();
    EXPECT_EQ(tarn_ifmgr_parents(port1())->ifp, vlan1());
    tarn_ifmgr_change_end();
    read_lock_bh(&tarn_if_db_lock);
    EXPECT_EQ(tarn_ifmgr_children(vlan1())->ifp, port1());
    read_unlock_bh(&tarn_if_db_lock);
    write_lock_bh(&tarn_if_db_lock);
    EXPECT_EQ(tarn_ifmgr_parents(port1())->ifp, vlan1());
    write_unlock_bh(&tarn_if_db_lock);
    EXPECT_FALSE(tarn_ifmgr_may_walk());
}

} // namespace
