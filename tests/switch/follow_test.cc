// Each thing that the core is told, and what the chip then does with frames that the core never
// sees.
#include "core_on_chip.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_tx.h"

#include <set>

namespace {

constexpr u32 LAG = 4501;
constexpr u32 PORT_FLAGS = IFF_UP | IFF_RUNNING | IFF_BROADCAST;

class Follow : public CoreOnChip {
protected:
    Follow() { records_stay(); }

    static void set_flags(u32 ifindex, u32 flags) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
        u32 old = ifp->flags;
        write_once(ifp->flags, flags);
        tarn_ifmgr_L2_link_state_check(ifp, (old & TARN_IF_LINK) == TARN_IF_LINK);
        tarn_ifmgr_if_ref_put(ifp);
        userlevel::work_run();
    }

    static void remove(u32 ifindex) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(ifp);
        tarn_ifmgr_delete_interface(ifp);
        userlevel::work_run();
    }

    static void stp(u32 k, u32 state, u32 instance = 0) {
        EXPECT_EQ(tarn_ifmgr_stp_port_state_set(5000 + k, instance, state), 0);
    }

    // Ports 2 and 3 become members of an aggregator.
    static void make_lag(u32 type = TARN_AGG_TYPE_STATIC) {
        const u8 mac[6] = {2, 0, 0, 0, 2, 1};
        EXPECT_EQ(tarn_ifmgr_aggregator_add("lag1", mac, type, LAG), 0);
        for (u32 instance = 0; instance < TARN_STP_INSTANCES; instance++)
            tarn_ifmgr_stp_port_state_set(LAG, instance, TARN_STP_FORWARDING);
        for (u32 port : {5002u, 5003u})
            EXPECT_EQ(tarn_ifmgr_aggregator_port_attach(LAG, port), 0);
        userlevel::work_run();
    }

    std::string flood_from(u32 k) {
        home.sent.clear();
        Frame frame = Frame().from(OTHER).to(BROADCAST).type(0x88B5);
        receive(k, k == PORTS ? Bytes(frame.tag(1).padded(64)) : Bytes(frame.padded()));
        return senders();
    }

    unsigned long hits(const std::string &trap) {
        std::string text = tell("show traps");
        std::size_t at = text.find("hits ", text.find("trap " + trap + " "));
        return std::stoul(text.substr(at + 5));
    }
};

TEST_F(Follow, everything_said_to_the_core_is_said_to_the_chip) {
    EXPECT_EQ(flood_from(1), "2 3 4");
    EXPECT_EQ(flood_from(4), "1 2 3");
}

TEST_F(Follow, a_port_that_is_down_takes_and_sends_nothing) {
    set_flags(5002, IFF_BROADCAST);
    EXPECT_EQ(flood_from(1), "3 4");
    EXPECT_EQ(flood_from(2), "");
    set_flags(5002, PORT_FLAGS);
    EXPECT_EQ(flood_from(1), "2 3 4");
}

TEST_F(Follow, membership_ends) {
    tarn_vlan_delete_vlan_from_port(5002, 1);
    EXPECT_EQ(flood_from(1), "3 4");
    tarn_vlan_set_ingress_filter(5002, 1);
    EXPECT_EQ(flood_from(2), "");
}

TEST_F(Follow, tags_are_the_cores) {
    tarn_vlan_delete_vlan_from_port(5002, 1);
    tarn_vlan_add_vlan_to_port(5002, 1, 1);
    receive(1, Frame().to(BROADCAST).padded());
    EXPECT_THAT(sent(2), ::testing::ElementsAre(Bytes(Frame().to(BROADCAST).tag(1).padded(64))));
}

TEST_F(Follow, the_pvid_decides_over_untagged_frames) {
    plain_switch::add_vlan(2);
    tarn_vlan_add_vlan_to_port(5003, 2, 0);
    tarn_vlan_set_default_pvid(5001, 2);
    EXPECT_EQ(flood_from(1), "3");
    tarn_vlan_set_default_pvid(5001, 0);
    EXPECT_EQ(flood_from(1), "");
}

TEST_F(Follow, a_port_takes_in_vlans_of_others_unless_it_filters) {
    tarn_vlan_delete_vlan_from_port(5001, 1);
    EXPECT_EQ(flood_from(1), "2 3 4");
    tarn_vlan_set_ingress_filter(5001, 1);
    EXPECT_EQ(flood_from(1), "");
    tarn_ifmgr_set_vlan_options(vlan_, TARN_VLAN_OPTION_NO_MEMBER_CHECK);
    EXPECT_EQ(flood_from(1), "2 3 4") << "unless the VLAN does not ask";
    EXPECT_EQ(tell("show fdb").find("learned"), std::string::npos) << "no frame could go back";
}

TEST_F(Follow, a_vlan_that_is_out_of_service_on_a_port_is_so_for_every_frame) {
    tarn_vlan_set_vlan_port_disabled(5002, 1, 1);
    EXPECT_EQ(flood_from(1), "3 4");
    EXPECT_EQ(flood_from(2), "");
    tarn_vlan_set_vlan_port_disable_all(5003, 1);
    EXPECT_EQ(flood_from(1), "4");
    tarn_vlan_set_vlan_port_disable_all(5003, 0);
    EXPECT_EQ(flood_from(1), "3 4");
}

TEST_F(Follow, only_forwarding_ports_forward) {
    for (u32 state :
         {TARN_STP_DISABLED, TARN_STP_LISTENING, TARN_STP_LEARNING, TARN_STP_BLOCKING}) {
        stp(2, state);
        EXPECT_EQ(flood_from(1), "3 4") << state;
        EXPECT_EQ(flood_from(2), "") << state;
    }
    stp(2, TARN_STP_FORWARDING);
    EXPECT_EQ(flood_from(2), "1 3 4");
}

TEST_F(Follow, only_learning_and_forwarding_ports_learn) {
    for (u32 state = TARN_STP_DISABLED; state <= TARN_STP_BLOCKING; state++) {
        stp(1, state);
        tell("fdb flush");
        receive(1, Frame().from(HOST).to(BROADCAST).padded());
        bool learned = tell("show fdb").find("learned") != std::string::npos;
        EXPECT_EQ(learned, state == TARN_STP_LEARNING || state == TARN_STP_FORWARDING) << state;
    }
}

TEST_F(Follow, a_blocked_port_still_hears_its_neighbours) {
    stp(1, TARN_STP_BLOCKING);
    receive(1, Frame().to("01:80:c2:00:00:00").type(38).bytes({0x42, 0x42, 3}).padded());
    EXPECT_EQ(hits("bpdu"), 1u);
    receive(1, Frame().to(BROADCAST).type(0x0806).padded());
    EXPECT_EQ(hits("arp"), 0u);
}

TEST_F(Follow, each_vlan_has_the_states_of_its_instance) {
    stp(2, TARN_STP_BLOCKING, 7);
    EXPECT_EQ(flood_from(1), "2 3 4");
    EXPECT_EQ(tarn_ifmgr_stp_vlan_inst_add(7, 1), 0);
    EXPECT_EQ(flood_from(1), "3 4");
    EXPECT_EQ(tarn_ifmgr_stp_vlan_inst_delete(1), 0);
    EXPECT_EQ(flood_from(1), "2 3 4");
}

// Two cables to one bridge, of which spanning tree has blocked one.
TEST_F(Follow, a_loop_with_a_blocked_port_does_not_storm) {
    stp(2, TARN_STP_BLOCKING);
    receive(3, Frame().from(HOST).to(BROADCAST).padded());
    u32 frames = 0;
    for (u32 round = 0; round < 100; round++)
        for (u32 k : {1u, 2u}) // what leaves by one comes back by the other
            for (const Bytes &frame : sent(k)) {
                frames++;
                receive(3 - k, frame);
            }
    EXPECT_EQ(frames, 1u);
}

TEST_F(Follow, addresses_behind_a_port_that_was_blocked_are_asked_for_again) {
    chip_tick(); // what ended before is done with
    receive(2, Frame().from(HOST).to(BROADCAST).padded());
    stp(2, TARN_STP_BLOCKING);
    home.sent.clear();
    receive(1, Frame().to(HOST).padded());
    EXPECT_EQ(senders(), "3 4");
    chip_tick();
    EXPECT_EQ(tell("show fdb").find("learned port2"), std::string::npos);
}

TEST_F(Follow, the_switchs_own_address_is_that_of_its_vlan) {
    receive(1, Frame().to(OWN).padded());
    EXPECT_EQ(hits("own-other"), 1u);
    EXPECT_EQ(senders(), "");
    const u8 other[6] = {2, 0, 0, 0, 0, 0x0b};
    tarn_ifmgr_set_hwaddr(301, 6, other);
    receive(1, Frame().to(OTHER).padded());
    EXPECT_EQ(hits("own-other"), 2u);
    receive(1, Frame().to(OWN).padded());
    EXPECT_EQ(senders(), "2 3 4");
}

TEST_F(Follow, a_frame_to_an_aggregator_leaves_once) {
    make_lag();
    std::set<std::string> ways;
    for (u32 host = 0; host < 32; host++) {
        const Bytes frame =
            Frame()
                .from("02:00:00:00:07:0" + std::string(1, "0123456789abcdef"[host % 16]))
                .to(BROADCAST)
                .padded();
        receive(1, frame);
        std::string first = senders();
        ways.insert(first);
        receive(1, frame);
        EXPECT_EQ(senders(), first) << "a flow keeps its member";
    }
    EXPECT_EQ(ways, (std::set<std::string>{"2 4", "3 4"}));
}

TEST_F(Follow, what_comes_in_by_a_member_leaves_by_no_other) {
    make_lag();
    EXPECT_EQ(flood_from(2), "1 4");
    EXPECT_EQ(flood_from(3), "1 4");
    remove(LAG);
    EXPECT_EQ(flood_from(2), "1 3 4");
}

TEST_F(Follow, a_host_behind_an_aggregator_is_behind_all_its_members) {
    make_lag();
    receive(3, Frame().from(HOST).to(BROADCAST).padded());
    receive(2, Frame().from(HOST).to(BROADCAST).padded());
    EXPECT_NE(tell("show ports").find(" moved 0"), std::string::npos);
    EXPECT_EQ(tell("show ports").find(" moved 1"), std::string::npos);
    home.sent.clear();
    receive(1, Frame().to(HOST).padded());
    std::string way = senders();
    EXPECT_TRUE(way == "2" || way == "3") << way;
    receive(2, Frame().from(OTHER).to(HOST).padded());
    EXPECT_EQ(senders(), "") << "it is behind them itself";
}

TEST_F(Follow, only_members_that_run_carry_frames) {
    make_lag();
    set_flags(5002, IFF_UP);
    for (u32 host = 0; host < 8; host++) {
        receive(1, Frame().from("02:00:00:00:07:0" + std::to_string(host)).to(BROADCAST).padded());
        EXPECT_EQ(senders(), "3 4");
    }
    set_flags(5003, IFF_UP);
    EXPECT_EQ(flood_from(1), "4");
    EXPECT_EQ(flood_from(2), "");
    set_flags(5002, PORT_FLAGS);
    EXPECT_EQ(flood_from(1), "2 4");
}

TEST_F(Follow, a_dynamic_aggregator_runs_when_it_is_told_to) {
    make_lag(TARN_AGG_TYPE_DYNAMIC);
    set_flags(LAG, IFF_UP);
    EXPECT_EQ(flood_from(1), "4");
    tarn_if *lag = tarn_ifmgr_lookup_by_index(LAG);
    tarn_ifmgr_L2_link_up(lag);
    tarn_ifmgr_if_ref_put(lag);
    EXPECT_NE(flood_from(1), "4");
}

TEST_F(Follow, an_aggregator_has_one_state_of_spanning_tree) {
    make_lag();
    tarn_ifmgr_stp_port_state_set(LAG, 0, TARN_STP_BLOCKING);
    EXPECT_EQ(flood_from(1), "4");
    EXPECT_EQ(flood_from(2), "");
    stp(2, TARN_STP_BLOCKING);
    tarn_ifmgr_stp_port_state_set(LAG, 0, TARN_STP_FORWARDING);
    EXPECT_EQ(flood_from(2), "1 4");
    stp(2, TARN_STP_FORWARDING);
}

TEST_F(Follow, vlans_are_said_of_an_aggregator_or_of_its_members) {
    make_lag();
    for (u32 k : {2u, 3u})
        tarn_vlan_delete_vlan_from_port(5000 + k, 1);
    EXPECT_EQ(flood_from(1), "4");
    tarn_vlan_add_vlan_to_port(LAG, 1, 1);
    receive(1, Frame().to(BROADCAST).padded());
    std::vector<Bytes> out = sent(2);
    for (const Bytes &frame : sent(3))
        out.push_back(frame);
    EXPECT_THAT(out, ::testing::ElementsAre(Bytes(Frame().to(BROADCAST).tag(1).padded(64))));
    tarn_vlan_delete_vlan_from_port(LAG, 1);
}

TEST_F(Follow, a_flood_that_excepts_an_aggregator_excepts_its_members) {
    make_lag();
    for (u32 excepted : {LAG, 5002u, 5003u}) {
        sk_buff *skb = userlevel::frame_make(Bytes(Frame().to(BROADCAST).padded()));
        tarn_if *port = tarn_ifmgr_lookup_by_index(excepted);
        EXPECT_EQ(tarn_flood_except_port(port, 1, nullptr, skb, 0, 0, 1), 0u);
        tarn_ifmgr_if_ref_put(port);
        EXPECT_EQ(senders(), "1 4") << excepted;
    }
}

TEST_F(Follow, a_routed_port_switches_nothing) {
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(5002, 4000), 0);
    EXPECT_EQ(flood_from(1), "3 4");
    EXPECT_EQ(flood_from(2), "");
    const Bytes to_it = Frame().to("02:00:00:00:01:02").padded();
    receive(2, to_it);
    EXPECT_EQ(hits("own-other"), 1u) << "its own address";
    EXPECT_EQ(tell("show fdb").find("learned port2"), std::string::npos);
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(5002, 0), 0);
    EXPECT_EQ(flood_from(1), "2 3 4");
}

TEST_F(Follow, what_the_switch_sends_on_a_routed_port_leaves_there) {
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(5002, 4000), 0);
    sk_buff *skb = userlevel::frame_make(Bytes(Frame().to(HOST).padded()));
    EXPECT_EQ(home.sent.size(), 0u);
    EXPECT_EQ(tarn_start_xmit(nullptr, ports_[2], skb, 0, 0, 1, false), 0u);
    EXPECT_EQ(senders(), "2");
}

TEST_F(Follow, a_vlan_that_is_gone_carries_nothing) {
    remove(301);
    for (u32 k = 1; k <= PORTS; k++)
        tarn_vlan_add_vlan_to_port(5000 + k, 1, 0); // the bits stand without the VLAN
    EXPECT_EQ(flood_from(1), "");
    plain_switch::add_vlan(1);
    EXPECT_EQ(flood_from(1), "2 3 4");
}

TEST_F(Follow, a_port_that_the_core_forgets_is_in_no_vlan) {
    remove(5002);
    EXPECT_EQ(flood_from(1), "3 4");
    EXPECT_EQ(flood_from(2), "");
    tell("vlan 5002 1 untagged"); // and the chip's words are for it again
    EXPECT_EQ(flood_from(1), "2 3 4");
}

TEST_F(Follow, a_port_that_the_chip_opens_later_is_as_the_core_said) {
    tell("noport 5002");
    stp(3, TARN_STP_BLOCKING);
    EXPECT_EQ(flood_from(1), "4");
    tell("port 5002 p2");
    EXPECT_EQ(flood_from(1), "2 4");
}

constexpr u32 SENT = 0x2; // direction of a mirror

TEST_F(Follow, what_the_chip_sends_on_a_mirrored_port_is_copied) {
    const Bytes frame = Frame().to(BROADCAST).padded();
    const Bytes tagged = Frame().to(BROADCAST).tag(1).padded(64);
    EXPECT_EQ(tarn_ifmgr_set_portmirror(5004, 5002, SENT, 0), 0);
    receive(1, frame);
    EXPECT_THAT(sent(2), ::testing::ElementsAre(frame));
    EXPECT_THAT(sent(4), ::testing::ElementsAre(tagged, tagged)) << "its own, and the copy";
    home.sent.clear();
    receive(2, Frame().from(HOST).to(BROADCAST).padded());
    home.sent.clear();
    receive(1, Frame().to(HOST).padded());
    EXPECT_EQ(senders(), "2 4");
    receive(2, Frame().from(HOST).to(OTHER).padded());
    EXPECT_EQ(senders(), "1 3 4") << "what comes in is not watched";
    EXPECT_EQ(tarn_ifmgr_unset_portmirror(5004, 5002, SENT, 0), 0);
    receive(1, Frame().to(HOST).padded());
    EXPECT_EQ(senders(), "2");
}

TEST_F(Follow, a_frame_that_the_core_sends_is_copied_once) {
    EXPECT_EQ(tarn_ifmgr_set_portmirror(5003, 5002, SENT, 0), 0);
    sk_buff *skb = userlevel::frame_make(Bytes(Frame().to(HOST).padded()));
    EXPECT_EQ(tarn_start_xmit(ports_[2], vlan_, skb, 0, 0, 1, false), 0u);
    EXPECT_EQ(senders(), "2 3") << "to a port that it names, by the core";
    receive(2, Frame().from(HOST).to(BROADCAST).padded());
    home.sent.clear();
    userlevel::netdev_transmit(vlan_->netdev, Frame().to(HOST).padded().build(), 0);
    EXPECT_EQ(senders(), "2 3") << "to the port where it goes, by the chip";
    skb = userlevel::frame_make(Bytes(Frame().to(BROADCAST).padded()));
    EXPECT_EQ(tarn_flood_except_port(ports_[1], 1, nullptr, skb, 0, 0, 1), 0u);
    EXPECT_EQ(senders(), "2 3 3 4");
}

TEST_F(Follow, who_watches_need_not_be_in_the_vlan_and_has_its_own_tags) {
    tarn_vlan_delete_vlan_from_port(5003, 1);
    tarn_vlan_add_vlan_to_port(5003, 2, 1);
    EXPECT_EQ(tarn_ifmgr_set_portmirror(5003, 5004, SENT, 0), 0);
    receive(1, Frame().to(BROADCAST).padded());
    EXPECT_THAT(sent(3), ::testing::ElementsAre(Bytes(Frame().to(BROADCAST).padded())));
    EXPECT_EQ(senders(), "2 4");
    stp(3, TARN_STP_BLOCKING);
    EXPECT_EQ(flood_from(1), "2 4") << "which spanning tree does not let it";
    stp(3, TARN_STP_FORWARDING);
    set_flags(5003, IFF_BROADCAST);
    EXPECT_EQ(flood_from(1), "2 4");
    set_flags(5003, PORT_FLAGS);
    EXPECT_EQ(flood_from(1), "2 3 4");
    remove(5003);
    EXPECT_EQ(flood_from(1), "2 4") << "the core knows of no such port";
}

TEST_F(Follow, mirrors_may_stand_in_a_row_and_end_even_in_a_ring) {
    EXPECT_EQ(tarn_ifmgr_set_portmirror(5003, 5002, SENT, 0), 0);
    EXPECT_EQ(tarn_ifmgr_set_portmirror(5004, 5003, SENT, 0), 0);
    receive(2, Frame().from(HOST).to(BROADCAST).padded());
    home.sent.clear();
    receive(1, Frame().to(HOST).padded());
    EXPECT_EQ(senders(), "2 3 4");
    write_once(ports_[4]->mirror_ifindex, 5003u);      // which the command refuses
    tarn_ifmgr_set_hwaddr(5004, 6, ports_[4]->hwaddr); // so that it is told
    receive(1, Frame().to(HOST).padded());
    EXPECT_EQ(sent(2).size(), 1u);
    EXPECT_EQ(sent(3).size() + sent(4).size(), 8u);
}

TEST_F(Follow, an_aggregator_is_watched_at_all_its_members_and_watches_by_one) {
    make_lag();
    EXPECT_EQ(tarn_ifmgr_set_portmirror(5001, LAG, SENT, 0), 0);
    for (char last : {'1', '2', '3', '4', '5', '6', '7', '8'}) {
        receive(4, Frame()
                       .from("02:00:00:00:07:0" + std::string(1, last))
                       .to(BROADCAST)
                       .tag(1)
                       .padded(64));
        EXPECT_EQ(sent(1).size(), 2u) << "its own, and the copy";
        home.sent.clear();
    }
    EXPECT_EQ(tarn_ifmgr_unset_portmirror(5001, LAG, SENT, 0), 0);
    EXPECT_EQ(tarn_ifmgr_set_portmirror(LAG, 5001, SENT, 0), 0);
    receive(4, Frame().from(HOST).to(BROADCAST).tag(1).padded(64));
    EXPECT_EQ(sent(1).size(), 1u);
    EXPECT_EQ(sent(2).size() + sent(3).size(), 2u);
}

TEST_F(Follow, a_port_is_found_by_the_name_that_the_core_knows) {
    const u8 mac[6] = {2, 0, 0, 0, 1, 9};
    make_lag();
    tarn_ifmgr_switchport_create("sixteen-letters!", mac, IFF_UP, 0, 5099, 0);
    EXPECT_EQ(rxtx_follow_ifindex_get("port2"), 5002u);
    EXPECT_EQ(rxtx_follow_ifindex_get("lag1"), LAG);
    EXPECT_EQ(rxtx_follow_ifindex_get("sixteen-letters!"), 5099u);
    for (const char *nobody : {"port22", "port", "", "vlan1", "sixteen-letters"})
        EXPECT_EQ(rxtx_follow_ifindex_get(nobody), 0u) << nobody;
    tell("noport port2");
    tell("port port2 p2");
    rxtx_follow_port told;
    EXPECT_EQ(rxtx_follow_port_get(5099, &told), 0);
    EXPECT_STREQ(told.name, "sixteen-letters!");
}

TEST_F(Follow, what_is_not_there_cannot_be_read) {
    rxtx_follow_port port;
    rxtx_follow_vlans vlans;
    rxtx_follow_vlan vlan;
    EXPECT_EQ(rxtx_follow_port_get(301, &port), -19) << "no port";
    EXPECT_EQ(rxtx_follow_port_get(5999, &port), -19);
    EXPECT_EQ(rxtx_follow_stp_get(301, 0), -19);
    EXPECT_EQ(rxtx_follow_vlans_get(301, 1, &vlans), -19);
    EXPECT_EQ(rxtx_follow_vlans_get(5001, 4095, &vlans), -22);
    EXPECT_EQ(rxtx_follow_stp_get(5001, TARN_STP_INSTANCES), -22);
    EXPECT_EQ(rxtx_follow_vlan_get(2, &vlan), -19);
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(5002, 4000), 0);
    EXPECT_EQ(rxtx_follow_vlan_get(4000, &vlan), -19) << "a routed port's own";
    EXPECT_EQ(tarn_ifmgr_l3_switchport_set(5002, 0), 0);
}

TEST_F(Follow, a_vlan_made_anew_is_in_service_where_the_core_says) {
    tarn_vlan_set_vlan_port_disabled(5003, 1, 1);
    plain_switch::add_vlan(1); // over the one that is there
    for (u32 k = 1; k <= PORTS; k++) {
        rxtx_follow_vlans told;
        EXPECT_EQ(rxtx_follow_vlans_get(5000 + k, 1, &told), 0);
        bool carries = (told.member & ~told.disabled) >> 1 & 1;
        EXPECT_EQ(carries, k != 3) << "the bits stand, whatever became of the bindings";
    }
    EXPECT_EQ(flood_from(1), "2 4");
}

TEST_F(Follow, a_chip_that_starts_later_is_told_everything) {
    stp(3, TARN_STP_BLOCKING);
    chip_stop();
    chip_start();
    for (u32 k = 1; k <= PORTS; k++)
        tell("port " + std::to_string(5000 + k) + " " + device(k));
    EXPECT_EQ(flood_from(1), "2 4");
    receive(1, Frame().to(OWN).padded());
    EXPECT_EQ(hits("own-other"), 1u);
}

TEST_F(Follow, a_chip_that_ended_is_told_nothing) {
    chip_stop();
    stp(3, TARN_STP_BLOCKING);
    remove(5002);
    chip_start();
}

TEST_F(Follow, words_of_the_chip_that_contradict_are_refused) {
    EXPECT_THAT(tell("vlan 5001 1 untagged"), ::testing::HasSubstr("says so already"));
    EXPECT_THAT(tell("vlan 5001 1 tagged", -16), ::testing::HasSubstr("says otherwise"));
    tell("novlan 5001 1", -16);
    tell("novlan 5001 2");
    tell("pvid 5001 2", -16);
    tell("pvid 5001 1");
    tell("link 5001 down", -16);
    tell("link 5001 up");
    EXPECT_EQ(flood_from(1), "2 3 4");
}

} // namespace
