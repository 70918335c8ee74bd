// Frames from several CPUs at once, beside somebody who changes the switch.
#include "support/frame_builder.h"

#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/once.h"
#include "kernel/skb.h"
#include "module/tarn_module.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_redirect.h"
#include "pkt/pkt_rx.h"
#include "plain_switch/plain_switch.h"
#include "redirects/redirects.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace {

constexpr int THREADS = 3;
constexpr int FRAMES = 3000;

void deliver(u32 port) {
    const Bytes frames[] = {Frame().from("ff:ff:ff:ff:ff:ff"), Frame().tag(1).ipv4({}),
                            Frame().ipv6({.next = 0}).bytes({58, 0, 5, 2, 0, 0, 1, 0}),
                            Frame().type(0x8863)};
    tarn_rx_meta meta{};
    meta.debug = 1;
    for (int i = 0; i < FRAMES; i++) {
        sk_buff *skb = userlevel::frame_make(frames[i % 4]);
        EXPECT_EQ(rxtx_hw_packet_recv(skb, plain_switch::FIRST_PORT_IFINDEX + port, 1, &meta), 0u);
    }
}

void change(const std::atomic<bool> &stop) {
    for (u32 i = 0; !stop; i++) {
        enable_redirect_by_name("pppoe", i & 1);
        tarn_rmirror_set_mirror_vlan(7, i & 1);
        write_once(tarn_pkt_debug, i % 64 == 0);
        write_once(slave_only_debug_override, i & 1);
        write_once(tarn_pkt_low_mem_normal_return, i & 1);
        userlevel::view view;
        print_redirect_counters(REDIRECT_COUNTERS_RX, view.file());
        if (i % 16 == 0)
            tarn_pkt_redirect_clear_counters(47);
        std::this_thread::yield();
    }
}

TEST(ReceiveThreads, frames_from_several_cpus_are_all_accounted_for) {
    ASSERT_EQ(init_module(), 0);
    for (u32 k = 1; k <= THREADS; k++)
        plain_switch::add_member(plain_switch::add_port(k), 1);
    tarn_if *vlan = plain_switch::add_vlan(1);
    auto before = userlevel::take_snapshot();

    std::atomic<bool> stop = false;
    std::thread changer(change, std::cref(stop));
    std::vector<std::thread> drivers;
    for (u32 k = 1; k <= THREADS; k++)
        drivers.emplace_back(deliver, k);
    for (std::thread &driver : drivers)
        driver.join();
    stop = true;
    changer.join();

    EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before)), "");
    EXPECT_EQ(refcount_read(&vlan->refcnt), 1);
    // Counters may lose a count, and gain none.
    u32 stops = packet_redirects[7]->stops;
    EXPECT_GT(stops, 0u);
    EXPECT_LE(stops, static_cast<u32>(THREADS * FRAMES / 4));
    userlevel::log_take();
}

} // namespace
