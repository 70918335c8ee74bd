// Lookups and floods on several CPUs, beside commands that change the graph.
#include "support/frame_builder.h"
#include "support/graph_test.h"

#include "kernel/once.h"
#include "kernel/skb.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_hw.h"

#include <atomic>
#include <thread>

namespace {

constexpr u32 PORTS = 6;
constexpr u32 VIDS[] = {10, 11};

u32 driver_takes(u32, u32, u32, u32, sk_buff *skb, u32, u8, u8) {
    consume_skb(skb);
    return 0;
}

class GraphThreads : public GraphTest {
protected:
    GraphThreads() {
        seams::record().pass_on = true;
        rxtx_hw_register({.start_xmit = driver_takes});
        for (u32 k = 0; k < PORTS; k++)
            forwarding(port_with(101 + k, LINK));
        forwarding(aggregator(201));
        for (u32 vid : VIDS)
            forwarding(vlan(vid));
        userlevel::log_keep(false);
    }
    ~GraphThreads() override {
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

    static void forwarding(tarn_if *ifp) {
        for (u32 &state : ifp->stp_state)
            write_once(state, TARN_STP_FORWARDING);
    }

    // Runs the readers on CPUs of their own while the change is made again and again.
    void beside(const std::vector<std::function<void()>> &readers,
                const std::function<void(u32 turn)> &change, u32 turns = 1500) {
        std::atomic<bool> stop = false;
        std::atomic<u32> rounds = 0;
        std::vector<std::thread> cpus;
        for (const auto &reader : readers)
            cpus.emplace_back([&] {
                while (!stop) {
                    reader();
                    rounds++;
                }
            });
        for (u32 turn = 0; turn < turns; turn++)
            change(turn);
        while (rounds < 100)
            std::this_thread::yield();
        stop = true;
        for (std::thread &cpu : cpus)
            cpu.join();
    }

    static void look_up() {
        for (u32 k = 0; k < PORTS; k++)
            if (tarn_if *port = tarn_ifmgr_lookup_by_index(101 + k)) {
                tarn_if *l3 = tarn_ifmgr_get_matching_L3_port(port, 10);
                tarn_if *logical = tarn_ifmgr_logical_port(port);
                EXPECT_EQ(logical->type, TARN_IF_TYPE_SWITCHPORT);
                tarn_if *out = tarn_ifmgr_get_L2_xmit_port(logical);
                tarn_vlan_port_member_check(port, 10);
                tarn_vlan_egress_tagged(port, 11);
                tarn_ifmgr_if_ref_put(out);
                tarn_ifmgr_if_ref_put(l3);
                tarn_ifmgr_if_ref_put(port);
            }
        tarn_if *lag = tarn_ifmgr_lookup_by_index(201);
        tarn_if *v10 = tarn_ifmgr_lookup_by_vid(10);
        if (lag && v10)
            tarn_ifmgr_isbound(v10, lag);
        tarn_ifmgr_if_ref_put(v10);
        tarn_ifmgr_if_ref_put(lag);
    }
    static void flood() {
        static const Bytes frame = Frame().to("ff:ff:ff:ff:ff:ff").padded();
        for (u32 vid : VIDS) {
            sk_buff *skb = userlevel::frame_make(frame);
            _tarn_flood_software(nullptr, vid, skb, 0, 0, 1, 0);
            kfree_skb(skb);
        }
    }
};

TEST_F(GraphThreads, bindings_links_and_memberships_change_beside_lookups_and_floods) {
    beside({look_up, look_up, flood}, [&](u32 turn) {
        u32 port = 101 + turn % PORTS;
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(port);
        tarn_if *lag = tarn_ifmgr_lookup_by_index(201);
        tarn_if *v10 = tarn_ifmgr_lookup_by_vid(10);
        switch (turn / PORTS % 6) {
        case 0:
            tarn_vlan_add_vlan_to_port(port, 10, turn & 1);
            tarn_vlan_add_vlan_to_port(port, 11, 0);
            break;
        case 1:
            tarn_ifmgr_aggregator_port_attach(201, port);
            tarn_ifmgr_vlan_upstream_if_add(v10, ifp);
            break;
        case 2: {
            u32 was_up = (read_once(ifp->flags) & TARN_IF_LINK) == TARN_IF_LINK;
            write_once(ifp->flags, was_up ? NO_LINK : LINK);
            tarn_ifmgr_L2_link_state_check(ifp, was_up);
            tarn_ifmgr_stp_port_state_set(port, 0, TARN_STP_FORWARDING);
            break;
        }
        case 3:
            tarn_vlan_set_vlan_port_disabled(port, 11, turn & 1);
            tarn_ifmgr_vlan_upstream_if_delete(v10, ifp);
            break;
        case 4:
            if (tarn_ifmgr_isbound(lag, ifp))
                tarn_ifmgr_aggregator_port_detach(lag, ifp);
            break;
        case 5:
            tarn_vlan_delete_vlan_from_port(port, 10);
            tarn_vlan_delete_vlan_from_port_all(ifp);
            break;
        }
        tarn_ifmgr_if_ref_put(v10);
        tarn_ifmgr_if_ref_put(lag);
        tarn_ifmgr_if_ref_put(ifp);
        if (turn % 4 == 0)
            userlevel::work_run();
    });
}

// The last reference may go on any CPU, so that destructors run there.
TEST_F(GraphThreads, ports_end_and_begin_beside_lookups) {
    auto reader = [] {
        for (u32 k = 0; k < PORTS; k++) {
            tarn_if *port = tarn_ifmgr_lookup_by_index(101 + k);
            local_bh_disable();
            tarn_ifmgr_if_ref_put(port); // as on the transmit path
            local_bh_enable();
        }
    };
    beside({reader, reader}, [&](u32 turn) {
        u32 ifindex = 101 + turn % PORTS;
        if (tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex)) {
            tarn_ifmgr_delete_interface(port);
            tarn_ifmgr_if_ref_put(port);
        }
        userlevel::work_run();
        std::string name = "p" + std::to_string(ifindex);
        tarn_ifmgr_switchport_create(name.c_str(), ADDRESS, turn & 1 ? LINK : NO_LINK, 0, ifindex,
                                     0);
        tarn_vlan_add_vlan_to_port(ifindex, 10, 0);
        userlevel::work_run();
    });
}

TEST_F(GraphThreads, vlans_are_replaced_beside_floods) {
    for (u32 k = 0; k < PORTS; k++)
        add_member(port_with(101 + k), 10);
    beside({flood, flood}, [&](u32 turn) {
        tarn_if *made = nullptr;
        EXPECT_EQ(tarn_ifmgr_vlan_create(ADDRESS, 6, &made, 10, 0), 0);
        forwarding(made);
        tarn_vlan_add_vlan_to_port(101 + turn % PORTS, 10, 0);
        userlevel::work_run();
    });
}

} // namespace
