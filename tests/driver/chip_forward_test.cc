#include "chip_test.h"

#include "port.h"

using Forwarding = ChipTest;

namespace {

const std::string A = "02:00:00:00:00:0a", B = "02:00:00:00:00:0b", ALL = "ff:ff:ff:ff:ff:ff";

Frame from_to(const std::string &from, const std::string &to) {
    return Frame().from(from).to(to).bytes({1, 2, 3}).padded();
}

Bytes tagged(const Frame &frame, u16 tci) {
    return Frame(frame).tag(tci).padded(64);
}

} // namespace

TEST_F(Forwarding, unknown_unicast_is_flooded_and_not_trapped) {
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "102 103 104");
    EXPECT_EQ(traps(), "");
}

TEST_F(Forwarding, a_learned_address_is_reached_by_its_port_alone) {
    receive(102, from_to(B, A));
    ports_that_sent();
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "102");
    EXPECT_EQ(counter(102, "learned"), 1u);
}

TEST_F(Forwarding, the_frame_leaves_as_it_came) {
    Bytes frame = from_to(A, B);
    receive(101, frame);
    EXPECT_EQ(sent(102), Frames{frame});
}

TEST_F(Forwarding, a_frame_to_its_own_side_is_dropped) {
    receive(101, from_to(B, A));
    ports_that_sent();
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(101, "drop-nowhere"), 1u);
}

TEST_F(Forwarding, an_address_moves_to_where_it_was_heard_last) {
    receive(102, from_to(B, A));
    receive(103, from_to(B, A));
    ports_that_sent();
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "103");
    EXPECT_EQ(counter(103, "moved"), 1u);
}

TEST_F(Forwarding, an_address_grows_old_after_300_seconds_of_silence) {
    receive(102, from_to(B, A));
    ports_that_sent();
    userlevel::clock_advance(29999);
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "102");
    userlevel::clock_advance(1);
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "102 103 104");
}

TEST_F(Forwarding, hearing_an_address_again_keeps_it_young) {
    receive(102, from_to(B, A));
    userlevel::clock_advance(20000);
    receive(102, from_to(B, A));
    userlevel::clock_advance(20000);
    ports_that_sent();
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "102");
}

TEST_F(Forwarding, old_addresses_leave_the_table_with_the_tick) {
    receive(102, from_to(B, A));
    userlevel::clock_advance(30000);
    chip_tick();
    tell("age 0"); // nothing is old now, but it is gone already
    EXPECT_EQ(tell("show fdb"), "");
}

TEST_F(Forwarding, age_0_keeps_addresses) {
    tell("age 0");
    receive(102, from_to(B, A));
    userlevel::clock_advance(100000000);
    chip_tick();
    EXPECT_EQ(tell("show fdb"), "fdb " + B + " 1 learned 102\n");
}

TEST_F(Forwarding, more_addresses_than_room_never_stop_the_learning) {
    for (int i = 0; i < 20000; i++) {
        char from[18];
        std::snprintf(from, sizeof(from), "02:00:00:01:%02x:%02x", i >> 8, i & 0xFF);
        receive(102, from_to(from, A));
        home.sent.clear();
    }
    EXPECT_EQ(counter(102, "learned"), 20000u);
    receive(101, from_to(A, "02:00:00:01:4e:1f")); // the last one
    EXPECT_EQ(ports_that_sent(), "102");
}

TEST_F(Forwarding, a_port_that_does_not_learn_floods) {
    tell("learn 102 off");
    receive(102, from_to(B, A));
    ports_that_sent();
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "102 103 104");
}

TEST_F(Forwarding, vlans_do_not_reach_each_other) {
    for (const char *line : {"novlan 102 1", "novlan 104 1", "vlan 102 2 untagged", "pvid 102 2",
                             "vlan 104 2 untagged", "pvid 104 2"})
        tell(line);
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "103");
    receive(102, from_to(B, A));
    EXPECT_EQ(ports_that_sent(), "104");
    receive(103, from_to("02:00:00:00:00:0c", B)); // known, but in the other VLAN
    EXPECT_EQ(ports_that_sent(), "101");
}

TEST_F(Forwarding, a_tag_is_added_for_a_tagged_member) {
    tell("vlan 102 1 tagged");
    receive(101, from_to(A, B));
    EXPECT_EQ(sent(102), Frames{tagged(from_to(A, B), 1)});
    EXPECT_EQ(sent(103), Frames{Bytes(from_to(A, B))});
}

TEST_F(Forwarding, a_tag_is_taken_off_for_an_untagged_member) {
    tell("vlan 101 1 tagged");
    tell("vlan 104 1 tagged");
    Bytes frame = tagged(from_to(A, B), 0x6001);
    receive(101, frame);
    Bytes bare = from_to(A, B).padded(frame.size() - 4);
    EXPECT_EQ(sent(102), Frames{bare});
    EXPECT_EQ(sent(103), Frames{bare});
    EXPECT_EQ(sent(104), Frames{frame}); // with its priority
}

TEST_F(Forwarding, a_frame_in_a_buffer_without_headroom_is_tagged_all_the_same) {
    tell("vlan 102 1 tagged");
    chip_device *device = home.open.at("p1");
    chip_receive(device, device->slot, userlevel::frame_make(Bytes(from_to(A, B)), 0));
    EXPECT_EQ(sent(102), Frames{tagged(from_to(A, B), 1)});
}

TEST_F(Forwarding, a_tag_of_a_vlan_the_port_is_in_is_accepted_beside_its_pvid) {
    tell("vlan 101 7 tagged");
    tell("vlan 103 7 untagged");
    receive(101, tagged(from_to(A, B), 7));
    EXPECT_EQ(ports_that_sent(), "103");
}

TEST_F(Forwarding, a_tag_that_names_no_vlan_counts_for_its_priority) {
    tell("vlan 102 1 tagged");
    receive(101, tagged(from_to(A, B), 0xA000));
    EXPECT_EQ(sent(102), Frames{tagged(from_to(A, B), 0xA001)});
    EXPECT_EQ(sent(103).at(0)[12], 0x88); // its type: no tag
}

TEST_F(Forwarding, a_frame_of_a_vlan_the_port_is_not_in_is_dropped) {
    receive(101, tagged(from_to(A, B), 5));
    receive(101, tagged(from_to(A, B), 4095));
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(101, "drop-vlan"), 2u);
    EXPECT_EQ(tell("show fdb"), "");
}

TEST_F(Forwarding, pvid_0_drops_untagged_frames) {
    tell("pvid 101 0");
    receive(101, from_to(A, B));
    receive(101, tagged(from_to(A, B), 0));
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(101, "drop-untagged"), 2u);
    receive(101, tagged(from_to(A, B), 1));
    EXPECT_EQ(ports_that_sent(), "102 103 104");
}

TEST_F(Forwarding, a_group_as_source_is_dropped) {
    receive(101, from_to("03:00:00:00:00:01", B));
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(101, "drop-source"), 1u);
}

TEST_F(Forwarding, runts_are_dropped_at_every_length) {
    Bytes whole = Frame().from(A).to(B).tag(1);
    for (std::size_t length = 0; length < 18; length++)
        receive(101, Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(101, "drop-runt"), 18u);
    EXPECT_EQ(counter(101, "rx"), 18u);
}

TEST_F(Forwarding, a_port_that_is_down_takes_and_sends_nothing) {
    tell("link 102 down");
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "103 104");
    receive(102, from_to(B, A));
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(102, "drop-link"), 1u);
    tell("link 102 up");
    receive(102, from_to(B, A));
    EXPECT_EQ(ports_that_sent(), "101");
}

TEST_F(Forwarding, a_static_address_stays_where_it_was_told) {
    tell("static " + B + " 1 104");
    receive(102, from_to(B, A));
    ports_that_sent();
    userlevel::clock_advance(1000000);
    chip_tick();
    receive(101, from_to(A, B));
    EXPECT_EQ(ports_that_sent(), "104");
}

TEST_F(Forwarding, a_group_that_was_told_goes_to_its_ports_and_not_to_the_cpu) {
    tell("group 01:00:5e:01:02:03 1 102");
    tell("group 01:00:5e:01:02:03 1 104");
    receive(101, Frame().from(A).to("01:00:5e:01:02:03").ipv4({}));
    EXPECT_EQ(ports_that_sent(), "102 104");
    EXPECT_EQ(traps(), "");
    tell("nogroup 01:00:5e:01:02:03 1 102");
    receive(101, Frame().from(A).to("01:00:5e:01:02:03").ipv4({}));
    EXPECT_EQ(ports_that_sent(), "104");
}

TEST_F(Forwarding, the_switch_for_unknown_multicast_stops_groups_but_not_those_of_the_link) {
    home.callbacks.unknown_multicast_flood_set(0);
    receive(101, Frame().from(A).to("01:00:5e:01:02:03").ipv4({}));
    receive(101, Frame().from(A).to("33:33:00:00:12:34").ipv6({}));
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(traps(), "multicast-ipv4 multicast-ipv6");
    receive(101, Frame().from(A).to("01:00:5e:00:00:05").ipv4({.protocol = 89}));
    EXPECT_EQ(ports_that_sent(), "102 103 104");
    receive(101, Frame().from(A).to("33:33:00:00:00:01").ipv6({.next = 58}));
    EXPECT_EQ(ports_that_sent(), "102 103 104");
    receive(101, from_to(A, ALL));
    EXPECT_EQ(ports_that_sent(), "102 103 104");
    home.callbacks.unknown_multicast_flood_set(1);
    receive(101, Frame().from(A).to("01:00:5e:01:02:03").ipv4({}));
    EXPECT_EQ(ports_that_sent(), "102 103 104");
}

TEST_F(Forwarding, a_device_that_refuses_costs_that_frame_alone) {
    home.refusing = {"p3"};
    receive(101, from_to(A, B));
    home.refusing.clear();
    EXPECT_EQ(ports_that_sent(), "102 104");
    EXPECT_EQ(counter(103, "drop-send"), 1u);
    EXPECT_EQ(counter(102, "tx"), 1u);
}

TEST_F(Forwarding, short_memory_loses_copies_and_nothing_else) {
    tell("vlan 103 1 tagged");
    for (u64 nth = 1; nth < 12; nth++) {
        sk_buff *skb = userlevel::frame_make(Bytes(from_to(A, ALL)));
        userlevel::fail_allocation(nth);
        chip_device *device = home.open.at("p1");
        chip_receive(device, device->slot, skb);
        userlevel::fail_allocation(0);
    }
    EXPECT_GT(counter(101, "drop-memory") + counter(102, "drop-memory") +
                  counter(103, "drop-memory"),
              0u);
    EXPECT_GE(sent(104).size(), 8u);
    home.trapped.clear();
    home.sent.clear();
}

TEST_F(Forwarding, a_frame_of_a_port_that_was_closed_is_dropped) {
    chip_device *device = home.open.at("p1");
    chip_port_get(device);
    u32 slot = device->slot;
    tell("noport 101");
    tell("port 105 p5"); // in the same place
    chip_receive(device, slot, userlevel::frame_make(Bytes(from_to(A, B))));
    chip_receive(device, 64, userlevel::frame_make(Bytes(from_to(A, B))));
    chip_port_put(device);
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(105, "rx"), 0u);
}

TEST_F(Forwarding, a_closed_port_takes_its_addresses_and_vlans_along) {
    receive(101, from_to(A, B));
    tell("noport 101");
    EXPECT_EQ(tell("show fdb"), "");
    EXPECT_EQ(tell("show vlans"), "vlan 1 102 untagged 103 untagged 104 untagged\n");
}

TEST_F(Forwarding, a_device_that_goes_away_closes_its_port) {
    chip_device *device = home.open.at("p2");
    chip_device_gone(device, device->slot);
    EXPECT_EQ(refuse("link 102 up", -19),
              "no port '102': open it with 'port PORT DEVICE'; 'show ports' lists them\n");
    chip_device_gone(home.open.at("p3"), 0); // not the one in that place
    tell("link 101 up");
    tell("link 103 up");
}

// Work that a sender left to its hardware goes with the frame from port to port, and is done for
// the CPU.
namespace {

class Unfinished : public ChipTest {
protected:
    Unfinished() { home.unfinished.clear(); }

    static void receive_unfinished(u32 ifindex, const Bytes &frame) {
        chip_device *device = home.open.at(device_of(ifindex));
        chip_receive_unfinished(device, device->slot, userlevel::frame_make(frame), WORK);
    }

    // The fake home only hands it on.
    static inline const auto *WORK = reinterpret_cast<const chip_work *>(&home);
};

} // namespace

TEST_F(Unfinished, work_passes_from_port_to_port) {
    tell("vlan 102 1 tagged");
    receive(102, Frame().from("02:00:00:00:00:0a").tag(1).padded(64));
    home.sent.clear();
    receive_unfinished(101, Frame().to("02:00:00:00:00:0a").padded());
    EXPECT_EQ(ports_that_sent(), "102");
    EXPECT_EQ(home.unfinished, std::vector{WORK});
    EXPECT_EQ(traps(), "");
}

TEST_F(Unfinished, the_cpu_has_it_done) {
    tell("mac 02:00:00:00:00:01 1");
    receive_unfinished(101, Frame().to("02:00:00:00:00:01").padded());
    EXPECT_EQ(traps(), "own-other own-other") << "the pieces of the fake home";
    EXPECT_EQ(hits("own-other"), 2u);
    receive_unfinished(101, Frame().to("ff:ff:ff:ff:ff:ff").padded());
    EXPECT_EQ(ports_that_sent(), "102 103 104");
    EXPECT_EQ(home.unfinished.size(), 3u);
    EXPECT_EQ(traps(), "broadcast broadcast");
}

TEST_F(Unfinished, what_others_send_has_none) {
    receive_unfinished(101, Frame().to("ff:ff:ff:ff:ff:ff").padded());
    home.unfinished.clear();
    receive(101, Frame().to("ff:ff:ff:ff:ff:ff").padded());
    transmit(102, 1, false, Frame().padded());
    transmit(0, 1, false, Frame().padded());
    flood(101, 1, Frame().padded());
    EXPECT_EQ(home.unfinished.size(), 0u);
    EXPECT_GT(ports_that_sent().size(), 10u);
}
