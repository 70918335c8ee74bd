// A loaded module with the plainest switch, for tests:
//
//   TEST_F(SwitchTest, a_behaviour_in_words) {
//       receive(Frame().from("ff:ff:ff:ff:ff:ff"));
//       EXPECT_EQ(redirect("l2drop").stop_reasons[1], 1u);
//   }
//
// One port (port1), VLAN 1 with its interface, the port a member. A test adds what else it needs.
// Each test ends with a leak check: no buffer, no allocation and no reference may be left that was
// not there when the test body began, apart from what configure() did; each interface record must
// be one that the database knows; and the log must have been taken, or be empty.
#pragma once

#include "support/frame_builder.h"
#include "support/seams.h"

#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/skb.h"
#include "pkt/frame.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_redirect.h"
#include "pkt/pkt_rx.h"
#include "plain_switch/plain_switch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>

// A redirect that a test puts in an empty slot, or in place of a registered one.
struct Probe {
    std::function<void(tarn_pkt_info &, redirect_instruct &)> match;
    std::function<sk_buff *(sk_buff *, tarn_post_info &)> post;
    int matched = 0;
    int posted = 0;
    tarn_pkt_info seen{}; // at the last match
    Bytes bytes;          // of the frame at the last match
};

// What a frame arrives with.
struct Arrival {
    u32 port = 1; // 0: an ifindex that nobody has
    u32 vid = 1;
    tarn_rx_meta meta = {.debug = 1, .flood_except = {FLOOD_NO_EXCEPTION, 0}};
    u32 port_word = 0;
    u32 mark = 0;
};

class SwitchTest : public ::testing::Test {
protected:
    SwitchTest();
    ~SwitchTest() override;

    // Runs a change of the switch whose allocations are there to stay.
    template <typename Change>
    auto configure(Change change) {
        expect_nothing_leaked();
        if constexpr (std::is_void_v<decltype(change())>) {
            change();
            remember();
        } else {
            auto result = change();
            remember();
            return result;
        }
    }

    tarn_if *add_port(u32 k);
    tarn_if *add_vlan(u32 vid);
    tarn_if *port1() { return port1_; }
    tarn_if *vlan1() { return vlan1_; }
    // Binds the port under a new aggregator, type 3, of that ifindex.
    tarn_if *add_aggregator_over(tarn_if *port, u32 ifindex);

    // Offers the frame as the driver does. A frame that the module leaves is freed.
    u32 receive(const Bytes &frame, const Arrival &arrival = {});
    u32 receive_skb(sk_buff *skb, const Arrival &arrival = {});
    // A frame whose mark can be read after modify_rx hooks: kept alive by a clone.
    u32 mark_after(const Bytes &frame, const Arrival &arrival);

    packet_redirect &redirect(const std::string &name);
    Probe &probe(u32 slot = 48); // 48 is asked last, 27 in the middle
    // What the parsers made of a frame.
    tarn_pkt_info classify(const Bytes &frame, const Arrival &arrival = {});

    // The log lines since the last call, "<level> <text>".
    std::vector<std::string> log();
    seams::Record &calls() { return seams::record(); }

    void expect_nothing_leaked();
    // From here on, what is there now is what is expected.
    void remember();

private:
    tarn_if *port1_ = nullptr;
    tarn_if *vlan1_ = nullptr;
    userlevel::snapshot before_;
    std::map<tarn_if *, i32> references_;
};

// The text that a view prints.
std::string printed(const std::function<void(seq_file *)> &print);
