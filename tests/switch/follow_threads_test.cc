// Commands to the core and to the chip, frames, and a chip that comes and goes, all at once: when
// they have ended, the chip is as the core says.
#include "core_on_chip.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_settings.h"

#include <atomic>
#include <thread>

namespace {

constexpr int ROUNDS = 400;
constexpr u32 LAG = 4501;

class FollowThreads : public CoreOnChip {
protected:
    FollowThreads() { records_stay(); }

    // As a home does: whoever delivers holds the device.
    static void deliver(u32 k, const Bytes &frame) {
        chip_device *from = nullptr;
        {
            std::lock_guard hold(home.lock);
            auto at = home.open.find(device(k));
            if (at == home.open.end())
                return;
            from = at->second;
            from->references++;
        }
        chip_receive(from, from->slot, userlevel::frame_make(frame));
        chip_port_put(from);
    }

    static void frames(u32 k) {
        for (int i = 0; i < ROUNDS * 4; i++) {
            Frame frame = Frame().from(i % 2 ? HOST : OTHER).to(i % 3 ? BROADCAST : HOST);
            frame.type(0x88B5);
            deliver(k, i % 5 == 0 ? Bytes(frame.padded()) : Bytes(Frame(frame).padded()));
        }
        std::lock_guard hold(home.lock);
        home.sent.clear();
    }

    static void vlans() {
        u32 bitmap[TARN_VLAN_COUNT / 32] = {~1u, ~0u};
        for (int i = 0; i < ROUNDS; i++) {
            tarn_vlan_add_vlan_to_port_bulk(5001, bitmap, i & 1);
            tarn_vlan_set_vlan_port_disabled(5002, 1, i & 1);
            tarn_vlan_set_ingress_filter(5003, i & 1);
            tarn_vlan_set_default_pvid(5001, static_cast<u16>(1 + i % 3));
            tarn_vlan_delete_vlan_from_port_bulk(5001, bitmap);
        }
    }

    static void spanning_tree() {
        for (int i = 0; i < ROUNDS * 4; i++) {
            tarn_ifmgr_stp_port_state_set(5001 + i % 4, 0, i % 5);
            tarn_ifmgr_stp_vlan_inst_add(i % 2, 1);
        }
    }

    static void aggregators() {
        const u8 mac[6] = {2, 0, 0, 0, 2, 1};
        for (int i = 0; i < ROUNDS; i++) {
            tarn_ifmgr_aggregator_add("lag1", mac, TARN_AGG_TYPE_STATIC, LAG);
            tarn_ifmgr_aggregator_port_attach(LAG, 5003);
            tarn_ifmgr_aggregator_port_attach(LAG, 5004);
            tarn_ifmgr_l3_switchport_set(5002, i % 2 ? 4000 : 0);
            tarn_if *lag = tarn_ifmgr_lookup_by_index(LAG);
            tarn_ifmgr_if_ref_put(lag);
            tarn_ifmgr_delete_interface(lag);
        }
    }

    void the_chip(std::atomic<bool> *ended) {
        while (!*ended) {
            tell("noport 5002");
            tell("port 5002 p2");
            tell("show");
            chip_tick();
        }
    }
};

TEST_F(FollowThreads, the_last_word_is_the_cores) {
    std::atomic<bool> ended{false};
    std::thread chip_words([&] { the_chip(&ended); });
    std::vector<std::thread> threads;
    threads.emplace_back([] { frames(1); });
    threads.emplace_back([] { frames(2); });
    threads.emplace_back(vlans);
    threads.emplace_back(spanning_tree);
    threads.emplace_back(aggregators);
    for (std::thread &thread : threads)
        thread.join();
    ended = true;
    chip_words.join();
    userlevel::work_run();

    home.sent.clear();
    tarn_ifmgr_stp_vlan_inst_delete(1);
    for (u32 k = 1; k <= PORTS; k++) {
        tarn_vlan_add_vlan_to_port(5000 + k, 1, 0);
        tarn_ifmgr_stp_port_state_set(5000 + k, 0, TARN_STP_FORWARDING);
    }
    tarn_ifmgr_l3_switchport_set(5002, 0);
    tarn_vlan_set_vlan_port_disabled(5002, 1, 0);
    tarn_vlan_set_default_pvid(5001, 1);
    receive(1, Frame().to(BROADCAST).type(0x88B5).padded());
    EXPECT_EQ(senders(), "2 3 4");
}

// A follower that is registered while things change misses nothing, and one that has gone hears
// nothing.
TEST_F(FollowThreads, a_follower_may_come_and_go_while_things_change) {
    static std::atomic<bool> registered, stray;
    registered = stray = false;
    const rxtx_follow_callbacks listener{.port = [](u32) { stray = stray || !registered; },
                                         .port_vlans = nullptr,
                                         .port_stp = nullptr,
                                         .vlan =
                                             [](u32 vid) {
                                                 rxtx_follow_vlan told;
                                                 rxtx_follow_vlan_get(vid, &told);
                                                 stray = stray || !registered;
                                             }};
    std::atomic<bool> ended{false};
    std::thread changes([&] {
        while (!ended) {
            tarn_vlan_set_default_pvid(5001, 2);
            tarn_ifmgr_stp_vlan_inst_add(1, 1);
        }
    });
    chip_stop();
    for (int i = 0; i < ROUNDS; i++) {
        registered = true;
        rxtx_follow_register(&listener);
        rxtx_follow_register(nullptr);
        registered = false;
    }
    ended = true;
    changes.join();
    EXPECT_FALSE(stray);
    chip_start();
}

} // namespace
