// Which frames the families take, how each decides, and what their daemons read.
#include "sockets/socket_test.h"

#include "ifmgr/tarn_ifmgr_event.h"
#include "sockets/sockets.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr u32 STOP = REDIRECT_STOP;
constexpr u32 DAEMON = REDIRECT_POST_USERSPACE | REDIRECT_STACK_REPLICATE | REDIRECT_STOP;

class ReceiveSockets : public SocketTest {
protected:
    struct Decision {
        u32 flags = 0, reason = 0;
        bool operator==(const Decision &) const = default;
    };
    friend void PrintTo(const Decision &decision, std::ostream *out) {
        *out << "flags " << decision.flags << " reason " << decision.reason;
    }

    // What one redirect decides on a frame, asked on its own.
    Decision decide(const std::string &name, const Bytes &bytes, tarn_pkt_info info) {
        sk_buff *skb = userlevel::frame_make(bytes);
        info.skb = skb;
        info.ethertype = frame_bytes(skb).inner_type();
        redirect_instruct instruct{};
        EXPECT_EQ(redirect(name).match(&info, &instruct), 0);
        EXPECT_EQ(Bytes(skb_data(skb), skb_data(skb) + skb_len(skb)), bytes);
        kfree_skb(skb);
        return {instruct.flags, instruct.reason};
    }
    tarn_pkt_info arrived() {
        tarn_pkt_info info{};
        info.rx_port = info.l2_port = port1();
        info.l2_ifindex = 5001;
        info.vlan_if = vlan1();
        info.rx_vid = info.vid = 1;
        info.vlan_member_ok = 1;
        return info;
    }
    tarn_pkt_info without_port() {
        tarn_pkt_info info = arrived();
        info.rx_port = info.l2_port = nullptr;
        return info;
    }
    tarn_pkt_info filtered() {
        tarn_pkt_info info = arrived();
        info.vlan_member_ok = 0;
        info.ingress_filter = 1;
        return info;
    }
};

const Bytes LACPDU = Frame().to("01:80:c2:00:00:02").type(0x8809).padded();
const Bytes RYKE = Frame().to("00:e0:2b:00:00:04").type(0x88B7).padded();
const Bytes LDF = Frame().to("00:00:f4:27:71:01").type(0x8899).padded();
const Bytes SNAP = {0xAA, 0xAA, 0x03, 0x00, 0x00, 0x0C, 0x01, 0x11};
const Bytes UDLD = Frame().to("01:00:0c:cc:cc:cc").type(40).bytes(SNAP).padded();
const Bytes CDP = Frame().to("01:00:0c:cc:cc:cc").type(40).bytes({0xAA, 0xAA, 3}).padded();

Bytes cfm(u8 opcode, bool tagged = false) {
    Frame frame;
    frame.to("01:80:c2:00:00:30").type(0x8902).bytes({0x60, opcode}).padded();
    return tagged ? frame.tag(7) : frame;
}

TEST_F(ReceiveSockets, lacp_and_lldp_need_a_port) {
    const Bytes lldp = Frame().to("01:80:c2:00:00:0e").type(0x88CC);
    EXPECT_EQ(decide("lacp", LACPDU, arrived()), (Decision{DAEMON, 3}));
    EXPECT_EQ(decide("lacp", LACPDU, without_port()), (Decision{STOP, 2}));
    EXPECT_EQ(decide("lldp", lldp, arrived()), (Decision{DAEMON, 3}));
    EXPECT_EQ(decide("lldp", lldp, without_port()), (Decision{STOP, 2}));
    EXPECT_EQ(decide("lacp", Frame().to("01:80:c2:00:00:03"), arrived()), Decision{});
}

TEST_F(ReceiveSockets, lldp_in_snap_has_a_length_of_1500_at_most) {
    const Bytes llc = {0xAA, 0xAA, 0x03, 0x00, 0x00, 0x00, 0x88, 0xCC};
    auto frame = [&](u16 length, const char *to = "01:80:c2:00:00:0e") {
        return Frame().to(to).type(length).bytes(llc).padded();
    };
    EXPECT_EQ(decide("lldp", frame(0), arrived()), (Decision{DAEMON, 3}));
    EXPECT_EQ(decide("lldp", frame(1499), arrived()), (Decision{DAEMON, 3}));
    EXPECT_EQ(decide("lldp", frame(1500), arrived()), (Decision{DAEMON, 3}));
    EXPECT_EQ(decide("lldp", frame(1501), arrived()), Decision{});
    EXPECT_EQ(decide("lldp", frame(1500, "01:80:c2:00:00:03"), arrived()), Decision{});
}

TEST_F(ReceiveSockets, kelm_agent_decides_in_order) {
    const Bytes frame = Frame().to("01:80:c2:00:00:2f").type(0xFBAF).padded();
    EXPECT_EQ(decide("kelm_agent", frame, arrived()), (Decision{DAEMON, 3}));
    EXPECT_EQ(decide("kelm_agent", frame, without_port()), (Decision{STOP, 2}));
    tarn_pkt_info own = without_port(), low = without_port();
    own.src_mac_is_own = 1;
    low.low_mem = 1;
    EXPECT_EQ(decide("kelm_agent", frame, own), (Decision{STOP, 1}));
    EXPECT_EQ(decide("kelm_agent", frame, low), (Decision{STOP, 1}));
    EXPECT_EQ(decide("kelm_agent", Frame().to("01:80:c2:00:00:2e"), arrived()), Decision{});
}

TEST_F(ReceiveSockets, others_take_every_frame_to_them) {
    struct Row {
        const char *name;
        Bytes frame;
        u32 reason;
    };
    for (const Row &row :
         {Row{"stp", Frame().to("01:80:c2:00:00:00"), 2},
          Row{"garp", Frame().to("01:80:c2:00:00:21"), 2},
          Row{"mrp", Frame().to("01:15:4e:00:00:77"), 1}, Row{"profinet", Frame().type(0x8892), 1},
          Row{"profinet", Frame().tag(3).type(0x8892), 1}}) {
        EXPECT_EQ(decide(row.name, row.frame, arrived()), (Decision{DAEMON, row.reason}))
            << row.name;
        EXPECT_EQ(decide(row.name, row.frame, without_port()), (Decision{DAEMON, row.reason}));
        EXPECT_EQ(decide(row.name, Frame().to("01:15:4e:00:01:00"), arrived()), Decision{});
    }
}

TEST_F(ReceiveSockets, ryke_decides_by_filter_and_trap) {
    tarn_pkt_info trapped = arrived();
    trapped.code = 1;
    EXPECT_EQ(decide("ryke", RYKE, arrived()), (Decision{DAEMON, 4}));
    EXPECT_EQ(decide("ryke", RYKE, filtered()), (Decision{STOP, 1}));
    EXPECT_EQ(decide("ryke", RYKE, trapped), (Decision{STOP, 3}));
    trapped.vlan_member_ok = 0;
    trapped.ingress_filter = 1;
    EXPECT_EQ(decide("ryke", RYKE, trapped), (Decision{STOP, 1}));
}

TEST_F(ReceiveSockets, cfm_decides_in_order) {
    tarn_pkt_info allowed = arrived();
    allowed.flags = 0x8;
    for (u8 opcode : {1, 2, 3, 4, 5}) {
        EXPECT_EQ(decide("cfm", cfm(opcode), arrived()), (Decision{STOP, 2}));
        EXPECT_EQ(decide("cfm", cfm(opcode), allowed), (Decision{DAEMON, 4}));
        EXPECT_EQ(decide("cfm", cfm(opcode, true), allowed), (Decision{DAEMON, 4}));
    }
    for (u8 opcode : {0, 6, 0x27, 0x29, 0xFF})
        EXPECT_EQ(decide("cfm", cfm(opcode), allowed), Decision{}) << int{opcode};

    tarn_pkt_info replicated = arrived();
    replicated.replicated = 1;
    EXPECT_EQ(decide("cfm", cfm(1), replicated), (Decision{DAEMON, 4}));
    EXPECT_EQ(decide("cfm", cfm(0x28), allowed), (Decision{STOP, 3}));
    allowed.tag = 0x10001;
    EXPECT_EQ(decide("cfm", cfm(0x28), allowed), (Decision{DAEMON, 4}));
    tarn_pkt_info bad = filtered();
    bad.flags = 0x8;
    EXPECT_EQ(decide("cfm", cfm(0x28), bad), (Decision{STOP, 1}));
    EXPECT_EQ(decide("cfm", cfm(1), bad), (Decision{DAEMON, 4})); // only the ring's are filtered
    EXPECT_EQ(decide("cfm", Frame().type(0x8901).bytes({0x60, 1}), allowed), Decision{});
}

TEST_F(ReceiveSockets, befd_takes_untagged_frames_of_its_type) {
    const Bytes frame = Frame().to("00:0c:25:0a:8c:01").type(0xAAAA);
    tarn_pkt_info tagged = arrived();
    tagged.tag = 0x10001;
    EXPECT_EQ(decide("befd", frame, arrived()), (Decision{STOP | REDIRECT_POST_USERSPACE, 2}));
    EXPECT_EQ(decide("befd", frame, tagged), (Decision{STOP, 1}));
    EXPECT_EQ(decide("befd", Frame().to("00:0c:25:0a:8c:01"), arrived()), (Decision{STOP, 3}));
}

// So it is for everybody, whether the frame goes on behind its tag or not.
TEST_F(ReceiveSockets, befd_takes_a_frame_that_ends_within_its_tag_for_tagged) {
    const Bytes whole = Frame().to("00:0c:25:0a:8c:01").from("02:00:00:00:00:99").tag(1);
    for (std::size_t length : {13u, 14u, 15u, 16u}) {
        u32 before = redirect("befd").stop_reasons[1];
        receive(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
        EXPECT_EQ(redirect("befd").stop_reasons[1], before + 1) << length;
    }
}

TEST_F(ReceiveSockets, isis_goes_to_the_ip_stack) {
    for (const char *to :
         {"01:80:c2:00:00:14", "01:80:c2:00:00:15", "09:00:2b:00:00:04", "09:00:2b:00:00:05"}) {
        EXPECT_EQ(decide("isis", Frame().to(to), arrived()), (Decision{0x16, 3})) << to;
        EXPECT_EQ(decide("isis", Frame().to(to), without_port()), (Decision{STOP, 2}));
    }
    for (const char *to : {"01:80:c2:00:00:16", "01:80:c2:00:00:04", "09:00:2b:00:00:14"})
        EXPECT_EQ(decide("isis", Frame().to(to), arrived()), Decision{}) << to;
}

TEST_F(ReceiveSockets, isis_gives_an_untagged_frame_the_default_vlan) {
    auto hook = redirect("isis").modify_rx;
    sk_buff *isis = userlevel::frame_make(Frame().to("09:00:2b:00:00:05").build());
    sk_buff *other = userlevel::frame_make(Frame().build());
    tarn_rx_meta meta{};
    port1()->default_pvid = 77;
    tarn_rx_modify modify{.rx_vid = 0, .vid = 3};
    hook(&modify, &meta, port1(), other);
    EXPECT_EQ(modify.vid, 3u);
    hook(&modify, &meta, port1(), isis);
    EXPECT_EQ(modify.rx_vid, 77u);
    EXPECT_EQ(modify.vid, 77u);
    modify = {.rx_vid = 5, .vid = 6};
    hook(&modify, &meta, port1(), isis);
    EXPECT_EQ(modify.rx_vid, 5u);
    EXPECT_EQ(modify.vid, 6u);
    kfree_skb(isis);
    kfree_skb(other);
}

TEST_F(ReceiveSockets, isis_starts_switched_off) {
    receive(Frame().to("09:00:2b:00:00:05").padded());
    EXPECT_EQ(redirect("isis").inspects, 0u);
    EXPECT_EQ(redirect("isis").modify_rx_inspects, 0u);
}

TEST_F(ReceiveSockets, ldf_decides_in_order) {
    constexpr u32 resend = STOP | REDIRECT_RESEND_L2;
    tarn_pkt_info disabled = arrived();
    disabled.vlan_port_disabled = 1;
    EXPECT_EQ(decide("ldf", LDF, disabled), (Decision{STOP, 1}));
    EXPECT_EQ(decide("ldf", LDF, filtered()), (Decision{STOP, 1}));
    const Bytes own = Frame().to("00:00:f4:27:71:01").from("02:00:00:00:00:01");
    EXPECT_EQ(decide("ldf", own, arrived()), (Decision{STOP | REDIRECT_POST_USERSPACE, 2}));
    EXPECT_EQ(decide("ldf", LDF, arrived()), (Decision{resend, 2}));
    tarn_pkt_info no_vlan = arrived();
    no_vlan.vlan_if = nullptr;
    EXPECT_EQ(decide("ldf", LDF, no_vlan), (Decision{STOP, 2}));
    EXPECT_EQ(decide("ldf", LDF, without_port()), (Decision{STOP, 2}));
    port1()->stp_state[0] = TARN_STP_BLOCKING;
    EXPECT_EQ(decide("ldf", LDF, arrived()), (Decision{STOP, 2}));
}

TEST_F(ReceiveSockets, the_spanning_tree_state_is_that_of_the_aggregator) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    tarn_pkt_info info = arrived();
    info.l2_port = aggregator;
    aggregator->stp_state[0] = TARN_STP_BLOCKING;
    EXPECT_EQ(decide("ldf", LDF, info), (Decision{STOP, 2}));
    aggregator->stp_state[0] = TARN_STP_FORWARDING;
    EXPECT_EQ(decide("ldf", LDF, info), (Decision{STOP | REDIRECT_RESEND_L2, 2}));
}

TEST_F(ReceiveSockets, so_it_is_for_udld_in_the_instance_of_the_vlan) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    tarn_pkt_info info = arrived();
    info.l2_port = aggregator;
    vlan1()->stp_instance = 2;
    tarn_udld_enable(1);
    aggregator->stp_state[2] = TARN_STP_FORWARDING;
    port1()->stp_state[2] = aggregator->stp_state[0] = TARN_STP_BLOCKING;
    EXPECT_EQ(decide("udld", CDP, info), (Decision{STOP | REDIRECT_RESEND_L2, 3}));
    port1()->stp_state[2] = aggregator->stp_state[0] = TARN_STP_FORWARDING;
    aggregator->stp_state[2] = TARN_STP_BLOCKING;
    EXPECT_EQ(decide("udld", CDP, info), (Decision{STOP, 3}));
}

TEST_F(ReceiveSockets, ldf_frames_are_sent_on_ten_in_101_jiffies) {
    auto resent = [&](int frames) {
        int count = 0;
        for (int i = 0; i < frames; i++)
            count += (decide("ldf", LDF, arrived()).flags & REDIRECT_RESEND_L2) != 0;
        return count;
    };
    userlevel::clock_stop(0xFFFFFFF0); // just before 32 bits wrap
    EXPECT_EQ(resent(30), 10);
    userlevel::clock_advance(100);
    EXPECT_EQ(resent(30), 0);
    userlevel::clock_advance(1);
    EXPECT_EQ(resent(9), 9);
    userlevel::clock_advance(50);
    EXPECT_EQ(resent(5), 1);
    userlevel::clock_run();
}

TEST_F(ReceiveSockets, udld_decides_in_order) {
    constexpr u32 resend = STOP | REDIRECT_RESEND_L2;
    tarn_pkt_info disabled = arrived();
    disabled.vlan_port_disabled = 1;
    EXPECT_EQ(decide("udld", UDLD, without_port()), (Decision{0, 1}));
    EXPECT_EQ(decide("udld", UDLD, arrived()), (Decision{STOP, 3}));
    EXPECT_EQ(decide("udld", CDP, arrived()), (Decision{STOP, 3}));

    tarn_udld_enable(1);
    EXPECT_EQ(decide("udld", UDLD, arrived()), (Decision{STOP, 3}));
    EXPECT_EQ(tarn_udld_set_hw_filter(5001, 1), 0);
    EXPECT_EQ(decide("udld", UDLD, disabled), (Decision{STOP | REDIRECT_POST_USERSPACE, 3}));
    EXPECT_EQ(decide("udld", CDP, disabled), (Decision{STOP, 2}));
    EXPECT_EQ(decide("udld", CDP, filtered()), (Decision{STOP, 2}));
    EXPECT_EQ(decide("udld", CDP, arrived()), (Decision{resend, 3}));
    port1()->stp_state[0] = TARN_STP_LEARNING;
    EXPECT_EQ(decide("udld", CDP, arrived()), (Decision{STOP, 3}));
    tarn_pkt_info no_vlan = arrived();
    no_vlan.vlan_if = nullptr;
    EXPECT_EQ(decide("udld", CDP, no_vlan), (Decision{STOP, 3}));
    EXPECT_EQ(tarn_udld_set_hw_filter(9999, 1), -EINVAL);
}

// Only whether there is a port is asked before.
TEST_F(ReceiveSockets, while_udld_is_off_its_frames_end_whatever_the_port_says) {
    EXPECT_EQ(tarn_udld_set_hw_filter(5001, 1), 0);
    tarn_pkt_info disabled = arrived();
    disabled.vlan_port_disabled = 1;
    for (const Bytes &frame : {UDLD, CDP}) {
        for (const tarn_pkt_info &info : {arrived(), disabled, filtered()})
            EXPECT_EQ(decide("udld", frame, info), (Decision{STOP, 3}));
        EXPECT_EQ(decide("udld", frame, without_port()), (Decision{0, 1}));
        tarn_udld_enable(1);
        EXPECT_EQ(decide("udld", frame, without_port()), (Decision{0, 1}));
        tarn_udld_enable(0);
    }
}

TEST_F(ReceiveSockets, udld_frames_are_sent_on_a_hundred_in_101_jiffies) {
    tarn_udld_enable(1);
    userlevel::clock_stop(5000);
    int count = 0;
    for (int i = 0; i < 150; i++)
        count += (decide("udld", CDP, arrived()).flags & REDIRECT_RESEND_L2) != 0;
    EXPECT_EQ(count, 100);
    userlevel::clock_run();
}

TEST_F(ReceiveSockets, a_udld_frame_without_a_port_counts_nowhere) {
    enable_redirect_by_name("vlan_local", 0);
    Arrival local;
    local.meta.local = 1;
    receive(UDLD, local);
    EXPECT_EQ(redirect("udld").inspects, 1u);
    EXPECT_EQ(redirect("udld").stops, 0u);
}

TEST_F(ReceiveSockets, udld_frames_reach_the_daemon_where_the_port_says_so) {
    struct socket *udld = open(TARN_AF_UDLD);
    tarn_udld_enable(1);
    receive(UDLD);
    EXPECT_FALSE(has_frame(udld));
    tarn_udld_set_hw_filter(5001, 1);
    add_aggregator_over(port1(), 4501);
    receive(UDLD);
    Reading reading = read(udld);
    EXPECT_EQ(address_of(reading).ifindex, 5001u); // of the port itself
    EXPECT_EQ(address_of(reading).vid, 1);
    EXPECT_EQ(reading.data, Bytes(UDLD.begin() + 14, UDLD.end()));
}

TEST_F(ReceiveSockets, who_names_the_aggregator_and_who_the_port) {
    struct socket *garp = open(TARN_AF_GARP), *lacp = open(TARN_AF_LACP);
    struct socket *lldp = open(TARN_AF_LLDP);
    add_aggregator_over(port1(), 4501);
    receive(Frame().to("01:80:c2:00:00:21").type(40).padded());
    receive(LACPDU);
    receive(Frame().to("01:80:c2:00:00:0e").type(0x88CC).padded());
    EXPECT_EQ(address_of(read(garp)).ifindex, 4501u);
    EXPECT_EQ(read(lacp).address, bytes_of([] {
                  l2_skaddr name{};
                  std::copy_n(mac("01:80:c2:00:00:02").begin(), 6, name.dest_mac);
                  std::copy_n(mac("02:00:00:00:00:99").begin(), 6, name.src_mac);
                  name.ifindex = 5001;
                  return name;
              }()));
    EXPECT_EQ(address_of(read(lldp)).ifindex, 5001u);
}

class Cfm : public ReceiveSockets {
protected:
    Cfm() { arrival_.meta.flags = TARN_RX_FILTER_MATCH; }
    Arrival arrival_;
};

TEST_F(Cfm, an_untagged_frame_names_its_own_port) {
    struct socket *one = open(TARN_AF_CFM);
    add_aggregator_over(port1(), 4501);
    receive(cfm(1), arrival_);
    Reading reading = read(one);
    EXPECT_EQ(address_of(reading).ifindex, 5001u);
    EXPECT_EQ(address_of(reading).vid, 1); // the VID it came with, and no mark of a tag
    EXPECT_EQ(reading.data.at(1), 1);
}

TEST_F(Cfm, a_tagged_frame_names_the_aggregator_and_its_tag) {
    struct socket *one = open(TARN_AF_CFM);
    add_aggregator_over(port1(), 4501);
    for (u8 opcode : {1, 0x28}) {
        receive(
            Frame().to("01:80:c2:00:00:30").tag(0xE007).type(0x8902).bytes({0x60, opcode}).padded(),
            arrival_);
        Reading reading = read(one);
        EXPECT_EQ(address_of(reading).ifindex, 4501u);
        EXPECT_EQ(address_of(reading).vid, 0xF007);
        EXPECT_EQ(reading.data.at(1), opcode);
    }
}

TEST_F(Cfm, bytes_24_to_29_and_32_to_35_of_the_address_are_clear) {
    struct socket *one = open(TARN_AF_CFM);
    receive(cfm(3), arrival_);
    Bytes address = read(one).address;
    EXPECT_EQ(Bytes(address.begin() + 24, address.begin() + 30), Bytes(6, 0));
    EXPECT_EQ(Bytes(address.begin() + 32, address.end()), Bytes(4, 0));
    EXPECT_EQ(Bytes(address.begin() + 22, address.begin() + 24), (Bytes{0x01, 0x80}));
    EXPECT_EQ(Bytes(address.begin() + 30, address.begin() + 32), (Bytes{0x00, 0x00}));
}

TEST_F(Cfm, the_tag_mark_is_taken_off_an_untagged_frame) {
    struct socket *one = open(TARN_AF_CFM);
    sk_buff *skb = userlevel::frame_make(cfm(1), 64);
    tarn_post_info info{.rx_port = port1(), .l2_ifindex = 5001, .tag = 0x1005};
    kfree_skb(redirect("cfm").post(skb, &info));
    EXPECT_EQ(address_of(read(one)).vid, 0x0005);
}

TEST_F(ReceiveSockets, ryke_reads_the_whole_frame_with_its_tag) {
    struct socket *ryke = open(TARN_AF_RYKE);
    receive(Frame().to("00:e0:2b:00:00:04").tag(0xE001).type(0x88B7).padded());
    Reading reading = read(ryke);
    EXPECT_EQ(reading.data, Frame().to("00:e0:2b:00:00:04").tag(1).type(0x88B7).padded().build());
    EXPECT_EQ(address_of(reading).ifindex, 5001u);
    EXPECT_EQ(address_of(reading).vid, 1);
    EXPECT_EQ(Bytes(reading.address.begin() + 12, reading.address.begin() + 14), (Bytes{0x81, 0}));
}

TEST_F(ReceiveSockets, of_a_routed_port_daemons_are_told_vid_0) {
    struct socket *lldp = open(TARN_AF_LLDP), *ryke = open(TARN_AF_RYKE);
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    receive(Frame().to("01:80:c2:00:00:0e").type(0x88CC).padded());
    receive(RYKE);
    EXPECT_EQ(address_of(read(lldp)).vid, 0);
    Reading reading = read(ryke);
    EXPECT_EQ(address_of(reading).vid, 0);
    EXPECT_EQ(reading.data, Frame().to("00:e0:2b:00:00:04").tag(0).type(0x88B7).padded(64).build());
}

TEST_F(ReceiveSockets, ryke_makes_room_for_the_tag) {
    struct socket *ryke = open(TARN_AF_RYKE);
    for (u32 headroom : {0u, 3u, 4u, 39u, 40u}) {
        receive_skb(userlevel::frame_make(RYKE, headroom));
        EXPECT_EQ(read(ryke).data.size(), RYKE.size() + 4) << headroom;
    }
}

TEST_F(ReceiveSockets, ryke_moves_the_link_header_to_where_the_tag_makes_it_begin) {
    tarn_post_info info{.rx_port = port1(), .rx_vid = 1};
    for (u32 headroom : {0u, 3u, 4u, 64u}) {
        sk_buff *skb = userlevel::frame_make(RYKE, headroom);
        skb->mac_header = static_cast<u16>(headroom);
        skb = redirect("ryke").post(skb, &info);
        const u8 *begins = skb->tail - RYKE.size() - 4;
        EXPECT_EQ(skb->head + skb->mac_header, begins) << headroom;
        kfree_skb(skb);
    }
}

TEST_F(ReceiveSockets, ryke_without_room_loses_the_frame) {
    struct socket *ryke = open(TARN_AF_RYKE);
    sk_buff *skb = userlevel::frame_make(RYKE, 3);
    userlevel::fail_allocation(1);
    receive_skb(skb);
    EXPECT_FALSE(has_frame(ryke));
    EXPECT_THAT(log(), ElementsAre("2 Reallocation of skb has failed for protocol ryke\n"));
}

TEST_F(ReceiveSockets, nothing_else_is_sent_on_a_control_vlan) {
    auto hook = redirect("ryke").modify_tx;
    auto passes = [&](tarn_if *ifp, const Bytes &bytes) {
        sk_buff *skb = userlevel::frame_make(bytes);
        sk_buff *after = hook(ifp, skb);
        if (after)
            kfree_skb(after);
        return after == skb;
    };
    EXPECT_TRUE(passes(vlan1(), Frame()));
    EXPECT_EQ(tarn_ryke_set_ctrl_vlan(1, 1), 0);
    EXPECT_EQ(tarn_ryke_is_ctrl_vlan(1), 1);
    EXPECT_FALSE(passes(vlan1(), Frame()));
    EXPECT_TRUE(passes(vlan1(), RYKE));
    EXPECT_TRUE(passes(port1(), Frame()));
    userlevel::netdev_transmit(vlan1()->netdev, Frame().build());
    EXPECT_THAT(driver().sent, IsEmpty());
    EXPECT_EQ(redirect("ryke").modify_tx_inspects, 1u);
    EXPECT_EQ(tarn_ryke_set_ctrl_vlan(1, 0), 0);
    userlevel::netdev_transmit(vlan1()->netdev, Frame().build());
    EXPECT_EQ(driver().sent.size(), 1u);
}

TEST_F(ReceiveSockets, a_new_vlan_is_no_control_vlan) {
    tarn_ryke_set_ctrl_vlan(33, 1);
    add_vlan(33);
    EXPECT_EQ(tarn_ryke_is_ctrl_vlan(33), 0);
    tarn_ryek_vlan_created(65535);
}

TEST_F(ReceiveSockets, control_vlans_end_at_4094) {
    EXPECT_EQ(tarn_ryke_set_ctrl_vlan(4094, 1), 0);
    EXPECT_EQ(tarn_ryke_set_ctrl_vlan(4095, 1), -EINVAL);
    EXPECT_EQ(tarn_ryke_is_ctrl_vlan(4094), 1);
    EXPECT_EQ(tarn_ryke_is_ctrl_vlan(4095), 0);
    tarn_ryke_set_ctrl_vlan(4094, 0);
}

TEST_F(ReceiveSockets, ldf_notes_its_vlan_for_test_tools) {
    struct socket *ldf = open(TARN_AF_LDF);
    const Bytes own = Frame().to("00:00:f4:27:71:01").from("02:00:00:00:00:01").padded();
    tarn_ppdi_last = {};
    receive(own);
    EXPECT_EQ(tarn_ppdi_last.vid_valid, 0);
    tarn_packet_post_debug_enable = 1;
    receive(own);
    EXPECT_EQ(tarn_ppdi_last.vid_valid, 1);
    EXPECT_EQ(tarn_ppdi_last.vid, 1u);
    tarn_ppdi_last = {};
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    std::copy_n(vlan1()->hwaddr, 6, port1()->hwaddr);
    receive(own);
    EXPECT_EQ(tarn_ppdi_last.vid, 1u) << "that of a routed port, too";
    tarn_packet_post_debug_enable = 0;
    EXPECT_TRUE(has_frame(ldf));
}

TEST_F(ReceiveSockets, a_post_needs_headroom_and_makes_it) {
    struct socket *lacp = open(TARN_AF_LACP), *lldp = open(TARN_AF_LLDP);
    const Bytes lldpdu = Frame().to("01:80:c2:00:00:0e").type(0x88CC).padded();
    for (u32 headroom : {0u, 1u, 2u, 35u, 36u}) {
        receive_skb(userlevel::frame_make(LACPDU, headroom));
        EXPECT_EQ(read(lacp).data.size(), 46u) << headroom;
        receive_skb(userlevel::frame_make(lldpdu, headroom));
        EXPECT_EQ(read(lldp).data, lldpdu) << headroom;
    }
}

TEST_F(ReceiveSockets, without_room_the_frame_is_lost) {
    struct socket *lacp = open(TARN_AF_LACP);
    sk_buff *skb = userlevel::frame_make(LACPDU, 1);
    userlevel::fail_allocation(1);
    receive_skb(skb);
    EXPECT_FALSE(has_frame(lacp));
    EXPECT_EQ(redirect("lacp").stop_reasons[3], 1u);
    EXPECT_THAT(log(), ElementsAre("2 Reallocation of skb has failed for protocol lacp\n"));
}

// Somebody who got a clone before may have his address in the room in front of the frame.
TEST_F(ReceiveSockets, room_that_others_read_is_left_alone) {
    struct socket *lacp = open(TARN_AF_LACP);
    sk_buff *skb = userlevel::frame_make(LACPDU, 64);
    auto *front = static_cast<u8 *>(skb_push(skb, 2));
    front[0] = front[1] = 0x77;
    sk_buff *held = skb_clone(skb, GFP_ATOMIC);
    skb_pull(skb, 2);
    receive_skb(skb);
    EXPECT_EQ(read(lacp).data.size(), 46u);
    EXPECT_EQ(skb_data(held)[0], 0x77);
    EXPECT_EQ(skb_data(held)[14], 0x88);
    kfree_skb(held);
}

TEST_F(ReceiveSockets, a_runt_is_not_given_to_daemons) {
    struct socket *lacp = open(TARN_AF_LACP);
    for (std::size_t length : {12u, 13u}) {
        receive(Frame().to("01:80:c2:00:00:02").type(0x8809).cut(length));
        EXPECT_FALSE(has_frame(lacp)) << length;
    }
    receive(Frame().to("01:80:c2:00:00:02").type(0x8809));
    EXPECT_EQ(read(lacp).result, 0);
    EXPECT_EQ(redirect("lacp").userspace, 3u);
}

TEST_F(ReceiveSockets, a_frame_without_the_port_that_its_address_names_is_not_posted) {
    struct socket *befd = open(TARN_AF_BEFD);
    enable_redirect_by_name("vlan_local", 0);
    Arrival local;
    local.meta.local = 1;
    receive(Frame().to("00:0c:25:0a:8c:01").type(0xAAAA).padded(), local);
    EXPECT_EQ(redirect("befd").userspace, 1u);
    EXPECT_FALSE(has_frame(befd));
}

TEST_F(ReceiveSockets, exactly_one_clone_for_each_socket_with_room) {
    std::vector<struct socket *> all;
    for (int i = 0; i < 10; i++)
        all.push_back(open(TARN_AF_LACP));
    all[4]->sk->rcvbuf = 1;
    u64 before = userlevel::allocations_made();
    receive(LACPDU);
    EXPECT_EQ(userlevel::allocations_made() - before, 2u + 9u); // the frame itself, and the clones
    for (int i = 0; i < 10; i++)
        EXPECT_EQ(has_frame(all[static_cast<std::size_t>(i)]), i != 4);
}

TEST_F(ReceiveSockets, a_post_without_a_clone_loses_the_frame_for_that_socket) {
    struct socket *first = open(TARN_AF_LACP), *second = open(TARN_AF_LACP);
    sk_buff *skb = userlevel::frame_make(LACPDU, 64);
    userlevel::fail_allocation(1);
    receive_skb(skb);
    EXPECT_FALSE(has_frame(second)); // the newest is served first
    EXPECT_TRUE(has_frame(first));
}

} // namespace
