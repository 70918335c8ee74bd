// Floods: by the chip, in software, and on through VLANs that carry others.
#include "support/transmit_test.h"

#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_destroy.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/netdev.h"
#include "vlan/vlan_member.h"

using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

class FloodTest : public TransmitTest {
protected:
    // The result of a flood; a frame that comes back is freed.
    i32 flood(tarn_if *port, u32 vid, const Bytes &bytes = plain(), u32 cos = 3, u32 mask = 0,
              u32 headroom = 64) {
        sk_buff *skb = frame(bytes, headroom);
        i32 result = _tarn_flood(port, vid, nullptr, skb, cos, 5, 1, mask);
        if (result != 0)
            kfree_skb(skb);
        return result;
    }

    tarn_if *port(u32 k) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(5000 + k);
        tarn_ifmgr_if_ref_put(ifp);
        return ifp;
    }

    std::vector<u32> ports_sent_to() {
        std::vector<u32> ports;
        for (const auto &sent : driver().sent)
            ports.push_back(sent.ifindex);
        return ports;
    }

    tarn_if *add_vlan_with(u32 vid, std::initializer_list<u32> members) {
        tarn_if *vlan = add_vlan(vid);
        configure([&] {
            for (u32 k : members)
                plain_switch::add_member(port(k), vid);
        });
        return vlan;
    }
};

// --- by the chip --------------------------------------------------------------------------------

using ChipFlood = FloodTest;

TEST_F(ChipFlood, every_argument_reaches_the_driver) {
    const u32 except[2] = {4501, 2};
    port1()->vlan_tagged_bmp[0] |= 1u << 1;
    EXPECT_EQ(tarn_flood_except_port(port1(), 1, except, frame(), 6, 0x102, 0), 0u);
    ASSERT_THAT(driver().flooded, SizeIs(1));
    const auto &it = driver().flooded[0];
    EXPECT_EQ(it.ifindex, 5001u);
    EXPECT_EQ(it.vid, 1u);
    EXPECT_EQ(it.except0, 4501u);
    EXPECT_EQ(it.except1, 2u);
    EXPECT_EQ(it.bytes, plain());
    EXPECT_EQ(it.cos, 6u);
    EXPECT_EQ(it.queue, 2u) << "cut to 8 bits";
    EXPECT_EQ(it.mask, 0u);
    EXPECT_EQ(it.reserved, 0u);
    EXPECT_EQ(it.tagged, 1u);
    EXPECT_THAT(driver().sent, IsEmpty());
}

TEST_F(ChipFlood, nothing_is_excepted_when_nothing_is_named) {
    EXPECT_EQ(tarn_flood_except_port(nullptr, 7, nullptr, frame(), 0, 0, 1), 0u);
    ASSERT_THAT(driver().flooded, SizeIs(1));
    const auto &it = driver().flooded[0];
    EXPECT_EQ(it.ifindex, 0u);
    EXPECT_EQ(it.vid, 7u) << "a VLAN without an interface is the chip's business";
    EXPECT_EQ(it.except0, 0xFFFFFFFFu);
    EXPECT_EQ(it.except1, 0u);
    EXPECT_EQ(it.tagged, 0u);
}

TEST_F(ChipFlood, tagged_is_what_the_excepted_port_would_send) {
    port1()->vlan_tagged_bmp[0] |= 1u << 1;
    flood(port1(), 2);
    flood(port1(), 1);
    flood(port1(), 4096);
    flood(vlan1(), 1);
    EXPECT_THAT(driver().flooded, ElementsAre(Field(&fake_driver::Flooded::tagged, 0),
                                              Field(&fake_driver::Flooded::tagged, 1),
                                              Field(&fake_driver::Flooded::tagged, 0),
                                              Field(&fake_driver::Flooded::tagged, 0)));
}

TEST_F(ChipFlood, to_trusted_ports_says_so_and_excepts_no_pair) {
    EXPECT_EQ(tarn_flood_trusted_except_port(port1(), 1, frame(), 6, 2, 1), 0u);
    ASSERT_THAT(driver().flooded, SizeIs(1));
    const auto &it = driver().flooded[0];
    EXPECT_EQ(it.ifindex, 5001u);
    EXPECT_EQ(it.mask, 64u);
    EXPECT_EQ(it.except0, 0xFFFFFFFFu);
    EXPECT_EQ(it.except1, 0u);
    EXPECT_EQ(it.cos, 6u);
    EXPECT_EQ(it.queue, 2u);
}

TEST_F(ChipFlood, any_other_answer_is_final_and_leaves_the_frame) {
    for (i32 result : {-EINVAL, -ENODEV, -1, 1, 95}) {
        driver().flood_result = result;
        sk_buff *skb = frame();
        EXPECT_EQ(tarn_flood_except_port(port1(), 1, nullptr, skb, 0, 0, 1),
                  static_cast<u32>(result));
        EXPECT_EQ(tarn_flood_trusted_except_port(port1(), 1, skb, 0, 0, 1),
                  static_cast<u32>(result));
        EXPECT_EQ(bytes_of(skb), plain());
        kfree_skb(skb);
    }
    EXPECT_THAT(driver().sent, IsEmpty());
}

TEST_F(ChipFlood, knows_no_bypass_of_the_discard_switch) {
    vlan1()->if_flags |= TARN_IF_F_VLAN_LOCAL;
    tarn_tx_discard_all_set(1);
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    dropped();
    EXPECT_EQ(flood(port1(), 1), 0);
    EXPECT_EQ(tarn_flood_trusted_except_port(port1(), 1, frame(), 0, 0, 1), 0u);
    EXPECT_EQ(dropped(), 2u);
    EXPECT_THAT(driver().flooded, IsEmpty());
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ChipFlood, is_logged_with_the_port_left_out) {
    userlevel::clock_stop(10000);
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    flood(port1(), 1, Bytes{1, 2, 3, 4});
    flood(nullptr, 4094, Bytes{1, 2, 3, 4});
    driver().flood_result = -EINVAL;
    flood(port1(), 0xFFFFFFFF, Bytes{1, 2, 3, 4});
    driver().flood_result = 1;
    flood(port1(), 1, Bytes{1, 2, 3, 4});
    EXPECT_THAT(log(),
                ElementsAre("6 TxPkt(00001) Q:5 vlan1 except port1 len:4\n\t01020304 \n",
                            "6 TxPkt(00002) Q:5 vlan4094 except portUnknown len:4\n\t01020304 \n",
                            "6 TxPkt(00003) Q:5 vlan-1 except port1 len:4\n\t01020304 \n",
                            "6 TxPkt(00004) Q:5 vlan1 except port1 len:4\n\t01020304 \n"));
}

TEST_F(ChipFlood, the_log_filters_by_the_vid_of_the_flood) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    tarn_pkt_debug_vlan = 7;
    flood(port1(), 1);
    EXPECT_THAT(log(), IsEmpty());
    flood(port1(), 7);
    EXPECT_THAT(log(), SizeIs(1));
}

// The frame is gone by the time that the line is written.
TEST_F(ChipFlood, a_frame_that_the_driver_took_is_logged_with_its_bytes) {
    userlevel::clock_stop(10000);
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    EXPECT_EQ(flood(nullptr, 1, Bytes{0xDE, 0xAD, 0xBE, 0xEF}), 0);
    EXPECT_THAT(log(),
                ElementsAre("6 TxPkt(00001) Q:5 vlan1 except portUnknown len:4\n\tdeadbeef \n"));
}

TEST_F(ChipFlood, without_memory_for_the_log_goes_out_unlogged) {
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    sk_buff *skb = frame();
    userlevel::fail_allocation(1);
    EXPECT_EQ(_tarn_flood(port1(), 1, nullptr, skb, 0, 0, 1, 0), 0);
    EXPECT_THAT(driver().flooded, SizeIs(1));
    EXPECT_THAT(log(), IsEmpty());
}

// --- in software --------------------------------------------------------------------------------

class SoftwareFlood : public FloodTest {
protected:
    SoftwareFlood() {
        fake_driver::attach_without_flood();
        add_port(2);
        add_port(3);
    }
};

TEST_F(SoftwareFlood, reaches_every_forwarding_member_but_the_port_and_frees_the_frame) {
    dropped();
    EXPECT_EQ(flood(port(2), 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5001)) << "the newest binding first";
    EXPECT_EQ(dropped(), 1u);
    for (const auto &sent : driver().sent) {
        EXPECT_EQ(sent.vid, 1u);
        EXPECT_EQ(sent.bytes, plain());
        EXPECT_EQ(sent.cos, 3u);
        EXPECT_EQ(sent.queue, 5u);
        EXPECT_EQ(sent.tx_enable, 1u);
        EXPECT_EQ(sent.tx_option, 0u);
    }
}

TEST_F(SoftwareFlood, happens_when_the_driver_says_so_too) {
    fake_driver::attach();
    driver().flood_result = -EOPNOTSUPP;
    EXPECT_EQ(flood(port(2), 1), 0);
    EXPECT_THAT(driver().flooded, SizeIs(1));
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5001));
}

TEST_F(SoftwareFlood, without_a_port_reaches_all) {
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5002, 5001));
}

TEST_F(SoftwareFlood, does_not_look_at_the_exception_pair) {
    const u32 except[2] = {5001, 0};
    EXPECT_EQ(tarn_flood_except_port(port(2), 1, except, frame(), 3, 5, 0), 0u);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5001));
    EXPECT_EQ(driver().sent[0].tx_enable, 0u);
}

TEST_F(SoftwareFlood, each_port_gets_bytes_of_its_own) {
    driver().hold = true;
    EXPECT_EQ(flood(nullptr, 1), 0);
    ASSERT_THAT(driver().held, SizeIs(3));
    for (sk_buff *skb : driver().held)
        EXPECT_FALSE(skb_cloned(skb));
    fake_driver::release();
}

TEST_F(SoftwareFlood, each_port_decides_for_itself_whether_it_tags) {
    port(3)->vlan_tagged_bmp[0] |= 1u << 1;
    EXPECT_EQ(flood(port(2), 1), 0);
    EXPECT_THAT(driver().sent, ElementsAre(Field(&fake_driver::Sent::tagged, 1u),
                                           Field(&fake_driver::Sent::tagged, 0u)));
}

TEST_F(SoftwareFlood, on_a_vlan_without_interface_leaves_the_frame) {
    dropped();
    sk_buff *skb = frame();
    EXPECT_EQ(_tarn_flood(port1(), 77, nullptr, skb, 3, 5, 1, 0), -ENETDOWN);
    EXPECT_EQ(bytes_of(skb), plain());
    EXPECT_EQ(dropped(), 0u);
    kfree_skb(skb);
    EXPECT_THAT(driver().sent, IsEmpty());
}

TEST_F(SoftwareFlood, on_a_vlan_without_members_frees_the_frame) {
    add_vlan(20);
    dropped();
    EXPECT_EQ(flood(port1(), 20), 0);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_THAT(driver().sent, IsEmpty());
}

TEST_F(SoftwareFlood, passes_over_a_port_that_does_not_run) {
    port(2)->flags &= ~IFF_RUNNING;
    port(3)->flags = IFF_RUNNING; // up or not is not asked
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5001));
}

TEST_F(SoftwareFlood, passes_over_a_port_that_lacks_a_bit_of_the_mask) {
    port(2)->if_flags |= TARN_IF_F_DHCPSN_TRUSTED;
    EXPECT_EQ(tarn_flood_trusted_except_port(nullptr, 1, frame(), 3, 5, 1), 0u);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002));
    driver().sent.clear();
    port(3)->if_flags |= TARN_IF_F_DHCPSN_TRUSTED | TARN_IF_F_ARPSEC;
    EXPECT_EQ(flood(nullptr, 1, plain(), 3, TARN_IF_F_DHCPSN_TRUSTED | TARN_IF_F_ARPSEC), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003)) << "all bits, not any";
}

TEST_F(SoftwareFlood, passes_over_a_port_on_which_the_vlan_is_disabled) {
    port(2)->vlan_disabled_bmp[0] |= 1u << 1;
    port(3)->vlan_disabled_bmp[0] |= 1u << 2;
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5001));
}

TEST_F(SoftwareFlood, passes_over_a_port_that_does_not_forward) {
    for (u32 state :
         {TARN_STP_DISABLED, TARN_STP_LISTENING, TARN_STP_LEARNING, TARN_STP_BLOCKING}) {
        driver().sent.clear();
        port(2)->stp_state[0] = state;
        port(2)->auth_state = 4; // of no meaning here
        EXPECT_EQ(flood(nullptr, 1), 0);
        EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5001)) << "state " << state;
    }
}

TEST_F(SoftwareFlood, asks_the_spanning_tree_instance_of_the_vlan) {
    vlan1()->stp_instance = 5;
    port(2)->stp_state[0] = TARN_STP_BLOCKING;
    port(3)->stp_state[5] = TARN_STP_BLOCKING;
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5001));
}

TEST_F(SoftwareFlood, keeps_downstream_ports_apart) {
    configure([&] { tarn_ifmgr_vlan_upstream_if_add(vlan1(), port(3)); });
    EXPECT_EQ(flood(port1(), 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003)) << "downstream to upstream alone";
    driver().sent.clear();
    EXPECT_EQ(flood(port(3), 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5001)) << "upstream to all";
    driver().sent.clear();
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5002, 5001)) << "from nowhere to all";
}

TEST_F(SoftwareFlood, of_an_aggregator_its_member_with_link_sends) {
    tarn_if *aggregator = add_aggregator_over(port(2), 4501);
    aggregator->stp_state[0] = TARN_STP_FORWARDING;
    ASSERT_EQ(vlan1()->children->ifp, aggregator);
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5003, 5001));
    driver().sent.clear();
    EXPECT_EQ(flood(aggregator, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5001));
}

TEST_F(SoftwareFlood, passes_over_an_aggregator_without_a_member_that_has_link) {
    tarn_if *aggregator = add_aggregator_over(port(2), 4501);
    aggregator->stp_state[0] = TARN_STP_FORWARDING;
    port(2)->flags &= ~IFF_RUNNING;
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5001));
}

TEST_F(SoftwareFlood, passes_over_an_aggregator_that_does_not_forward) {
    tarn_if *aggregator = add_aggregator_over(port(2), 4501);
    aggregator->stp_state[0] = TARN_STP_BLOCKING;
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5001));
}

TEST_F(SoftwareFlood, a_copy_that_cannot_be_made_is_reported_and_left_out) {
    for (u64 n : {1, 2}) { // the buffer, or its bytes
        driver().sent.clear();
        sk_buff *skb = frame();
        userlevel::fail_allocation(n);
        EXPECT_EQ(_tarn_flood(nullptr, 1, nullptr, skb, 3, 5, 1, 0), 0);
        EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5001));
        EXPECT_THAT(log(), ElementsAre("4 Memory allocation failure while skb_clone\n"));
    }
}

TEST_F(SoftwareFlood, a_copy_that_is_refused_is_freed_and_no_failure) {
    for (i32 result : {-ENODEV, 1}) {
        driver().sent.clear();
        driver().answer = [=](const fake_driver::Sent &sent) {
            return sent.ifindex == 5003 ? static_cast<u32>(result) : 0;
        };
        EXPECT_EQ(flood(nullptr, 1), 0);
        EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5002, 5001));
    }
}

TEST_F(SoftwareFlood, refused_copies_are_booked_on_the_vlan) {
    failures.clear();
    vlan1()->tx_failure_cb = failed;
    driver().xmit_result = 7;
    EXPECT_EQ(flood(port1(), 1), 0);
    EXPECT_THAT(failures, ElementsAre(Failure{vlan1(), 5, 7}, Failure{vlan1(), 5, 7}));
    vlan1()->tx_failure_cb = nullptr;
}

TEST_F(SoftwareFlood, copies_are_logged_and_mirrored_like_any_frame) {
    userlevel::clock_stop(10000);
    tarn_pkt_debug = TARN_PKT_DEBUG_TX;
    port(3)->mirror_ifindex = 5002;
    EXPECT_EQ(flood(port(2), 1, Bytes{1, 2, 3, 4}), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5003, 5001));
    EXPECT_THAT(log(), ElementsAre("6 TxPkt(00001) Q:5 vlan1 port3 len:4\n\t01020304 \n",
                                   "6 TxPkt(00002) Q:5 vlan1 port2 len:4\n\t01020304 \n",
                                   "6 TxPkt(00003) Q:5 vlan1 port1 len:4\n\t01020304 \n"));
}

// Transmit may call into the network stack, and the last reference to a port may go there.
TEST_F(SoftwareFlood, holds_no_lock_while_it_sends) {
    driver().answer = [](const fake_driver::Sent &) {
        EXPECT_EQ(preempt_count(), 0u);
        write_lock_bh(&tarn_if_db_lock);
        write_unlock_bh(&tarn_if_db_lock);
        return 0u;
    };
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(driver().sent, SizeIs(3));
}

TEST_F(SoftwareFlood, a_port_deleted_meanwhile_is_destroyed_behind_its_copy) {
    driver().answer = [this](const fake_driver::Sent &sent) {
        if (sent.ifindex == 5003) {
            tarn_if *going = tarn_ifmgr_lookup_by_index(5001);
            tarn_ifmgr_delete_interface(going);
            _tarn_ifmgr_if_put(going); // the database's own; the flood holds the last one
            EXPECT_NE(port1()->if_flags & TARN_IF_F_VALID, 0u);
        }
        return 0u;
    };
    configure([&] {
        EXPECT_EQ(flood(nullptr, 1), 0);
        EXPECT_THAT(ports_sent_to(), ElementsAre(5003, 5002, 5001));
        EXPECT_EQ(port1()->if_flags & TARN_IF_F_VALID, 0u) << "its destructor has run";
        userlevel::work_run();
    });
}

// Its destructor has yet to take it off the lists.
TEST_F(SoftwareFlood, passes_over_a_port_whose_last_reference_has_gone) {
    tarn_if *going = port(3);
    refcount_set(&going->refcnt, 0);
    EXPECT_EQ(flood(nullptr, 1), 0);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5001));
    EXPECT_EQ(refcount_read(&going->refcnt), 0);
    refcount_set(&going->refcnt, 1);
}

TEST_F(SoftwareFlood, by_itself_leaves_the_frame_with_the_caller) {
    sk_buff *skb = frame();
    EXPECT_EQ(_tarn_flood_software(nullptr, 1, skb, 3, 5, 1, 0), 0u);
    EXPECT_EQ(bytes_of(skb), plain());
    EXPECT_EQ(_tarn_flood_software(nullptr, 77, skb, 3, 5, 1, 0), static_cast<u32>(-ENETDOWN));
    kfree_skb(skb);
}

class WideFlood : public SoftwareFlood {
protected:
    WideFlood() {
        for (u32 k = 4; k <= 40; k++)
            add_port(k);
    }
};

TEST_F(WideFlood, reaches_all_of_forty_ports) {
    EXPECT_EQ(flood(nullptr, 1), 0);
    ASSERT_THAT(driver().sent, SizeIs(40));
    for (u32 k = 1; k <= 40; k++)
        EXPECT_EQ(driver().sent[40 - k].ifindex, 5000 + k);
}

TEST_F(WideFlood, without_memory_for_a_list_of_them_reaches_as_many_as_it_can) {
    sk_buff *skb = frame();
    userlevel::fail_allocation(1);
    EXPECT_EQ(_tarn_flood(nullptr, 1, nullptr, skb, 3, 5, 1, 0), 0);
    EXPECT_THAT(driver().sent, SizeIs(32));
    EXPECT_EQ(log(), std::vector<std::string>(8, "4 Memory allocation failure while skb_clone\n"));
}

// --- VLANs that carry others --------------------------------------------------------------------

class StackedFlood : public SoftwareFlood {
protected:
    StackedFlood() {
        add_vlan_with(20, {1});
        features().outer_vlans = {{0xABC, 9}}; // somewhere else
    }
    // The VIDs on which copies were sent.
    std::vector<u32> vids_sent_on() {
        std::vector<u32> vids;
        for (const auto &sent : driver().sent)
            vids.push_back(sent.vid);
        return vids;
    }
};

TEST_F(StackedFlood, a_vlan_that_is_carried_floods_on_in_its_outer_one_with_a_tag) {
    features().outer_vlans = {{1, 20}};
    Bytes before = Frame().to("02:0a:0b:0c:0d:0e").from("02:00:00:00:00:77").bytes({7, 8, 9});
    dropped();
    EXPECT_EQ(flood(port(2), 1, before, 7), 0);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_THAT(vids_sent_on(), ElementsAre(1, 1, 20));
    EXPECT_EQ(driver().sent[0].bytes, before);
    EXPECT_EQ(driver().sent[1].bytes, before);
    Bytes tagged = before;
    const u8 tag[] = {0x00, 0x81, 0x60, 0x01}; // the type bytes are swapped, on purpose
    tagged.insert(tagged.begin() + 12, std::begin(tag), std::end(tag));
    EXPECT_EQ(driver().sent[2].bytes, tagged);
    EXPECT_EQ(driver().sent[2].cos, 7u);
    EXPECT_EQ(driver().sent[2].queue, 5u);
    EXPECT_EQ(driver().sent[2].tx_enable, 1u);
}

TEST_F(StackedFlood, the_tag_has_two_bits_of_class_and_twelve_of_vid) {
    struct Row {
        u32 vid, cos;
        u8 first, second;
    };
    for (Row row : {Row{0xFED, 0, 0x0F, 0xED}, Row{0xFED, 1, 0x2F, 0xED}, Row{0x123, 2, 0x41, 0x23},
                    Row{0x123, 3, 0x61, 0x23}, Row{0x123, 4, 0x01, 0x23}, Row{0x123, 7, 0x61, 0x23},
                    Row{0x100, 0xFFFFFFFF, 0x61, 0x00}}) {
        tarn_if *vlan = add_vlan(row.vid);
        features().outer_vlans = {{row.vid, 20}};
        driver().sent.clear();
        EXPECT_EQ(flood(nullptr, row.vid, plain(), row.cos), 0);
        ASSERT_THAT(driver().sent, SizeIs(1));
        const Bytes &sent = driver().sent[0].bytes;
        EXPECT_EQ(Bytes(sent.begin() + 12, sent.begin() + 16),
                  (Bytes{0x00, 0x81, row.first, row.second}));
        configure([&] {
            tarn_ifmgr_if_ref_get(vlan);
            tarn_ifmgr_delete_interface(vlan);
            _tarn_ifmgr_if_put(vlan);
        });
    }
}

TEST_F(StackedFlood, with_the_port_and_the_mask_of_the_first_flood) {
    features().outer_vlans = {{1, 20}};
    configure([&] { plain_switch::add_member(port(2), 20); });
    port(2)->if_flags |= TARN_IF_F_DHCPSN_TRUSTED;
    EXPECT_EQ(tarn_flood_trusted_except_port(port1(), 1, frame(), 3, 5, 0), 0u);
    EXPECT_THAT(ports_sent_to(), ElementsAre(5002, 5002));
    EXPECT_THAT(vids_sent_on(), ElementsAre(1, 20));
    EXPECT_EQ(driver().sent[1].tx_enable, 0u);
}

TEST_F(StackedFlood, without_four_bytes_of_headroom_ends_with_the_first_flood) {
    features().outer_vlans = {{1, 20}};
    dropped();
    EXPECT_EQ(flood(port(2), 1, plain(), 3, 0, 3), 0);
    EXPECT_THAT(vids_sent_on(), ElementsAre(1, 1));
    EXPECT_EQ(dropped(), 1u);
    driver().sent.clear();
    EXPECT_EQ(flood(port(2), 1, plain(), 3, 0, 4), 0);
    EXPECT_THAT(vids_sent_on(), ElementsAre(1, 1, 20));
}

TEST_F(StackedFlood, without_headroom_a_tag_is_not_taken_off_either) {
    features().outer_vlans = {{1, 20}, {0x10, 1}};
    EXPECT_EQ(flood(port(2), 1, Frame().tag(0x1000).padded(), 3, 0, 0), 0);
    EXPECT_THAT(vids_sent_on(), ElementsAre(1, 1));
}

// Of twelve bytes and more the addresses can be moved; of fewer, bytes beyond the frame would be.
TEST_F(StackedFlood, a_frame_without_addresses_gets_no_tag) {
    features().outer_vlans = {{1, 20}};
    for (u32 length : {0u, 1u, 8u, 11u}) {
        driver().sent.clear();
        EXPECT_EQ(flood(port(2), 1, Bytes(length, 0x55)), 0);
        EXPECT_THAT(vids_sent_on(), ElementsAre(1, 1)) << length << " bytes";
    }
    driver().sent.clear();
    EXPECT_EQ(flood(port(2), 1, Bytes(12, 0x55)), 0);
    EXPECT_THAT(vids_sent_on(), ElementsAre(1, 1, 20));
    EXPECT_THAT(driver().sent[2].bytes, SizeIs(16));
}

TEST_F(StackedFlood, into_an_outer_vlan_without_interface_fails_and_leaves_the_frame) {
    features().outer_vlans = {{1, 77}};
    sk_buff *skb = frame();
    EXPECT_EQ(_tarn_flood(port(2), 1, nullptr, skb, 3, 5, 1, 0), -ENETDOWN);
    EXPECT_THAT(vids_sent_on(), ElementsAre(1, 1)) << "the first flood has been made";
    kfree_skb(skb);
}

TEST_F(StackedFlood, a_frame_whose_bytes_others_read_is_tagged_in_bytes_of_its_own) {
    features().outer_vlans = {{1, 20}};
    sk_buff *skb = frame(), *other = skb_clone(skb, GFP_ATOMIC);
    EXPECT_EQ(_tarn_flood(port(2), 1, nullptr, skb, 3, 5, 1, 0), 0);
    EXPECT_THAT(vids_sent_on(), ElementsAre(1, 1, 20));
    EXPECT_EQ(bytes_of(other), plain());
    kfree_skb(other);
}

TEST_F(StackedFlood, without_memory_for_bytes_of_its_own_ends_with_the_first_flood) {
    features().outer_vlans = {{1, 20}};
    sk_buff *skb = frame(), *other = skb_clone(skb, GFP_ATOMIC);
    userlevel::fail_allocation(5); // behind two copies
    EXPECT_EQ(_tarn_flood(port(2), 1, nullptr, skb, 3, 5, 1, 0), 0);
    EXPECT_THAT(vids_sent_on(), ElementsAre(1, 1));
    EXPECT_EQ(bytes_of(other), plain());
    kfree_skb(other);
}

// The control word is read as it lies in memory: 03 05 names VLAN 0x503.
TEST_F(StackedFlood, an_outer_vlan_floods_on_in_the_one_that_the_tag_names) {
    add_vlan_with(0x503, {3});
    features().outer_vlans = {{0x503, 20}};
    Bytes tagged = Frame().tag(0x0305).type(0x88CC).bytes({1, 2, 3});
    dropped();
    EXPECT_EQ(flood(port(2), 20, tagged), 0);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_THAT(vids_sent_on(), ElementsAre(20, 0x503));
    EXPECT_EQ(driver().sent[0].bytes, tagged);
    EXPECT_EQ(driver().sent[1].bytes, Bytes(Frame().type(0x88CC).bytes({1, 2, 3})));
    EXPECT_EQ(driver().sent[1].ifindex, 5003u);
    EXPECT_EQ(driver().sent[1].cos, 3u);
    EXPECT_EQ(driver().sent[1].queue, 5u);
}

TEST_F(StackedFlood, of_the_word_in_memory_order_twelve_bits_count) {
    tarn_if *beyond = add_vlan_with(0xFF03, {}); // in no bitmap, but it can have ports
    configure([&] { EXPECT_EQ(tarn_ifmgr_bind(beyond, port(3)), 0); });
    features().outer_vlans = {{0xFF03, 20}};
    EXPECT_EQ(flood(port(2), 20, Frame().tag(0x03FF).padded()), 0);
    EXPECT_EQ(flood(port(2), 20, Frame().tag(0xF3FF).padded()), 0) << "the priority does not";
    EXPECT_THAT(vids_sent_on(), ElementsAre(20, 0xFF03, 20, 0xFF03));
}

TEST_F(StackedFlood, a_tag_of_a_vlan_that_is_carried_elsewhere_stays) {
    features().outer_vlans = {{0x503, 21}};
    EXPECT_EQ(flood(port(2), 20, Frame().tag(0x0305).padded()), 0);
    EXPECT_EQ(flood(port(2), 20, Frame().tag(0x0503).padded()), 0);
    EXPECT_EQ(flood(port(2), 20, Frame().tag(0x0305, 0x88A8).padded()), 0);
    EXPECT_EQ(flood(port(2), 20), 0);
    EXPECT_THAT(vids_sent_on(), ElementsAre(20, 20, 20, 20));
}

TEST_F(StackedFlood, a_tag_that_names_a_vlan_without_interface_fails_and_leaves_the_frame) {
    features().outer_vlans = {{0x503, 20}};
    sk_buff *skb = frame(Frame().tag(0x0305).padded());
    EXPECT_EQ(_tarn_flood(port(2), 20, nullptr, skb, 3, 5, 1, 0), -ENETDOWN);
    kfree_skb(skb);
    EXPECT_THAT(vids_sent_on(), ElementsAre(20));
}

TEST_F(StackedFlood, a_frame_that_ends_in_its_tag_keeps_it) {
    add_vlan_with(0x003, {3});
    features().outer_vlans = {{0x003, 20}, {0x503, 20}, {0, 20}};
    EXPECT_EQ(flood(port(2), 20, Frame().tag(0x0305).cut(15)), 0);
    EXPECT_EQ(flood(port(2), 20, Frame().tag(0x0305).cut(14)), 0);
    EXPECT_EQ(flood(port(2), 20, Frame().tag(0x0305).cut(13)), 0);
    EXPECT_THAT(vids_sent_on(), ElementsAre(20, 20, 20));
}

TEST_F(StackedFlood, a_shared_frame_is_stripped_in_bytes_of_its_own_or_not_at_all) {
    add_vlan_with(0x503, {3});
    features().outer_vlans = {{0x503, 20}};
    const Bytes tagged = Frame().tag(0x0305).padded();
    for (u64 fail : {0, 3}) { // behind the one copy
        sk_buff *skb = frame(tagged), *other = skb_clone(skb, GFP_ATOMIC);
        userlevel::fail_allocation(fail);
        EXPECT_EQ(_tarn_flood(port(2), 20, nullptr, skb, 3, 5, 1, 0), 0);
        EXPECT_EQ(bytes_of(other), tagged);
        kfree_skb(other);
    }
    EXPECT_THAT(vids_sent_on(), ElementsAre(20, 0x503, 20));
}

// No VLAN is carried in 0, which is what the answer for one that is not carried reads like.
TEST_F(StackedFlood, on_vlan_0_goes_on_in_the_vlan_of_any_tag) {
    add_vlan_with(0, {3});
    add_vlan_with(0x503, {3});
    EXPECT_EQ(flood(port(2), 0, Frame().tag(0x0305).padded()), 0);
    EXPECT_THAT(vids_sent_on(), ElementsAre(0, 0x503));
}

TEST_F(StackedFlood, by_the_chip_is_the_chips_business) {
    fake_driver::attach();
    features().outer_vlans = {{1, 20}};
    EXPECT_EQ(flood(port(2), 1), 0);
    EXPECT_THAT(driver().flooded, SizeIs(1));
    EXPECT_THAT(driver().sent, IsEmpty());
}

} // namespace
