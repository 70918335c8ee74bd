// Commands that change the graph, beside the thread on which records end, and beside frames.
#include "support/frame_builder.h"
#include "support/graph_test.h"

#include "kernel/once.h"
#include "kernel/preempt.h"
#include "kernel/skb.h"
#include "netlink.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_hw.h"

#include <atomic>
#include <thread>

namespace {

constexpr u32 FIRST_PORT = 101, PORTS = 4, FIRST_LAG = 201, LAGS = 2, FIRST_VID = 10, VIDS = 40;
constexpr u32 TURNS = 400; // of each commander

u32 driver_takes(u32, u32, u32, u32, sk_buff *skb, u32, u8, u8) {
    consume_skb(skb);
    return 0;
}

class ChangeThreads : public GraphTest {
protected:
    ChangeThreads() {
        seams::record().pass_on = true;
        rxtx_hw_register({.start_xmit = driver_takes});
        userlevel::log_keep(false);
        userlevel::work_thread_start();
    }
    ~ChangeThreads() override {
        settle();
        userlevel::log_keep(true);
        userlevel::neigh_flushes_take();
        EXPECT_EQ(graph_problems(), "");
        EXPECT_EQ(count_problems(), "");
        for (tarn_if *ifp : all_records())
            EXPECT_EQ(refcount_read(&ifp->refcnt), ifp->if_flags & TARN_IF_F_VALID ? 1 : 0)
                << ifp->name;
        remember();
    }

    static void make_port(u32 k) {
        std::string name = "p" + std::to_string(k);
        tarn_ifmgr_switchport_create(name.c_str(), ADDRESS, LINK, 0, FIRST_PORT + k, k == 0);
    }
    static void make_aggregator(u32 k) {
        std::string name = "lag" + std::to_string(k);
        tarn_ifmgr_aggregator_add(name.c_str(), ADDRESS, TARN_AGG_TYPE_STATIC, FIRST_LAG + k);
    }
    static void make_vlans(u32 first, u32 count) {
        tarn_if *made = nullptr;
        for (u32 vid = first; vid < first + count; vid++)
            tarn_ifmgr_vlan_create(ADDRESS, 6, &made, static_cast<u16>(vid), 0);
    }
    static void end(u32 ifindex) {
        if (tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex)) {
            tarn_ifmgr_if_ref_put(ifp);
            tarn_ifmgr_delete_interface(ifp);
        }
    }
    static void flap(u32 ifindex) {
        tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
        if (!port)
            return;
        for (u32 flags : {NO_LINK, LINK}) {
            u32 was_up = (read_once(port->flags) & TARN_IF_LINK) == TARN_IF_LINK;
            write_once(port->flags, flags);
            tarn_ifmgr_L2_link_state_check(port, was_up);
        }
        tarn_ifmgr_if_ref_put(port);
    }
    static void detach(u32 lag_ifindex, u32 port_ifindex) {
        tarn_if *lag = tarn_ifmgr_lookup_by_index(lag_ifindex);
        tarn_if *port = tarn_ifmgr_lookup_by_index(port_ifindex);
        if (lag && port && tarn_ifmgr_isbound(lag, port))
            tarn_ifmgr_aggregator_port_detach(lag, port);
        tarn_ifmgr_if_ref_put(port);
        tarn_ifmgr_if_ref_put(lag);
    }
    static const u32 *every_vid() {
        static const std::vector<u32> words(TARN_VLAN_COUNT / 32, ~0u);
        return words.data();
    }

    // One command, of those that come one at a time.
    static void command(u32 turn) {
        std::lock_guard guard(userlevel::netlink_serial());
        u32 port = FIRST_PORT + turn / 3 % PORTS, lag = FIRST_LAG + turn / 5 % LAGS;
        u32 vid = FIRST_VID + turn * 7 % VIDS;
        switch (turn % 12) {
        case 0:
            return make_vlans(FIRST_VID, VIDS / 2);
        case 1:
            for (u32 each = FIRST_VID; each < FIRST_VID + VIDS; each++)
                tarn_vlan_add_vlan_to_port(turn & 1 ? lag : port, each, turn & 1);
            return;
        case 2:
        case 6:
            return flap(port);
        case 3:
            tarn_ifmgr_aggregator_port_attach(lag, port);
            return;
        case 4:
            for (u32 each = vid; each < vid + 10; each++)
                end(TARN_IF_VLAN_BASE + each); // some are waiting for their update, held
            return;
        case 5:
            return make_vlans(vid, 5);
        case 7:
            return detach(lag, port);
        case 8:
            tarn_vlan_delete_vlan_from_port_bulk(turn & 16 ? lag : port, every_vid());
            return;
        case 9:
            tarn_vlan_delete_vlan_from_port(lag, vid);
            return;
        case 10:
            end(turn & 32 ? port : lag);
            return;
        case 11:
            for (u32 k = 0; k < PORTS; k++)
                make_port(k);
            for (u32 k = 0; k < LAGS; k++)
                make_aggregator(k);
            return;
        }
    }

    // As frames do: held for a while, and let go where nobody may sleep.
    static void hold() {
        std::vector<tarn_if *> held;
        for (u32 vid = FIRST_VID; vid < FIRST_VID + VIDS; vid += 3)
            held.push_back(tarn_ifmgr_lookup_by_vid(vid));
        for (u32 k = 0; k < PORTS; k++)
            held.push_back(tarn_ifmgr_lookup_by_index(FIRST_PORT + k));
        for (u32 k = 0; k < LAGS; k++)
            held.push_back(tarn_ifmgr_lookup_by_index(FIRST_LAG + k));
        std::this_thread::yield();
        local_bh_disable();
        for (tarn_if *ifp : held)
            tarn_ifmgr_if_ref_put(ifp);
        local_bh_enable();
    }
    static void pass() {
        static const Bytes frame = Frame().to("ff:ff:ff:ff:ff:ff").padded();
        sk_buff *skb = userlevel::frame_make(frame);
        _tarn_flood_software(nullptr, FIRST_VID, skb, 0, 0, 1, 0);
        kfree_skb(skb);
        for (u32 k = 0; k < PORTS; k++)
            if (tarn_if *port = tarn_ifmgr_lookup_by_index(FIRST_PORT + k)) {
                tarn_ifmgr_if_ref_put(tarn_ifmgr_get_matching_L3_port(port, FIRST_VID));
                tarn_ifmgr_if_ref_put(tarn_ifmgr_get_L2_xmit_port(tarn_ifmgr_logical_port(port)));
                tarn_ifmgr_if_ref_put(port);
            }
    }
};

// The last reference of each VLAN is on the list of those whose devices are still to be told of a
// link, so that the thread that works ends them while they are moved from port to aggregator and
// back.
TEST_F(ChangeThreads, vlans_end_while_their_ports_join_and_leave_an_aggregator) {
    constexpr u32 ROUNDS = 15, MANY = 300;
    make_port(0);
    make_aggregator(0);
    for (u32 round = 0; round < ROUNDS; round++) {
        make_vlans(FIRST_VID, MANY);
        tarn_vlan_add_vlan_to_port_bulk(round & 1 ? FIRST_LAG : FIRST_PORT, every_vid(), 1);
        if (round & 1)
            tarn_ifmgr_aggregator_port_attach(FIRST_LAG, FIRST_PORT);
        flap(FIRST_PORT);
        for (u32 vid = FIRST_VID; vid < FIRST_VID + MANY; vid++)
            end(TARN_IF_VLAN_BASE + vid);
        for (u32 turn = 0; turn < 10; turn++) {
            tarn_ifmgr_aggregator_port_attach(FIRST_LAG, FIRST_PORT);
            detach(FIRST_LAG, FIRST_PORT);
        }
    }
}

// A frame has the last reference of the member.
TEST_F(ChangeThreads, the_last_member_of_an_aggregator_ends_while_its_vlans_change) {
    constexpr u32 ROUNDS = 60;
    std::atomic<bool> stop = false;
    std::thread frames([&] {
        while (!stop)
            hold();
    });
    make_vlans(FIRST_VID, VIDS);
    make_aggregator(0);
    for (u32 round = 0; round < ROUNDS; round++) {
        make_port(0);
        tarn_ifmgr_aggregator_port_attach(FIRST_LAG, FIRST_PORT);
        tarn_vlan_add_vlan_to_port_bulk(FIRST_LAG, every_vid(), 1);
        end(FIRST_PORT);
        tarn_vlan_delete_vlan_from_port_bulk(FIRST_LAG, every_vid());
        tarn_vlan_add_vlan_to_port_bulk(FIRST_LAG, every_vid(), 0);
    }
    stop = true;
    frames.join();
}

TEST_F(ChangeThreads, everything_comes_and_goes_beside_the_ends_of_everything) {
    std::atomic<bool> stop = false;
    std::vector<std::thread> all;
    for (auto frame : {hold, hold, pass})
        all.emplace_back([&stop, frame] {
            while (!stop)
                frame();
        });
    std::thread other([] {
        for (u32 turn = 0; turn < TURNS; turn++)
            command(turn * 5 + 3);
    });
    for (u32 turn = 0; turn < TURNS; turn++)
        command(turn);
    other.join();
    stop = true;
    for (std::thread &one : all)
        one.join();
}

TEST_F(ChangeThreads, a_count_that_two_contexts_raise_and_lower_is_exact) {
    tarn_if *lag = aggregator(FIRST_LAG);
    _tarn_ifmgr_op_count_post(lag, TARN_OP_RAISE, 100);
    std::vector<std::thread> all;
    for (u32 k = 0; k < 2; k++)
        all.emplace_back([=] {
            for (u32 turn = 0; turn < 50000; turn++) {
                _tarn_ifmgr_op_count_post(lag, TARN_OP_RAISE, 1);
                _tarn_ifmgr_op_count_post(lag, TARN_OP_LOWER, 1);
            }
        });
    for (std::thread &one : all)
        one.join();
    EXPECT_EQ(lag->oper_count, 100);
    lag->oper_count = 0;
}

// Each count is what the running ports come to, whoever changed it meanwhile.
TEST_F(ChangeThreads, links_and_bindings_change_in_several_contexts_and_no_count_is_lost) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *lag = aggregator(FIRST_LAG);
    bind(v10, lag);
    std::vector<std::thread> all;
    for (u32 k = 0; k < PORTS; k++) {
        tarn_if *port = port_with(FIRST_PORT + k, LINK);
        add_member(port, 10);
        attach(lag, port);
    }
    for (u32 k = 0; k < PORTS; k++)
        all.emplace_back([k] {
            for (u32 turn = 0; turn < 1000; turn++)
                flap(FIRST_PORT + k);
        });
    for (u32 turn = 0; turn < 1000; turn++) {
        tarn_ifmgr_bind(v11, lag);
        tarn_ifmgr_unbind(v11, lag);
    }
    for (std::thread &one : all)
        one.join();
    settle();
    EXPECT_EQ(v10->oper_count, PORTS);
    EXPECT_EQ(v11->oper_count, 0);
}

} // namespace
