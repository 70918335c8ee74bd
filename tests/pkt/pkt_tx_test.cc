// Transmit, the upper layers: the IP stack, sockets, the discard switch and the port mirror.
#include "support/transmit_test.h"

#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/netdev.h"
#include "pkt/pkt_candidates.h"

#include <cstring>

using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

class Transmit : public TransmitTest {
protected:
    Transmit() { userlevel::clock_stop(10000); }

    u32 send(tarn_if *port, tarn_if *vlan_if, bool bypass = false, const Bytes &bytes = plain()) {
        sk_buff *skb = frame(bytes);
        u32 result = _tarn_start_xmit(port, vlan_if, skb, 3, 5, 1, bypass, true);
        if (result != 0)
            kfree_skb(skb);
        return result;
    }

    void discard_all() { tarn_tx_discard_all_set(1); }

    std::vector<u32> ports_sent_to() {
        std::vector<u32> ports;
        for (const auto &sent : driver().sent)
            ports.push_back(sent.ifindex);
        return ports;
    }
};

// --- frames of the IP stack ---------------------------------------------------------------------

std::vector<u32> hooks_asked;

class IpStack : public Transmit {
protected:
    // No hook but those of the test.
    IpStack() {
        hooks_asked.clear();
        for (u32 slot : {0u, 39u, 9u, 21u, 30u})
            if (packet_redirects[slot]) {
                packet_redirects[slot]->modify_tx = nullptr;
                enable_redirect(slot, packet_redirects[slot]->enabled);
            }
    }
    static u32 asked(u32 slot) {
        pkt_candidates_sum_up();
        return packet_redirects[slot]->modify_tx_inspects;
    }

    template <u32 Slot>
    static sk_buff *note(tarn_if *, sk_buff *skb) {
        hooks_asked.push_back(Slot);
        return skb;
    }

    // A redirect in that slot, with that hook.
    packet_redirect &hook(u32 slot, sk_buff *(*modify_tx)(tarn_if *, sk_buff *)) {
        if (!packet_redirects[slot]) {
            configure([&] {
                packet_redirect record{
                    .name = "hooked",
                    .match = [](tarn_pkt_info *, redirect_instruct *) { return 0; },
                    .post = tarn_pkt_packet_post_dummy};
                EXPECT_EQ(tarn_pkt_register_packet_redirection(&record, slot), 0);
            });
        }
        packet_redirects[slot]->modify_tx = modify_tx;
        enable_redirect(slot, 1);
        return *packet_redirects[slot];
    }

    i32 send_ip(tarn_if *ifp, u32 priority = 0, const Bytes &bytes = plain()) {
        sk_buff *skb = frame(bytes);
        skb->priority = priority;
        return _tarn_eth_drv_tx(ifp, skb);
    }
};

TEST_F(IpStack, hooks_are_asked_in_the_order_of_their_table) {
    hook(0, note<0>);
    hook(39, note<39>);
    hook(9, note<9>);
    hook(21, note<21>);
    hook(30, note<30>);
    EXPECT_EQ(send_ip(vlan1()), 0);
    EXPECT_THAT(hooks_asked, ElementsAre(0, 39, 9, 21, 30));
    for (u32 slot : {0u, 39u, 9u, 21u, 30u})
        EXPECT_EQ(asked(slot), 1u) << "slot " << slot;
    EXPECT_THAT(driver().sent, SizeIs(1));
}

TEST_F(IpStack, a_hook_of_another_slot_or_of_a_disabled_redirect_is_not_asked) {
    hook(9, note<9>);
    hook(27, note<27>);
    hook(21, note<21>);
    enable_redirect(9, 0);
    EXPECT_EQ(send_ip(vlan1()), 0);
    EXPECT_THAT(hooks_asked, ElementsAre(21));
    EXPECT_EQ(asked(9), 0u);
    EXPECT_EQ(asked(27), 0u);
}

TEST_F(IpStack, a_redirect_without_a_hook_is_not_counted) {
    hook(9, nullptr);
    EXPECT_EQ(send_ip(vlan1()), 0);
    EXPECT_EQ(asked(9), 0u);
    EXPECT_THAT(driver().sent, SizeIs(1));
}

TEST_F(IpStack, a_frame_that_a_hook_took_is_gone_and_no_error) {
    hook(0, [](tarn_if *, sk_buff *skb) -> sk_buff * {
        kfree_skb(skb);
        return nullptr;
    });
    hook(39, note<39>);
    EXPECT_EQ(send_ip(vlan1()), 0);
    EXPECT_THAT(driver().sent, IsEmpty());
    EXPECT_THAT(hooks_asked, IsEmpty());
    EXPECT_EQ(asked(0), 1u);
    EXPECT_EQ(asked(39), 0u);
    hook(9, note<9>);
    hook(0, note<0>);
    hook(39, [](tarn_if *, sk_buff *skb) -> sk_buff * {
        kfree_skb(skb);
        return nullptr;
    });
    EXPECT_EQ(send_ip(vlan1()), 0);
    EXPECT_THAT(hooks_asked, ElementsAre(0));
    EXPECT_EQ(asked(0), 2u);
    EXPECT_EQ(asked(39), 1u);
    EXPECT_EQ(asked(9), 0u);
}

TEST_F(IpStack, the_frame_that_a_hook_gives_back_is_the_one_that_is_sent) {
    hook(0, [](tarn_if *, sk_buff *skb) {
        kfree_skb(skb);
        sk_buff *other = userlevel::frame_make(Bytes(20, 0xAB));
        other->priority = 6;
        return other;
    });
    EXPECT_EQ(send_ip(vlan1(), 2), 0);
    ASSERT_THAT(driver().sent, SizeIs(1));
    EXPECT_EQ(driver().sent[0].bytes, Bytes(20, 0xAB));
    EXPECT_EQ(driver().sent[0].cos, 6u) << "the priority is read after the hooks";
}

TEST_F(IpStack, a_hook_is_told_the_interface) {
    static tarn_if *told = nullptr;
    hook(0, [](tarn_if *ifp, sk_buff *skb) {
        told = ifp;
        return skb;
    });
    send_ip(vlan1());
    EXPECT_EQ(told, vlan1());
}

TEST_F(IpStack, the_priority_chooses_class_of_service_and_queue) {
    struct Row {
        u32 priority, cos, queue;
    };
    for (Row row :
         {Row{0, 0, 4}, Row{1, 1, 1}, Row{2, 2, 2}, Row{3, 3, 3}, Row{4, 4, 4}, Row{5, 5, 5},
          Row{6, 6, 6}, Row{7, 7, 7}, Row{8, 0, 4}, Row{256, 0, 4}, Row{0xFFFFFFFF, 0, 4}}) {
        driver().sent.clear();
        EXPECT_EQ(send_ip(vlan1(), row.priority), 0);
        ASSERT_THAT(driver().sent, SizeIs(1));
        EXPECT_EQ(driver().sent[0].cos, row.cos) << "priority " << row.priority;
        EXPECT_EQ(driver().sent[0].queue, row.queue) << "priority " << row.priority;
        EXPECT_EQ(_tarn_eth_drv_tx_socket_priority_to_cos(row.priority), row.cos);
    }
}

TEST_F(IpStack, a_vlan_interface_sends_on_its_vlan_as_a_whole) {
    tarn_if *vlan = add_vlan(20);
    EXPECT_EQ(send_ip(vlan, 5), 0);
    ASSERT_THAT(driver().sent, SizeIs(1));
    const auto &sent = driver().sent[0];
    EXPECT_EQ(sent.ifindex, 0u);
    EXPECT_EQ(sent.vid, 20u);
    EXPECT_EQ(sent.tagged, 0u);
    EXPECT_EQ(sent.tx_option, 0u);
    EXPECT_EQ(sent.tx_enable, 1u);
    EXPECT_EQ(sent.bytes, plain());
}

TEST_F(IpStack, a_routed_port_sends_on_its_vlan_as_a_whole) {
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(5001, 77), 0);
    port1()->vlan_tagged_bmp[77 >> 5] |= 1u << (77 & 31);
    EXPECT_EQ(send_ip(port1()), 0);
    ASSERT_THAT(driver().sent, SizeIs(1));
    EXPECT_EQ(driver().sent[0].ifindex, 0u);
    EXPECT_EQ(driver().sent[0].vid, 77u);
    EXPECT_EQ(driver().sent[0].tagged, 0u);
}

TEST_F(IpStack, a_switch_port_with_a_device_sends_out_of_itself) {
    net_device *device = configure([] { return userlevel::netdev_create("port1"); });
    port1()->netdev = device;
    port1()->stp_state[0] = TARN_STP_BLOCKING; // no VLAN, so not asked
    EXPECT_EQ(send_ip(port1(), 3, Frame().tag(0x6014).padded()), 0);
    ASSERT_THAT(driver().sent, SizeIs(1));
    EXPECT_EQ(driver().sent[0].ifindex, 5001u);
    EXPECT_EQ(driver().sent[0].vid, 0x14u) << "that of the tag, for want of a VLAN";
    EXPECT_EQ(driver().sent[0].tx_option, 0u);
    EXPECT_EQ(driver().sent[0].tx_enable, 1u);
    port1()->netdev = nullptr;
}

TEST_F(IpStack, any_other_interface_drops_the_frame_and_says_so) {
    configure([] { userlevel::netdev_create("eth7"); });
    tarn_if *ethernet = add_ethernet("eth7", 7);
    dropped();
    for (tarn_if *ifp : {port1(), ethernet}) {
        EXPECT_EQ(send_ip(ifp), 0);
        EXPECT_EQ(dropped(), 1u);
        EXPECT_THAT(log(), ElementsAre("4 _tarn_eth_drv_tx - dropping L3 packet\n"));
    }
    EXPECT_THAT(driver().sent, IsEmpty());
}

TEST_F(IpStack, a_frame_that_the_driver_refuses_is_freed_and_the_result_given) {
    net_device *device = configure([] { return userlevel::netdev_create("port1"); });
    tarn_if *routed = add_port(2);
    routed->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    port1()->netdev = device;
    dropped();
    for (i32 result : {-ENODEV, -1, 1, 7}) {
        driver().xmit_result = static_cast<u32>(result);
        for (tarn_if *ifp : {vlan1(), port1(), routed}) {
            EXPECT_EQ(send_ip(ifp), result);
            EXPECT_EQ(dropped(), 1u);
        }
    }
    port1()->netdev = nullptr;
}

TEST_F(IpStack, the_discard_switch_spares_local_vlans_and_local_routed_ports_alone) {
    net_device *device = configure([] { return userlevel::netdev_create("port1"); });
    tarn_if *local = add_vlan(20);
    local->if_flags |= TARN_IF_F_VLAN_LOCAL;
    tarn_if *routed = add_port(2);
    routed->if_flags |= TARN_IF_F_L3_SWITCHPORT | TARN_IF_F_VLAN_LOCAL;
    port1()->netdev = device;
    port1()->if_flags |= TARN_IF_F_VLAN_LOCAL; // of no meaning on a switch port
    discard_all();
    dropped();
    for (tarn_if *ifp : {vlan1(), port1(), local, routed})
        EXPECT_EQ(send_ip(ifp), 0);
    EXPECT_EQ(dropped(), 2u);
    EXPECT_THAT(driver().sent, ElementsAre(Field(&fake_driver::Sent::vid, 20u),
                                           Field(&fake_driver::Sent::vid, 0u)));
    port1()->netdev = nullptr;
}

// --- sockets that send straight on a VLAN -------------------------------------------------------

TEST_F(Transmit, a_socket_may_send_straight_on_a_vlan) {
    sk_buff *skb = frame();
    EXPECT_EQ(_tarn_eth_drv_svi_tx(vlan1(), skb, 6, 2), 0);
    ASSERT_THAT(driver().sent, SizeIs(1));
    const auto &sent = driver().sent[0];
    EXPECT_EQ(sent.ifindex, 0u);
    EXPECT_EQ(sent.vid, 1u);
    EXPECT_EQ(sent.tagged, 0u);
    EXPECT_EQ(sent.tx_option, 0u);
    EXPECT_EQ(sent.cos, 6u);
    EXPECT_EQ(sent.queue, 2u);
    EXPECT_EQ(sent.tx_enable, 1u);
}

TEST_F(Transmit, straight_on_no_vlan_the_tag_names_it) {
    EXPECT_EQ(_tarn_eth_drv_svi_tx(nullptr, frame(Frame().tag(0xE123)), 0, 0), 0);
    EXPECT_EQ(_tarn_eth_drv_svi_tx(nullptr, frame(), 0, 0), 0);
    EXPECT_THAT(driver().sent, ElementsAre(Field(&fake_driver::Sent::vid, 0x123u),
                                           Field(&fake_driver::Sent::vid, 0u)));
}

TEST_F(Transmit, straight_on_a_vlan_the_discard_switch_spares_local_vlans_alone) {
    tarn_if *local = add_vlan(20);
    local->if_flags |= TARN_IF_F_VLAN_LOCAL;
    discard_all();
    dropped();
    EXPECT_EQ(_tarn_eth_drv_svi_tx(vlan1(), frame(), 0, 0), 0);
    EXPECT_EQ(_tarn_eth_drv_svi_tx(nullptr, frame(), 0, 0), 0);
    EXPECT_EQ(dropped(), 2u);
    EXPECT_THAT(driver().sent, IsEmpty());
    EXPECT_EQ(_tarn_eth_drv_svi_tx(local, frame(), 0, 0), 0);
    EXPECT_THAT(driver().sent, ElementsAre(Field(&fake_driver::Sent::vid, 20u)));
}

TEST_F(Transmit, straight_on_a_vlan_a_refused_frame_stays_with_the_caller) {
    for (i32 result : {-ENODEV, 1}) {
        driver().xmit_result = static_cast<u32>(result);
        sk_buff *skb = frame();
        EXPECT_EQ(_tarn_eth_drv_svi_tx(vlan1(), skb, 0, 0), result);
        EXPECT_EQ(bytes_of(skb), plain());
        kfree_skb(skb);
    }
}

TEST_F(Transmit, straight_on_a_vlan_nothing_is_modified_or_mirrored) {
    add_port(2);
    vlan1()->mirror_ifindex = 5002;
    for (u32 slot : {0u, 39u, 9u, 21u, 30u})
        if (packet_redirects[slot]) {
            packet_redirects[slot]->modify_tx = [](tarn_if *, sk_buff *skb) {
                ADD_FAILURE() << "a hook was asked";
                return skb;
            };
            enable_redirect(slot, 1);
        }
    EXPECT_EQ(_tarn_eth_drv_svi_tx(vlan1(), frame(), 0, 0), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(0));
}

TEST_F(Transmit, straight_on_a_vlan_the_frame_log_names_no_port) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    EXPECT_EQ(_tarn_eth_drv_svi_tx(vlan1(), frame(Bytes{1, 2, 3, 4}), 0, 9), 0);
    EXPECT_EQ(_tarn_eth_drv_svi_tx(nullptr, frame(Bytes{1, 2, 3, 4}), 0, 9), 0);
    EXPECT_EQ(_tarn_eth_drv_svi_tx(port1(), frame(Bytes{1, 2, 3, 4}), 0, 9), 0);
    EXPECT_THAT(log(), ElementsAre("6 TxPkt(00001) Q:9 vlan1 portUnknown len:4\n\t01020304 \n",
                                   "6 TxPkt(00002) Q:9 vid:0 portUnknown len:4\n\t01020304 \n",
                                   "6 TxPkt(00003) Q:9 port1 portUnknown len:4\n\t01020304 \n"));
}

// The log's VLAN filter sees the VID of the line.
TEST_F(Transmit, straight_on_a_vlan_the_frame_log_knows_only_the_vid_of_a_vlan_interface) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    tarn_pkt_debug_vlan = 1;
    port1()->vid = 1;
    _tarn_eth_drv_svi_tx(port1(), frame(), 0, 9);
    EXPECT_THAT(log(), IsEmpty());
    _tarn_eth_drv_svi_tx(vlan1(), frame(), 0, 9);
    EXPECT_THAT(log(), SizeIs(1));
}

TEST_F(Transmit, straight_on_a_vlan_a_discarded_frame_is_not_logged) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    discard_all();
    _tarn_eth_drv_svi_tx(vlan1(), frame(), 0, 0);
    EXPECT_THAT(log(), IsEmpty());
}

// --- sockets that send on a port ----------------------------------------------------------------

TEST_F(Transmit, a_socket_sends_on_a_port) {
    EXPECT_EQ(tarn_start_xmit(port1(), vlan1(), frame(), 6, 2, 0, true), 0u);
    ASSERT_THAT(driver().sent, SizeIs(1));
    const auto &sent = driver().sent[0];
    EXPECT_EQ(sent.ifindex, 5001u);
    EXPECT_EQ(sent.vid, 1u);
    EXPECT_EQ(sent.tx_option, 1u);
    EXPECT_EQ(sent.cos, 6u);
    EXPECT_EQ(sent.queue, 2u);
    EXPECT_EQ(sent.tx_enable, 0u);
    EXPECT_EQ(sent.bytes, plain());
}

TEST_F(Transmit, from_a_socket_the_discard_switch_spares_local_vlans_alone) {
    tarn_if *local = add_vlan(20);
    local->if_flags |= TARN_IF_F_VLAN_LOCAL;
    discard_all();
    dropped();
    EXPECT_EQ(tarn_start_xmit(port1(), vlan1(), frame(), 0, 0, 1, false), 0u);
    EXPECT_EQ(tarn_start_xmit(port1(), nullptr, frame(), 0, 0, 1, false), 0u);
    EXPECT_EQ(dropped(), 2u);
    EXPECT_EQ(tarn_start_xmit(port1(), local, frame(), 0, 0, 1, false), 0u);
    EXPECT_THAT(driver().sent, ElementsAre(Field(&fake_driver::Sent::vid, 20u)));
    tarn_tx_discard_all_set(0);
    EXPECT_EQ(tarn_start_xmit(port1(), vlan1(), frame(), 0, 0, 1, false), 0u);
    EXPECT_THAT(driver().sent, SizeIs(2));
}

TEST_F(Transmit, whoever_may_bypass_the_discard_switch_does) {
    discard_all();
    EXPECT_EQ(send(port1(), vlan1(), true), 0u);
    EXPECT_EQ(send(nullptr, nullptr, true), 0u);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5001, 0));
}

TEST_F(Transmit, a_refused_frame_stays_with_the_caller) {
    for (i32 result : {-ENODEV, -EOPNOTSUPP, 1, 2}) {
        driver().xmit_result = static_cast<u32>(result);
        sk_buff *skb = frame();
        EXPECT_EQ(tarn_start_xmit(port1(), vlan1(), skb, 0, 0, 1, false), static_cast<u32>(result));
        EXPECT_EQ(bytes_of(skb), plain());
        kfree_skb(skb);
    }
}

TEST_F(Transmit, the_frame_log_names_port_vlan_and_queue) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    send(port1(), vlan1(), false, Bytes{1, 2, 3, 4});
    send(nullptr, vlan1(), false, Bytes{1, 2, 3, 4});
    send(port1(), nullptr, false, Bytes{1, 2, 3, 4});
    EXPECT_THAT(log(), ElementsAre("6 TxPkt(00001) Q:5 vlan1 port1 len:4\n\t01020304 \n",
                                   "6 TxPkt(00002) Q:5 vlan1 portUnknown len:4\n\t01020304 \n",
                                   "6 TxPkt(00003) Q:5 vid:0 port1 len:4\n\t01020304 \n"));
}

TEST_F(Transmit, the_frame_log_knows_only_the_vid_of_a_vlan_interface) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    tarn_pkt_debug_vlan = 1;
    port1()->vid = 1;
    send(port1(), port1());
    EXPECT_THAT(log(), IsEmpty());
    send(port1(), vlan1());
    EXPECT_THAT(log(), SizeIs(1));
}

TEST_F(Transmit, a_discarded_frame_is_neither_logged_nor_mirrored) {
    add_port(2);
    port1()->mirror_ifindex = 5002;
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    discard_all();
    EXPECT_EQ(send(port1(), vlan1()), 0u);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(driver().sent, IsEmpty());
}

TEST_F(Transmit, in_a_context_that_must_not_sleep_nothing_does) {
    add_port(2);
    port1()->mirror_ifindex = 5002;
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    u64 before = userlevel::sleeping_allocations_in_atomic();
    local_bh_disable();
    EXPECT_EQ(send(port1(), vlan1()), 0u);
    local_bh_enable();
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), before);
    log();
}

// --- the port mirror ----------------------------------------------------------------------------

class Mirror : public Transmit {
protected:
    Mirror() {
        add_port(2);
        add_port(3);
        port1()->mirror_ifindex = 5002;
    }
    tarn_if *port(u32 k) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(5000 + k);
        tarn_ifmgr_if_ref_put(ifp);
        return ifp;
    }
};

TEST_F(Mirror, a_copy_goes_out_first_with_everything_but_the_option) {
    port(2)->vlan_tagged_bmp[0] |= 1u << 1;
    sk_buff *skb = frame();
    EXPECT_EQ(_tarn_start_xmit(port1(), vlan1(), skb, 3, 5, 0, false, true), 0u);
    ASSERT_THAT(driver().sent, SizeIs(2));
    const auto &copy = driver().sent[0], &original = driver().sent[1];
    EXPECT_EQ(copy.ifindex, 5002u);
    EXPECT_EQ(copy.vid, 1u);
    EXPECT_EQ(copy.tagged, 1u) << "as the mirror port does";
    EXPECT_EQ(copy.tx_option, 0u);
    EXPECT_EQ(copy.cos, 3u);
    EXPECT_EQ(copy.queue, 5u);
    EXPECT_EQ(copy.tx_enable, 0u);
    EXPECT_EQ(copy.bytes, plain());
    EXPECT_EQ(original.ifindex, 5001u);
    EXPECT_EQ(original.tx_option, 1u);
    EXPECT_EQ(original.tagged, 0u);
}

TEST_F(Mirror, shares_no_byte_with_the_frame) {
    driver().hold = true;
    send(port1(), vlan1());
    ASSERT_THAT(driver().held, SizeIs(2));
    EXPECT_FALSE(skb_cloned(driver().held[0]));
    EXPECT_FALSE(skb_cloned(driver().held[1]));
    fake_driver::release();
}

TEST_F(Mirror, a_frame_without_port_has_none) {
    send(nullptr, vlan1());
    EXPECT_THAT(ports_sent_to(), ElementsAre(0));
}

TEST_F(Mirror, a_port_that_is_not_there_is_left_out) {
    port1()->mirror_ifindex = 9999;
    send(port1(), vlan1());
    EXPECT_THAT(ports_sent_to(), ElementsAre(5001));
    port1()->mirror_ifindex = 5002;
    tarn_if *deleted = port(2);
    deleted->if_flags |= TARN_IF_F_DELETED;
    send(port1(), vlan1());
    port1()->mirror_ifindex = 0;
    send(port1(), vlan1());
    EXPECT_THAT(ports_sent_to(), ElementsAre(5001, 5001, 5001));
    deleted->if_flags &= ~TARN_IF_F_DELETED;
}

TEST_F(Mirror, without_memory_the_frame_goes_alone_and_nothing_is_said) {
    sk_buff *skb = frame();
    for (u64 n : {1, 2}) {
        driver().sent.clear();
        skb = n == 1 ? skb : frame();
        userlevel::fail_allocation(n);
        EXPECT_EQ(_tarn_start_xmit(port1(), vlan1(), skb, 3, 5, 1, false, true), 0u);
        EXPECT_THAT(ports_sent_to(), ElementsAre(5001));
    }
}

TEST_F(Mirror, a_refused_copy_is_freed_and_the_frame_goes_on) {
    for (i32 result : {-ENODEV, 1}) {
        driver().sent.clear();
        driver().answer = [=](const fake_driver::Sent &sent) {
            return sent.ifindex == 5002 ? static_cast<u32>(result) : 0;
        };
        EXPECT_EQ(send(port1(), vlan1()), 0u);
        EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5001));
    }
}

TEST_F(Mirror, of_a_refused_frame_has_left_all_the_same) {
    driver().answer = [](const fake_driver::Sent &sent) { return sent.ifindex == 5001 ? 7u : 0u; };
    EXPECT_EQ(send(port1(), vlan1()), 7u);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5001));
}

TEST_F(Mirror, passes_the_discard_switch_behind_a_frame_that_does) {
    discard_all();
    send(port1(), vlan1(), true);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5001));
}

TEST_F(Mirror, copies_are_logged) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    send(port1(), vlan1(), false, Bytes{1, 2, 3, 4});
    EXPECT_THAT(log(), ElementsAre("6 TxPkt(00001) Q:5 vlan1 port1 len:4\n\t01020304 \n",
                                   "6 TxPkt(00002) Q:5 vlan1 port2 len:4\n\t01020304 \n"));
}

TEST_F(Mirror, spanning_tree_of_the_mirror_port_counts) {
    port(2)->stp_state[0] = TARN_STP_BLOCKING;
    send(port1(), vlan1());
    EXPECT_THAT(ports_sent_to(), ElementsAre(5001));
    port1()->stp_state[0] = TARN_STP_BLOCKING;
    port(2)->stp_state[0] = TARN_STP_FORWARDING;
    send(port1(), vlan1());
    EXPECT_THAT(ports_sent_to(), ElementsAre(5001, 5002)) << "the copy comes before the question";
}

TEST_F(Mirror, of_a_mirror_is_mirrored_and_the_last_copy_leaves_first) {
    port(2)->mirror_ifindex = 5003;
    send(port1(), vlan1());
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5002, 5001));
}

TEST_F(Mirror, a_ring_ends_after_eight_copies) {
    port(2)->mirror_ifindex = 5001;
    send(port1(), vlan1());
    EXPECT_THAT(ports_sent_to(), ElementsAre(5001, 5002, 5001, 5002, 5001, 5002, 5001, 5002, 5001));
    driver().sent.clear();
    port1()->mirror_ifindex = 5001;
    send(port1(), vlan1());
    EXPECT_THAT(ports_sent_to(), SizeIs(9));
}

TEST_F(Mirror, an_ethernet_port_mirrors_too) {
    net_device *device = configure([] { return userlevel::netdev_create("eth7"); });
    tarn_if *ethernet = add_ethernet("eth7", 7);
    auto &recorded = userlevel::netdev_recorded(device);
    port1()->mirror_ifindex = 7;
    send(port1(), vlan1());
    ASSERT_THAT(recorded.sent, SizeIs(1));
    EXPECT_EQ(recorded.sent[0].bytes, plain());
    port1()->mirror_ifindex = 0;
    ethernet->mirror_ifindex = 5002;
    send(ethernet, vlan1());
    EXPECT_THAT(ports_sent_to(), ElementsAre(5001, 5002));
}

// --- failures -----------------------------------------------------------------------------------

TEST_F(Transmit, a_failure_elsewhere_is_booked_on_the_interface) {
    failures.clear();
    userlevel::clock_stop(4711);
    tarn_pkt_xmit_failure(port1(), 3, -5);
    EXPECT_EQ(port1()->last_tx_failure, 4711u);
    EXPECT_THAT(failures, IsEmpty()) << "nobody is to be told";
    port1()->tx_failure_cb = failed;
    userlevel::clock_advance(1);
    tarn_pkt_xmit_failure(port1(), 3, -5);
    EXPECT_EQ(port1()->last_tx_failure, 4712u);
    EXPECT_THAT(failures, ElementsAre(Failure{port1(), 3, -5}));
    tarn_pkt_xmit_failure(nullptr, 3, -5);
    EXPECT_THAT(failures, SizeIs(1));
}

// --- to the sender's port, or to all ------------------------------------------------------------

class Forward : public Transmit {
protected:
    static Bytes own() {
        return Frame().to("02:00:00:00:00:99").from("02:00:00:00:00:01").padded();
    }
    i32 forward(const Bytes &bytes) {
        sk_buff *skb = frame(bytes);
        i32 result = tarn_forward_with_dest_mac(skb, port1(), vlan1());
        if (result != 0)
            kfree_skb(skb);
        return result;
    }
};

TEST_F(Forward, a_frame_from_another_address_is_flooded_but_to_the_port) {
    port1()->vlan_tagged_bmp[0] |= 1u << 1;
    EXPECT_EQ(forward(Frame().to("02:00:00:00:00:01").padded()), 0) << "the source decides";
    ASSERT_THAT(driver().flooded, SizeIs(1));
    const auto &flood = driver().flooded[0];
    EXPECT_EQ(flood.ifindex, 5001u);
    EXPECT_EQ(flood.vid, 1u);
    EXPECT_EQ(flood.except0, FLOOD_NO_EXCEPTION);
    EXPECT_EQ(flood.except1, 0u);
    EXPECT_EQ(flood.cos, 0u);
    EXPECT_EQ(flood.queue, 0u);
    EXPECT_EQ(flood.mask, 0u);
    EXPECT_EQ(flood.tagged, 1u);
    EXPECT_THAT(driver().sent, IsEmpty());
}

TEST_F(Forward, a_software_flood_keeps_it_from_the_port_and_enables_transmit) {
    fake_driver::attach_without_flood();
    add_port(2);
    EXPECT_EQ(forward(plain()), 0);
    ASSERT_THAT(ports_sent_to(), ElementsAre(5002));
    EXPECT_EQ(driver().sent[0].tx_enable, 1u);
}

TEST_F(Forward, the_vlans_own_frame_goes_to_the_port) {
    EXPECT_EQ(forward(own()), 0);
    ASSERT_THAT(driver().sent, SizeIs(1));
    const auto &sent = driver().sent[0];
    EXPECT_EQ(sent.ifindex, 5001u);
    EXPECT_EQ(sent.vid, 1u);
    EXPECT_EQ(sent.cos, 0u);
    EXPECT_EQ(sent.queue, 0u);
    EXPECT_EQ(sent.tx_enable, 1u);
    EXPECT_EQ(sent.tx_option, 0u);
    EXPECT_THAT(driver().flooded, IsEmpty());
}

TEST_F(Forward, of_an_aggregator_its_member_with_link_sends) {
    tarn_if *member = add_port(2);
    tarn_if *aggregator = add_aggregator_over(member, 4501);
    aggregator->stp_state[0] = TARN_STP_FORWARDING;
    EXPECT_EQ(tarn_forward_with_dest_mac(frame(own()), aggregator, vlan1()), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002));
    member->flags &= ~IFF_RUNNING;
    EXPECT_EQ(tarn_forward_with_dest_mac(frame(own()), aggregator, vlan1()), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 0)) << "no member has link: the VLAN as a whole";
    member->flags |= IFF_RUNNING;
}

TEST_F(Forward, a_local_vlan_passes_the_discard_switch_to_the_port_but_not_in_a_flood) {
    vlan1()->if_flags |= TARN_IF_F_VLAN_LOCAL;
    discard_all();
    EXPECT_EQ(forward(own()), 0);
    EXPECT_EQ(forward(plain()), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5001));
    EXPECT_THAT(driver().flooded, IsEmpty());
    vlan1()->if_flags &= ~TARN_IF_F_VLAN_LOCAL;
    EXPECT_EQ(forward(own()), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5001));
}

TEST_F(Forward, a_refused_frame_stays_with_the_caller) {
    for (i32 result : {-ENODEV, 1}) {
        driver().xmit_result = static_cast<u32>(result);
        driver().flood_result = result;
        EXPECT_EQ(forward(own()), result);
        EXPECT_EQ(forward(plain()), result);
    }
}

TEST_F(Forward, a_frame_that_ends_within_its_source_is_from_another) {
    EXPECT_EQ(forward(Frame().from("02:00:00:00:00:01").cut(11)), 0);
    EXPECT_THAT(driver().flooded, SizeIs(1));
}

// --- headers of sockets -------------------------------------------------------------------------

class Header : public TransmitTest {
protected:
    const u8 to_[6] = {1, 2, 3, 4, 5, 6};
    const u8 from_[6] = {7, 8, 9, 10, 11, 12};
    sk_buff *payload(u32 headroom = 64) { return frame(Bytes{0xAA, 0xBB}, headroom); }
};

TEST_F(Header, is_written_before_the_frame) {
    sk_buff *skb = payload();
    EXPECT_EQ(add_eth_header(skb, 0x88CC, to_, from_, 999), 14u);
    EXPECT_EQ(bytes_of(skb),
              (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0x88, 0xCC, 0xAA, 0xBB}));
    kfree_skb(skb);
}

TEST_F(Header, of_type_1_has_the_length) {
    sk_buff *skb = payload();
    EXPECT_EQ(add_eth_header(skb, 1, to_, from_, 0x0126), 14u);
    EXPECT_EQ(bytes_of(skb),
              (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0x01, 0x26, 0xAA, 0xBB}));
    kfree_skb(skb);
}

TEST_F(Header, of_no_destination_is_an_error_and_leaves_those_bytes) {
    sk_buff *skb = payload();
    memset(skb_push(skb, 14), 0xEE, 14);
    skb_pull(skb, 14);
    EXPECT_EQ(add_eth_header(skb, 0x88CC, nullptr, from_, 0), static_cast<u32>(-EFAULT));
    EXPECT_EQ(bytes_of(skb), (Bytes{0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 7, 8, 9, 10, 11, 12, 0x88,
                                    0xCC, 0xAA, 0xBB}));
    kfree_skb(skb);
}

TEST_F(Header, without_room_is_an_error_and_changes_nothing) {
    sk_buff *skb = payload(13);
    EXPECT_EQ(add_eth_header(skb, 0x88CC, to_, from_, 0), static_cast<u32>(-EFAULT));
    EXPECT_EQ(bytes_of(skb), (Bytes{0xAA, 0xBB}));
    kfree_skb(skb);
    skb = payload(14);
    EXPECT_EQ(add_eth_header(skb, 0x88CC, to_, from_, 0), 14u);
    kfree_skb(skb);
}

TEST(Traps, go_to_the_masters_cpu_alone) {
    EXPECT_EQ(tarn_pkt_trap_to_master_cpu_only(), 1u);
}

} // namespace
