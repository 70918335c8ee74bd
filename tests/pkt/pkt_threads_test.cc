// Frames from several CPUs at once, beside somebody who changes the switch.
#include "support/frame_builder.h"

#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/once.h"
#include "kernel/skb.h"
#include "kernel/vmstat.h"
#include "module/tarn_module.h"
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_redirect.h"
#include "pkt/pkt_rx.h"
#include "plain_switch/plain_switch.h"
#include "redirects/redirects.h"

#include <atomic>
#include <barrier>
#include <cstdio>
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
        meta.local = i % 8 == 3;
        EXPECT_EQ(rxtx_hw_packet_recv(skb, plain_switch::FIRST_PORT_IFINDEX + port, 1, &meta), 0u);
    }
}

// What a daemon tells of VLAN 1, and of a port that is routed now and then.
void set_interfaces(u32 i) {
    const u32 vlan = TARN_IF_VLAN_BASE + 1, routed = plain_switch::FIRST_PORT_IFINDEX + 1;
    const u8 addresses[2][6] = {{2, 0, 0, 0, 0, 1}, {6, 5, 4, 3, 2, 1}};
    tarn_ifmgr_set_hwaddr(vlan, 6, addresses[i & 1]);
    tarn_ifmgr_set_hwaddr(routed, 6, addresses[i & 1]);
    tarn_ifmgr_l3_switchport_set(routed, static_cast<u16>(i % 3 == 0 ? 0 : 4000 + i % 3));
    tarn_ifmgr_if_bind_fib(vlan, i);
    if (tarn_if *ifp = tarn_ifmgr_lookup_by_index(vlan)) {
        tarn_ifmgr_set_vlan_options(ifp, i & 0x20);
        tarn_ifmgr_if_ref_put(ifp);
    }
}

void change(const std::atomic<bool> &stop) {
    for (u32 i = 0; !stop; i++) {
        enable_redirect_by_name("pppoe", i & 1);
        tarn_rmirror_set_mirror_vlan(7, i & 1);
        write_once(tarn_pkt_debug, i % 64 == 0);
        write_once(slave_only_debug_override, i & 1);
        write_once(tarn_pkt_low_mem_normal_return, i & 1);
        set_interfaces(i);
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
    pkt_candidates_sum_up();
    EXPECT_EQ(packet_redirects[7]->stops, static_cast<u32>(THREADS * FRAMES / 4));
    userlevel::log_take();
}

// Of "l2drop", as its counters are printed: "inspects", "stops", and what it stopped for reason 1.
struct Printed {
    long inspects = -1, stops = -1, for_source = -1;
};
Printed printed_now() {
    userlevel::view view;
    print_redirect_counters(REDIRECT_COUNTERS_RX, view.file());
    Printed now;
    const std::string text = view.text();
    std::sscanf(text.c_str() + text.find("\nl2drop_inspects:"), "\nl2drop_inspects: %ld",
                &now.inspects);
    now.for_source = 0; // not printed when it is
    std::sscanf(text.c_str() + text.find("\nl2drop_stops:"), "\nl2drop_stops: %ld 1:%ld",
                &now.stops, &now.for_source);
    return now;
}

class CounterThreads : public ::testing::Test {
protected:
    static constexpr u32 CPUS = 4, EACH = 20000, L2DROP = 7;
    CounterThreads() {
        EXPECT_EQ(init_module(), 0);
        for (u32 k = 1; k <= CPUS; k++)
            plain_switch::add_member(plain_switch::add_port(k), 1);
        plain_switch::add_vlan(1);
        userlevel::zone_pages_set(NR_FREE_PAGES, 1 << 20);
    }
    // Every second frame ends at "l2drop".
    static void deliver_on(u32 port) {
        const Bytes frames[] = {Frame().from("ff:ff:ff:ff:ff:ff").padded(), Frame().padded()};
        tarn_rx_meta meta{};
        for (u32 i = 0; i < EACH; i++)
            EXPECT_EQ(rxtx_hw_packet_recv(userlevel::frame_make(frames[i % 2]),
                                          plain_switch::FIRST_PORT_IFINDEX + port, 1, &meta),
                      0u);
    }
    template <typename Look>
    void deliver_beside(Look look) {
        std::atomic<bool> done = false;
        std::thread reader([&] {
            while (!done)
                look();
        });
        std::vector<std::thread> cpus;
        for (u32 port = 1; port <= CPUS; port++)
            cpus.emplace_back(deliver_on, port);
        for (std::thread &cpu : cpus)
            cpu.join();
        done = true;
        reader.join();
    }
};

TEST_F(CounterThreads, that_frames_are_counted_on_sum_up_exactly_and_never_seem_to_fall) {
    Printed last;
    u32 falls = 0;
    deliver_beside([&] {
        Printed now = printed_now();
        falls += now.inspects < last.inspects || now.stops < last.stops ||
                 now.for_source < last.for_source || now.stops != now.for_source;
        last = now;
    });
    EXPECT_EQ(falls, 0u);
    Printed now = printed_now();
    EXPECT_EQ(now.inspects, CPUS * EACH);
    EXPECT_EQ(now.stops, CPUS * EACH / 2);
    pkt_candidates_sum_up();
    EXPECT_EQ(packet_redirects[41]->modify_rx_inspects, CPUS * EACH); // the hook of "ipv4"
}

TEST_F(CounterThreads, that_frames_are_counted_on_are_never_negative_after_a_clear) {
    std::atomic<bool> done = false;
    std::atomic<u32> clears = 0;
    std::thread daemon([&] {
        for (; !done; clears++)
            tarn_pkt_redirect_clear_counters(L2DROP);
    });
    u32 wrong = 0;
    deliver_beside([&] {
        Printed now = printed_now();
        wrong += now.inspects < 0 || now.stops < 0 || now.for_source < 0 ||
                 now.inspects > CPUS * EACH || now.stops > CPUS * EACH / 2;
    });
    done = true;
    daemon.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_GT(clears, 0u);
    tarn_pkt_redirect_clear_counters(L2DROP);
    Printed now = printed_now();
    EXPECT_EQ(now.inspects, 0);
    EXPECT_EQ(now.stops, 0);
    deliver_on(1);
    now = printed_now();
    EXPECT_EQ(now.inspects, EACH);
    EXPECT_EQ(now.stops, EACH / 2);
}

// Two who look, and one who clears and hides: nobody adds what another has already told.
TEST_F(CounterThreads, that_frames_are_counted_on_may_be_read_by_several) {
    std::atomic<bool> done = false;
    std::vector<std::thread> readers;
    for (u32 i = 0; i < 2; i++)
        readers.emplace_back([&] {
            while (!done)
                printed_now();
        });
    deliver_beside([] {
        tarn_pkt_redirect_clear_counters(0);
        for (const char *hidden : {"pppoe", "vrrp", ""})
            skip_protocol_set(hidden);
    });
    done = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(printed_now().inspects, CPUS * EACH);
}

// Each by its own 1024 frames, whatever the others have.
TEST_F(CounterThreads, that_frames_are_measured_on_see_a_shortage_each_in_time) {
    constexpr u32 RECOUNT = 1025;
    std::barrier together(CPUS);
    std::atomic<u32> wrong = 0;
    std::vector<std::thread> cpus;
    for (u32 t = 0; t < CPUS; t++)
        cpus.emplace_back([&] {
            for (u32 i = 0; i < 2 * RECOUNT; i++) // the last counts the pages
                wrong += tarn_pkt_low_mem(60) != 0;
            together.arrive_and_wait();
            userlevel::zone_pages_set(NR_FREE_PAGES, 10);
            together.arrive_and_wait();
            for (u32 i = 1; i < RECOUNT; i++)
                wrong += tarn_pkt_low_mem(60) != 0;
            for (u32 i = 0; i < 100; i++)
                wrong += tarn_pkt_low_mem(60) != 1;
        });
    for (std::thread &cpu : cpus)
        cpu.join();
    EXPECT_EQ(wrong, 0u);
}

} // namespace
