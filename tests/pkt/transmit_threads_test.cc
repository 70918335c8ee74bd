// Frames out of the switch from several CPUs at once, beside somebody who changes it.
#include "support/fake_driver.h"
#include "support/frame_builder.h"
#include "support/seams.h"

#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/netdev.h"
#include "kernel/once.h"
#include "kernel/preempt.h"
#include "module/tarn_module.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_post.h"
#include "pkt/pkt_tx.h"
#include "plain_switch/plain_switch.h"
#include "vlan/vlan_member.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace {

constexpr u32 PORTS = 4;
constexpr int THREADS = 3;
constexpr int FRAMES = 10000;

void give_back(u32 result, sk_buff *skb) {
    if (result != 0)
        kfree_skb(skb);
}

void send(tarn_if *port, tarn_if *vlan) {
    const Bytes frame = Frame().tag(1).padded();
    for (int i = 0; i < FRAMES; i++) {
        sk_buff *skb = userlevel::frame_make(frame);
        switch (i % 5) {
        case 0:
            if (i & 1) // of a routed port, whose VLAN may be another by now
                give_back(tarn_start_xmit(nullptr, port, skb, 0, 0, 1, false), skb);
            else
                give_back(tarn_start_xmit(port, vlan, skb, 0, 0, 1, false), skb);
            break;
        case 1:
            give_back(tarn_flood_except_port(port, 1, nullptr, skb, 0, 0, 1), skb);
            break;
        case 2:
            local_bh_disable();
            netdev_get_ops(vlan->netdev)->start_xmit(skb, vlan->netdev);
            local_bh_enable();
            break;
        case 3:
            tarn_pkt_post_to_kernel(port, port, vlan, skb, 1);
            break;
        case 4:
            give_back(static_cast<u32>(tarn_forward_with_dest_mac(skb, port, vlan)), skb);
            break;
        }
    }
}

void change(tarn_if *port, const std::atomic<bool> &stop) {
    const u8 addresses[2][6] = {{2, 0, 0, 0, 0, 1}, {6, 5, 4, 3, 2, 1}};
    for (u32 i = 1; !stop; i++) {
        tarn_ifmgr_set_hwaddr(TARN_IF_VLAN_BASE + 1, 6, addresses[i & 1]);
        tarn_ifmgr_l3_switchport_set(5001, static_cast<u16>(i % 3));
        tarn_tx_discard_all_set(i % 16 == 0);
        write_once(tarn_pkt_debug, i % 64 == 0);
        tarn_pkt_unknown_multicast_flood_set(i & 1);
        if (i & 1)
            tarn_ifmgr_set_portmirror(5002, 5001, 2, 0);
        else
            tarn_ifmgr_unset_portmirror(5002, 5001, 2, 0);
        tarn_ifmgr_stp_port_state_set(5003, 0, i % 4 == 0 ? 4 : 3);
        tarn_vlan_set_vlan_port_disabled(5003, 1, i % 8 == 0);
        write_once(port->openflow, i & 1);
        if (i % 4 == 0)
            fake_driver::attach();
        else
            fake_driver::attach_without_flood();
        std::this_thread::yield();
    }
}

TEST(TransmitThreads, frames_from_several_cpus_are_all_accounted_for) {
    ASSERT_EQ(init_module(), 0);
    seams::record().pass_on = true;
    fake_driver::record().keep = false;
    fake_driver::attach();
    tarn_if *vlan = plain_switch::add_vlan(1);
    std::vector<tarn_if *> ports;
    for (u32 k = 1; k <= PORTS; k++) {
        ports.push_back(plain_switch::add_port(k));
        plain_switch::add_member(ports.back(), 1);
    }
    auto before = userlevel::take_snapshot();

    std::atomic<bool> stop = false;
    std::thread changer(change, ports[3], std::cref(stop));
    std::vector<std::thread> senders;
    for (int k = 0; k < THREADS; k++)
        senders.emplace_back(send, ports[static_cast<std::size_t>(k)], vlan);
    for (std::thread &sender : senders)
        sender.join();
    stop = true;
    changer.join();

    EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before)), "");
    for (tarn_if *port : ports)
        EXPECT_EQ(refcount_read(&port->refcnt), 1);
    EXPECT_EQ(refcount_read(&vlan->refcnt), 1);
    const net_device_stats &stats = *netdev_stats(vlan->netdev);
    EXPECT_EQ(stats.rx_packets, static_cast<unsigned long>(THREADS * FRAMES / 5));
    EXPECT_EQ(stats.rx_bytes, stats.rx_packets * Frame().tag(1).padded().build().size());
    userlevel::log_take();
}

TEST(TransmitThreads, what_several_cpus_post_is_counted_to_the_last_frame) {
    constexpr u32 CPUS = 4, EACH = 50000;
    ASSERT_EQ(init_module(), 0);
    seams::record().pass_on = true;
    tarn_if *vlan = plain_switch::add_vlan(1), *port = plain_switch::add_port(1);
    vlan->flags = 0; // down: each is dropped
    const Bytes frame = Frame().to("01:00:5e:00:00:01").padded();
    std::vector<std::thread> cpus;
    for (u32 t = 0; t < CPUS; t++)
        cpus.emplace_back([&] {
            for (u32 i = 0; i < EACH; i++)
                tarn_pkt_post_to_kernel(port, port, vlan, userlevel::frame_make(frame), 1);
        });
    for (std::thread &cpu : cpus)
        cpu.join();
    const net_device_stats &stats = *netdev_stats(vlan->netdev);
    EXPECT_EQ(stats.rx_packets, CPUS * EACH);
    EXPECT_EQ(stats.rx_bytes, CPUS * EACH * frame.size());
    EXPECT_EQ(stats.multicast, CPUS * EACH);
    EXPECT_EQ(stats.rx_dropped, CPUS * EACH);
}

} // namespace
