// A switch whose interfaces a test makes itself, with a check of the whole bind graph at its end:
//
//   TEST_F(GraphTest, a_behaviour_in_words) {
//       tarn_if *lag = aggregator(7001);
//       tarn_if *port = port_with(5101, LINK);
//       bind(lag, port);
//       EXPECT_EQ(lag->oper_count, 1);
//   }
//
// Interfaces made here are there to stay; port1 and vlan1 of SwitchTest are there too. What a call
// leaves queued is run where the test says settle().
#pragma once

#include "support/ifmgr_calls.h"
#include "support/switch_test.h"

#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_destroy.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "ifmgr/tarn_ifmgr_update.h"
#include "kernel/netdev.h"
#include "pkt/pkt_calls.h"
#include "vlan/vlan_member.h"

// Flags of a port that is up and runs; is up; is down.
inline constexpr u32 LINK = 0x1043;
inline constexpr u32 NO_LINK = 0x1003;
inline constexpr u32 DOWN = 0x1002;

inline constexpr u8 ADDRESS[6] = {2, 0, 0, 0, 7, 1};

// VLANs as the daemon names many of them, bit by bit.
struct Bitmap {
    u32 words[TARN_VLAN_COUNT / 32] = {};
    Bitmap(std::initializer_list<u32> vids);
};
std::vector<u32> vids_in(const u32 *bitmap);

// Every record that the database ever had, in the order of their ifindexes.
std::vector<tarn_if *> all_records();

// The interfaces of a list, in its order.
std::vector<tarn_if *> named_by(const tarn_ifmgr_list_node *list);

// What is wrong with the graph, a line for each; "" when it is whole: both nodes of each binding
// are there, between records of the database, none of a destroyed record; nodes that are on no list
// are lost.
std::string graph_problems();
// What is wrong with the counts: each the sum of those below, 1 for a running leaf.
std::string count_problems();

class GraphTest : public SwitchTest {
protected:
    ~GraphTest() override;

    tarn_if *port_with(u32 ifindex, u32 flags = NO_LINK, u8 with_netdev = 0);
    tarn_if *aggregator(u32 ifindex, u32 type = TARN_AGG_TYPE_STATIC);
    tarn_if *vlan(u32 vid, u32 options = 0);
    tarn_if *ethernet(u32 ifindex, const char *name, u32 flags = 0);

    void bind(tarn_if *parent, tarn_if *child);
    void add_member(tarn_if *port, u32 vid, u32 tagged = 0);
    void attach(tarn_if *aggregator, tarn_if *port);
    // As the link command does: overwritten, and acted upon.
    void set_flags(tarn_if *port, u32 flags);
    // Runs what is queued; how many items that were.
    u32 settle();

    // As the delete command does: looked up, and both references dropped. Nothing may leak.
    void remove(tarn_if *ifp);
    // Interfaces waiting for the update of their layer 3 state, in the order of the list.
    std::vector<tarn_if *> waiting();
    // The log so far is of no interest.
    void forget_log() { log(); }

    bool graph_is_broken_on_purpose = false;
};
