#include "chip_test.h"

#include "kernel/netdev.h"
#include "kernel/skb.h"

#include <cstring>

using Callbacks = ChipTest;

namespace {

const std::string A = "02:00:00:00:00:0a", B = "02:00:00:00:00:0b";

Frame to(const std::string &address) {
    return Frame().to(address).padded();
}

constexpr u32 INVALID = static_cast<u32>(-22), NO_DEVICE = static_cast<u32>(-19);

} // namespace

TEST_F(Callbacks, a_frame_leaves_the_port_that_is_asked_for) {
    EXPECT_EQ(transmit(103, 1, false, to(B)), 0u);
    EXPECT_EQ(sent(103), Frames{Bytes(to(B))});
    EXPECT_EQ(ports_that_sent(), "");
}

TEST_F(Callbacks, the_core_decides_on_the_tag_of_a_frame_to_one_port) {
    EXPECT_EQ(transmit(103, 7, true, to(B), 5), 0u); // whatever VLANs the port is in
    EXPECT_EQ(sent(103), Frames{Bytes(to(B).tag(0xA007).padded(64))});
}

// As from a port under OpenFlow, or from a socket that names no VLAN.
TEST_F(Callbacks, a_frame_that_has_the_tag_already_gets_no_second_one) {
    EXPECT_EQ(transmit(103, 7, true, to(B).tag(0xE007).padded(), 5), 0u);
    EXPECT_EQ(sent(103), Frames{Bytes(to(B).tag(0xE007).padded())}) << "and its own priority";
    EXPECT_EQ(transmit(103, 7, false, to(B).tag(7).padded()), 0u);
    EXPECT_EQ(sent(103), Frames{Bytes(to(B).tag(7).padded())}) << "nor is it taken off";
}

TEST_F(Callbacks, on_the_vlan_a_tag_of_it_leaves_only_where_the_port_is_tagged) {
    tell("vlan 104 1 tagged");
    EXPECT_EQ(transmit(0, 1, false, to(B).tag(0xE001).padded()), 0u);
    EXPECT_EQ(sent(104), Frames{Bytes(to(B).tag(0xE001).padded())});
    Bytes untagged = to(B).padded(56); // of 60 bytes with the tag
    EXPECT_EQ(sent(101), Frames{untagged});
    EXPECT_EQ(transmit(0, 1, false, to(B).tag(8).padded()), 0u);
    EXPECT_EQ(sent(104), Frames{Bytes(to(B).tag(1).tag(8).padded(64))}) << "of another it stays";
    EXPECT_EQ(sent(102).back(), Bytes(to(B).tag(8).padded()));
}

TEST_F(Callbacks, a_tag_of_another_vlan_is_carried_behind_that_of_the_vlan) {
    EXPECT_EQ(transmit(103, 7, true, to(B).tag(8).padded()), 0u);
    EXPECT_EQ(sent(103), Frames{Bytes(to(B).tag(7).tag(8).padded(64))});
    EXPECT_EQ(transmit(103, 7, true, to(B).tag(7, 0x88A8).padded()), 0u);
    EXPECT_EQ(sent(103), Frames{Bytes(to(B).tag(7).tag(7, 0x88A8).padded(64))});
    EXPECT_EQ(transmit(103, 7, true, to(B).tag(7).cut(15)), 0u);
    EXPECT_EQ(sent(103), Frames{Bytes(to(B).tag(7).tag(7).cut(19))}) << "half a tag is none";
}

TEST_F(Callbacks, a_shared_buffer_is_not_written) {
    Bytes frame = to(B);
    sk_buff *skb = userlevel::frame_make(frame);
    sk_buff *other = skb_clone(skb, 0xA20);
    EXPECT_EQ(home.callbacks.start_xmit(103, 7, 1, 0, skb, 0, 0, 1), 0u);
    EXPECT_EQ(std::memcmp(skb_data(other), frame.data(), frame.size()), 0);
    kfree_skb(other);
    EXPECT_EQ(sent(103), Frames{Bytes(to(B).tag(7).padded(64))});
}

TEST_F(Callbacks, a_frame_on_the_vlan_goes_where_its_address_was_learned) {
    receive(102, Frame().from(B).to(A).padded());
    ports_that_sent();
    EXPECT_EQ(transmit(0, 1, false, to(B)), 0u);
    EXPECT_EQ(ports_that_sent(), "102");
}

TEST_F(Callbacks, a_frame_on_the_vlan_to_an_unknown_address_goes_to_all_each_tagged_its_way) {
    tell("vlan 104 1 tagged");
    EXPECT_EQ(transmit(0, 1, false, to(B), 3), 0u);
    EXPECT_EQ(sent(101), Frames{Bytes(to(B))});
    EXPECT_EQ(sent(104), Frames{Bytes(to(B).tag(0x6001).padded(64))});
    EXPECT_EQ(ports_that_sent(), "102 103");
}

TEST_F(Callbacks, the_cpus_own_multicast_is_flooded_whatever_the_switch_says) {
    home.callbacks.unknown_multicast_flood_set(0);
    EXPECT_EQ(transmit(0, 1, false, to("01:00:5e:01:02:03")), 0u);
    EXPECT_EQ(ports_that_sent(), "101 102 103 104");
}

TEST_F(Callbacks, the_source_of_a_cpu_frame_is_not_learned) {
    EXPECT_EQ(transmit(0, 1, false, to(B).from(A)), 0u);
    EXPECT_EQ(transmit(103, 1, false, to(B).from(A)), 0u);
    EXPECT_EQ(tell("show fdb"), "");
}

TEST_F(Callbacks, a_frame_to_an_unknown_port_stays_with_the_core) {
    EXPECT_EQ(transmit(999, 1, false, to(B)), NO_DEVICE);
}

TEST_F(Callbacks, what_makes_no_sense_stays_with_the_core) {
    EXPECT_EQ(transmit(101, 4095, true, to(B)), INVALID);
    EXPECT_EQ(transmit(0, 0, false, to(B)), INVALID);
    EXPECT_EQ(transmit(101, 1, false, to(B).cut(13)), INVALID);
    EXPECT_EQ(flood(0, 0, to(B)), -22);
    EXPECT_EQ(flood(0, 4095, to(B)), -22);
    EXPECT_EQ(flood(0, 1, to(B).cut(13)), -22);
    EXPECT_EQ(ports_that_sent(), "");
}

TEST_F(Callbacks, a_frame_to_a_port_that_is_down_is_lost_and_counted) {
    tell("link 103 down");
    EXPECT_EQ(transmit(103, 1, false, to(B)), 0u);
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(103, "drop-link"), 1u);
}

TEST_F(Callbacks, a_flood_reaches_the_vlan_but_not_the_excepted_port) {
    tell("novlan 104 1");
    EXPECT_EQ(flood(102, 1, to(B)), 0);
    EXPECT_EQ(ports_that_sent(), "101 103");
    EXPECT_EQ(flood(0, 1, to(B)), 0);
    EXPECT_EQ(ports_that_sent(), "101 102 103");
}

TEST_F(Callbacks, a_flood_is_no_lookup) {
    receive(102, Frame().from(B).to(A).padded());
    ports_that_sent();
    EXPECT_EQ(flood(0, 1, to(B)), 0);
    EXPECT_EQ(ports_that_sent(), "101 102 103 104");
}

TEST_F(Callbacks, the_exception_pair_names_a_port) {
    EXPECT_EQ(flood(102, 1, to(B), 103, 0), 0);
    EXPECT_EQ(ports_that_sent(), "101 104");
}

TEST_F(Callbacks, an_exception_pair_of_a_tunnel_names_no_port) {
    EXPECT_EQ(flood(102, 1, to(B), 103, 0xC0000201), 0);
    EXPECT_EQ(ports_that_sent(), "101 103 104");
}

TEST_F(Callbacks, no_exception_pair_excepts_nothing) {
    EXPECT_EQ(flood(0, 1, to(B), ~0u, 0), 0);
    EXPECT_EQ(ports_that_sent(), "101 102 103 104");
}

TEST_F(Callbacks, the_mask_picks_trusted_ports) {
    tell("trusted 101 on");
    tell("trusted 104 on");
    EXPECT_EQ(flood(0, 1, to(B), ~0u, 0, 0x40), 0);
    EXPECT_EQ(ports_that_sent(), "101 104");
    tell("trusted 101 off");
    EXPECT_EQ(flood(0, 1, to(B), ~0u, 0, 0x40), 0);
    EXPECT_EQ(ports_that_sent(), "104");
}

TEST_F(Callbacks, a_mask_the_chip_knows_nothing_of_is_left_to_the_software_flood) {
    EXPECT_EQ(flood(0, 1, to(B), ~0u, 0, 0x41), -95);
    EXPECT_EQ(ports_that_sent(), "");
}

TEST_F(Callbacks, the_flood_callback_can_be_left_out) {
    EXPECT_NE(home.callbacks.flood_except, nullptr);
    tell("flood software");
    EXPECT_EQ(home.callbacks.flood_except, nullptr);
    EXPECT_NE(home.callbacks.start_xmit, nullptr);
    tell("flood hardware");
    EXPECT_NE(home.callbacks.flood_except, nullptr);
}

TEST_F(Callbacks, a_port_in_authentication_mode_sends_strangers_to_the_cpu_alone) {
    net_device device{};
    std::strcpy(device.name, "p1");
    EXPECT_EQ(home.callbacks.auth_set(&device, 1), 0u);
    tell("static " + A + " 1 101");
    receive(101, Frame().from(A).to(B).padded());
    EXPECT_EQ(ports_that_sent(), "102 103 104");
    EXPECT_EQ(traps(), "");
    receive(101, Frame().from("02:00:00:00:00:0c").to(B).padded());
    receive(101, Frame().from("02:00:00:00:00:0c").to("ff:ff:ff:ff:ff:ff").padded());
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(traps(), "auth auth");
    EXPECT_EQ(counter(101, "learned"), 0u);
    receive(102, Frame().from("02:00:00:00:00:0d").to(B).padded()); // another port
    EXPECT_EQ(traps(), "");
    EXPECT_EQ(home.callbacks.auth_set(&device, 0), 0u);
    ports_that_sent();
    receive(101, Frame().from("02:00:00:00:00:0c").to(B).padded());
    EXPECT_EQ(ports_that_sent(), "102 103 104");
}

// The device that the core made for a routed port: another name, the port's own number.
TEST_F(Callbacks, authentication_is_also_switched_by_the_device_of_a_routed_port) {
    net_device device{};
    std::strcpy(device.name, "routed1");
    device.ifindex = 101;
    EXPECT_EQ(home.callbacks.auth_set(&device, 1), 0u);
    receive(101, Frame().from(A).to(B).padded());
    EXPECT_EQ(traps(), "auth");
    receive(102, Frame().from(A).to(B).padded());
    EXPECT_EQ(traps(), "");
    EXPECT_EQ(home.callbacks.auth_set(&device, 0), 0u);
    receive(101, Frame().from(A).to(B).padded());
    EXPECT_EQ(traps(), "");
    device.ifindex = 999;
    EXPECT_EQ(home.callbacks.auth_set(&device, 1), NO_DEVICE);
}

TEST_F(Callbacks, authentication_on_a_device_that_is_no_port_is_refused) {
    net_device device{};
    std::strcpy(device.name, "eth9");
    EXPECT_EQ(home.callbacks.auth_set(&device, 1), NO_DEVICE);
}

TEST_F(Callbacks, counters_are_summed_for_a_port_or_for_all) {
    receive(101, to(B));
    receive(102, to(B).cut(3));
    auto count = home.callbacks.sdma_counters;
    EXPECT_EQ(count(0, 0, 0), 2u);
    EXPECT_EQ(count(101, 0, 0), 1u);
    EXPECT_EQ(count(0, 1, 0), 3u);
    EXPECT_EQ(count(102, 2, 0), 1u);
    EXPECT_EQ(count(101, 2, 0), 0u);
    EXPECT_EQ(count(101, 9, 0), 0u);
    EXPECT_EQ(count(999, 0, 0), 0u);
}

TEST_F(Callbacks, an_address_has_a_place_in_the_table) {
    EXPECT_EQ(home.callbacks.cache_index(0x0200, 0x0000000A, 1), -1);
    receive(101, Frame().from(A).to(B).padded());
    EXPECT_GE(home.callbacks.cache_index(0x0200, 0x0000000A, 1), 0);
    EXPECT_EQ(home.callbacks.cache_index(0x0200, 0x0000000A, 2), -1);
}
