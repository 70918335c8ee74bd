// What a daemon's send becomes on the wire, family by family.
#include "sockets/socket_test.h"

#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/netdev.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

const Mac TO = mac("01:80:c2:00:00:02"), FROM = mac("02:00:00:00:00:07");
const Bytes PAYLOAD = {0xD0, 0xD1, 0xD2};

Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes header(const Bytes &rest) {
    Bytes bytes(TO.begin(), TO.end());
    return bytes + Bytes(FROM.begin(), FROM.end()) + rest;
}

class Send : public SocketTest {
protected:
    // The one frame that the chip has got since the last question.
    fake_driver::Sent sent() {
        EXPECT_EQ(driver().sent.size(), 1u);
        fake_driver::Sent last = driver().sent.empty() ? fake_driver::Sent{} : driver().sent.back();
        driver().sent.clear();
        return last;
    }
    static constexpr u32 PORT1 = 5001;
};

struct Row {
    const char *name;
    int family;
    bool short_name;
    Bytes front; // of the frame, before the payload
    u32 vid;     // of the frame on its way to the chip
    u32 cos, queue;
    u32 headroom, room; // reserved, and allocated beyond the payload
};

void PrintTo(const Row &row, std::ostream *out) {
    *out << row.name;
}

class Families : public Send, public ::testing::WithParamInterface<Row> {};

TEST_P(Families, send_on_a_port) {
    const Row &row = GetParam();
    struct socket *one = open(row.family);
    Bytes name = row.short_name ? l2_name(PORT1) : vlan_name(PORT1, row.vid != 0 ? 1 : 0);
    Bytes frame = row.front + PAYLOAD;
    EXPECT_EQ(send(one, name, PAYLOAD), static_cast<i64>(frame.size()));
    fake_driver::Sent last = sent();
    EXPECT_EQ(last.ifindex, PORT1);
    EXPECT_EQ(last.bytes, frame);
    EXPECT_EQ(last.vid, row.vid);
    EXPECT_EQ(last.cos, row.cos);
    EXPECT_EQ(last.queue, row.queue);
    EXPECT_EQ(last.tx_enable, 1);
    EXPECT_EQ(last.tx_option, 0u);
}

TEST_P(Families, need_a_port_that_is_up) {
    const Row &row = GetParam();
    struct socket *one = open(row.family);
    Bytes name = row.short_name ? l2_name(PORT1) : vlan_name(PORT1, 1);
    bool up_is_enough = std::set<int>{55, 56, 61, 66, 67, 69, 70}.contains(row.family);

    port1()->flags = IFF_UP;
    EXPECT_EQ(send(one, name, PAYLOAD) >= 0, up_is_enough);
    port1()->flags = IFF_RUNNING;
    EXPECT_EQ(send(one, name, PAYLOAD), -ENETDOWN);
    port1()->flags = IFF_UP | IFF_RUNNING;
    EXPECT_GE(send(one, name, PAYLOAD), 0);
}

TEST_P(Families, hand_on_what_the_chip_answers) {
    const Row &row = GetParam();
    struct socket *one = open(row.family);
    Bytes name = row.short_name ? l2_name(PORT1) : vlan_name(PORT1, 1);
    driver().xmit_result = static_cast<u32>(-EINVAL);
    EXPECT_EQ(send(one, name, PAYLOAD), -EINVAL);
    driver().xmit_result = 3; // a positive one too
    EXPECT_EQ(send(one, name, PAYLOAD), 3);
    EXPECT_EQ(dropped(), 2u);
}

// Of any length, for blocks of memory come in few sizes: somewhere a byte more takes the next one.
TEST_P(Families, take_as_much_memory_as_they_should) {
    const Row &row = GetParam();
    struct socket *one = open(row.family);
    Bytes name = row.short_name ? l2_name(PORT1) : vlan_name(PORT1, row.vid != 0 ? 1 : 0);
    std::size_t header = std::min<std::size_t>(row.front.size(), ETH_HLEN);
    driver().hold = true;
    for (std::size_t length = 0; length < 192; length++) {
        ASSERT_GE(send(one, name, Bytes(length)), 0);
        sk_buff *skb = driver().held.at(0),
                *like = userlevel::frame_make({}, static_cast<u32>(length) + row.room);
        EXPECT_EQ(skb_headroom(skb) + header, row.headroom) << length;
        EXPECT_EQ(skb_truesize(skb), skb_truesize(like)) << length;
        kfree_skb(like);
        fake_driver::release();
    }
}

TEST_P(Families, need_memory) {
    const Row &row = GetParam();
    struct socket *one = open(row.family);
    Bytes name = row.short_name ? l2_name(PORT1) : vlan_name(PORT1, 1);
    userlevel::fail_allocation(1);
    EXPECT_EQ(send(one, name, PAYLOAD), -ENOBUFS);
    EXPECT_THAT(driver().sent, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, Families,
    ::testing::Values(Row{"lacp", 46, true, header({0x88, 0x09}), 0, 6, 6, 80, 80},
                      Row{"stp", 48, false, header({0, 3}), 0, 6, 6, 142, 158},
                      Row{"garp", 50, false, header({0, 3}), 0, 6, 6, 80, 80},
                      Row{"lldp", 53, false, header({0x88, 0xCC}), 0, 6, 6, 80, 80},
                      Row{"ryke", 54, false, {}, 1, 6, 6, 64, 64},
                      Row{"testd", 55, false, {}, 0, 2, 2, 64, 64},
                      Row{"frame", 56, false, {}, 1, 0, 0, 64, 64},
                      Row{"ldf", 57, false, {}, 1, 6, 6, 64, 64},
                      Row{"udld", 61, false, {}, 0, 6, 6, 64, 64},
                      Row{"kelm_agent", 65, false, header({0xFB, 0xAF}), 0, 6, 6, 80, 80},
                      Row{"cfm", 66, false, header({0x89, 0x02}), 0, 6, 6, 64, 64},
                      Row{"befd", 67, true, header({0xAA, 0xAA}), 0, 6, 6, 64, 64},
                      // The length leaves the three bytes of LLC out.
                      Row{"isis", 68, true, header({0, 3, 0xFE, 0xFE, 0x03}), 0, 6, 6, 80, 83},
                      Row{"mrp", 69, false, {}, 0, 6, 6, 64, 64},
                      Row{"profinet", 70, false, {}, 0, 4, 4, 64, 64}),
    [](const auto &one) { return std::string(one.param.name); });

TEST_F(Send, an_aggregator_sends_on_its_running_member_of_the_highest_number) {
    tarn_if *port2 = add_port(2);
    add_aggregator_over(port1(), 4501);
    configure([&] { tarn_ifmgr_aggregator_port_attach(4501, port2->ifindex); });
    struct socket *lacp = open(TARN_AF_LACP);
    EXPECT_EQ(send(lacp, l2_name(4501), PAYLOAD), 17);
    EXPECT_EQ(sent().ifindex, 5002u);
    port2->flags = IFF_UP;
    EXPECT_EQ(send(lacp, l2_name(4501), PAYLOAD), 17);
    EXPECT_EQ(sent().ifindex, PORT1);
    port1()->flags = IFF_UP;
    tarn_if *aggregator = tarn_ifmgr_lookup_by_index(4501);
    aggregator->flags = TARN_IF_LINK;
    tarn_ifmgr_if_ref_put(aggregator);
    EXPECT_EQ(send(lacp, l2_name(4501), PAYLOAD), -EINVAL); // and references, see the fixture
}

// Whose flags are asked: those of the aggregator that is named; of testd, those of the member.
TEST_F(Send, an_aggregator_that_is_down_sends_nothing_though_a_member_has_link) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    for (u32 flags : {0u, u32{IFF_RUNNING}, u32{IFF_UP}, TARN_IF_LINK}) {
        aggregator->flags = flags;
        auto allowed = [=](u32 up) { return (flags & up) == up ? 1 : -ENETDOWN; };
        struct socket *lacp = open(TARN_AF_LACP), *mrp = open(TARN_AF_MRP);
        EXPECT_EQ(std::min<i64>(send(lacp, l2_name(4501), PAYLOAD), 1), allowed(TARN_IF_LINK));
        EXPECT_EQ(std::min<i64>(send(mrp, vlan_name(4501), PAYLOAD), 1), allowed(IFF_UP));
        driver().sent.clear();
        EXPECT_EQ(send(open(TARN_AF_TESTD), vlan_name(4501), PAYLOAD), 3);
        EXPECT_EQ(sent().ifindex, PORT1);
    }
}

TEST_F(Send, profinet_asks_the_very_port_it_names) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    struct socket *profinet = open(TARN_AF_PROFINET);
    aggregator->flags = IFF_UP;
    for (u32 flags : {0u, TARN_IF_LINK}) {
        port1()->flags = flags;
        EXPECT_EQ(send(profinet, vlan_name(4501), PAYLOAD), 3);
        EXPECT_EQ(sent().ifindex, 4501u); // not its member
    }
    aggregator->flags = IFF_RUNNING;
    EXPECT_EQ(send(profinet, vlan_name(4501), PAYLOAD), -ENETDOWN);
}

TEST_F(Send, udld_sends_on_the_very_port_it_names) {
    add_aggregator_over(port1(), 4501);
    struct socket *udld = open(TARN_AF_UDLD);
    EXPECT_EQ(send(udld, vlan_name(4501), PAYLOAD), 3);
    EXPECT_EQ(sent().ifindex, 4501u);
}

TEST_F(Send, the_protocol_number_of_the_socket_is_that_of_its_frames) {
    struct socket *lacp = open(TARN_AF_LACP, 0x1234);
    driver().hold = true;
    send(lacp, l2_name(PORT1), PAYLOAD);
    ASSERT_EQ(driver().held.size(), 1u);
    EXPECT_EQ(driver().held[0]->protocol, 0x1234);
    EXPECT_EQ(skb_dev(driver().held[0]), nullptr);
    EXPECT_FALSE(driver().sent.at(0).owned);
    fake_driver::release();
    driver().sent.clear();
}

// The port stands behind the end of a short name, which is let in all the same.
TEST_F(Send, stp_takes_a_name_without_the_port_that_it_reads) {
    struct socket *stp = open(TARN_AF_STP);
    Bytes name = vlan_name(PORT1);
    for (std::size_t size : {16u, 17u, 18u, 19u}) {
        name.resize(size);
        EXPECT_EQ(send(stp, name, PAYLOAD), size == 18 || size == 19 ? 17 : -EINVAL) << size;
        name = vlan_name(PORT1);
    }
    name.resize(20);
    EXPECT_EQ(send(stp, name, PAYLOAD), 17);
    driver().sent.clear();
}

TEST_F(Send, garp_floods_by_an_order_in_the_address) {
    add_port(2);
    struct socket *garp = open(TARN_AF_GARP);
    vlan_skaddr name = vlan_address(PORT1, 1);
    name.dest_mac[0] = 0x81;
    EXPECT_EQ(send(garp, bytes_of(name), PAYLOAD), 17);
    ASSERT_EQ(driver().flooded.size(), 1u);
    const fake_driver::Flooded &flood = driver().flooded[0];
    EXPECT_EQ(flood.ifindex, PORT1);
    EXPECT_EQ(flood.vid, 1u);
    EXPECT_EQ(flood.except0, FLOOD_NO_EXCEPTION);
    EXPECT_EQ(flood.bytes, header({0, 3}) + PAYLOAD);
    EXPECT_EQ(flood.cos, 6u);
    EXPECT_EQ(flood.queue, 6);
    EXPECT_THAT(driver().sent, IsEmpty());
    driver().flood_result = -EINVAL;
    EXPECT_EQ(send(garp, bytes_of(name), PAYLOAD), -EINVAL);
}

TEST_F(Send, a_garp_flood_leaves_by_all_ports_but_the_named_one) {
    add_port(2);
    add_port(3);
    fake_driver::attach_without_flood();
    struct socket *garp = open(TARN_AF_GARP);
    vlan_skaddr name = vlan_address(PORT1, 1);
    name.dest_mac[0] = 0x81;
    EXPECT_EQ(send(garp, bytes_of(name), PAYLOAD), 17);
    std::set<u32> ports;
    for (const fake_driver::Sent &one : driver().sent) {
        ports.insert(one.ifindex);
        EXPECT_EQ(one.bytes[0], 0x01);
    }
    EXPECT_EQ(ports, (std::set<u32>{5002, 5003}));
}

TEST_F(Send, a_garp_flood_leaves_out_the_aggregator_that_is_named) {
    add_port(2);
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    aggregator->flags = TARN_IF_LINK;
    aggregator->stp_state[0] = TARN_STP_FORWARDING;
    fake_driver::attach_without_flood();
    struct socket *garp = open(TARN_AF_GARP);
    vlan_skaddr name = vlan_address(4501, 1);
    name.dest_mac[0] = 0x81;
    EXPECT_EQ(send(garp, bytes_of(name), PAYLOAD), 17);
    EXPECT_EQ(sent().ifindex, 5002u); // and not 5001, its member
}

TEST_F(Send, cfm_takes_a_vid_for_a_whole_tag) {
    struct socket *cfm = open(TARN_AF_CFM);
    EXPECT_EQ(send(cfm, vlan_name(PORT1, 0xA00A), PAYLOAD), 21);
    fake_driver::Sent last = sent();
    EXPECT_EQ(last.bytes, header({0x81, 0x00, 0xA0, 0x0A, 0x89, 0x02}) + PAYLOAD);
    EXPECT_EQ(last.cos, 5u);
    EXPECT_EQ(last.queue, 6);
    EXPECT_EQ(send(cfm, vlan_name(PORT1, 0xE000), PAYLOAD), 17); // a tag without a VLAN is none
    last = sent();
    EXPECT_EQ(last.bytes, header({0x89, 0x02}) + PAYLOAD);
    EXPECT_EQ(last.cos, 6u);
}

TEST_F(Send, frame_and_mrp_ask_for_the_transmit_option) {
    for (int family : {TARN_AF_FRAME, TARN_AF_MRP, TARN_AF_LDF, TARN_AF_TESTD}) {
        struct socket *one = open(family);
        EXPECT_EQ(send(one, vlan_name(PORT1, 1, 0x80), PAYLOAD), 3);
        EXPECT_EQ(sent().tx_option, family == TARN_AF_FRAME || family == TARN_AF_MRP) << family;
    }
}

TEST_F(Send, a_vlan_that_is_named_must_have_an_interface) {
    for (int family : {TARN_AF_RYKE, TARN_AF_LDF, TARN_AF_FRAME}) {
        struct socket *one = open(family);
        EXPECT_EQ(send(one, vlan_name(PORT1, 9), PAYLOAD), -EINVAL) << family;
        EXPECT_EQ(send(one, vlan_name(PORT1, 9), Bytes(1501)),
                  family == TARN_AF_LDF ? -EMSGSIZE : -EINVAL);
    }
    EXPECT_THAT(driver().sent, IsEmpty());
}

// Even where there is an interface of the number that an empty name has.
TEST_F(Send, a_name_that_is_short_names_nothing) {
    net_device *device = configure([] { return userlevel::netdev_create("eth0"); });
    add_ethernet("eth0", 0)->flags = TARN_IF_LINK;
    auto &record = userlevel::netdev_recorded(device);
    struct socket *lldp = open(TARN_AF_LLDP);
    EXPECT_EQ(send(lldp, vlan_name(0), PAYLOAD), 17);
    EXPECT_THAT(record.sent, SizeIs(1));
    for (std::size_t size : {0u, 1u, 35u}) {
        Bytes name = vlan_name(0);
        name.resize(size);
        EXPECT_EQ(send(lldp, name, PAYLOAD), -EINVAL) << size;
    }
    EXPECT_THAT(record.sent, SizeIs(1));
    log();
}

TEST_F(Send, profinet_sends_on_a_vlan_as_a_whole) {
    struct socket *profinet = open(TARN_AF_PROFINET);
    EXPECT_EQ(send(profinet, vlan_name(0, 1), PAYLOAD), 3);
    fake_driver::Sent last = sent();
    EXPECT_EQ(last.ifindex, 0u);
    EXPECT_EQ(last.vid, 1u);
    EXPECT_EQ(last.cos, 4u);
    EXPECT_EQ(last.queue, 4);
    EXPECT_EQ(send(profinet, vlan_name(301), PAYLOAD), 3); // the same, by its number
    EXPECT_EQ(sent().vid, 1u);
    EXPECT_EQ(send(profinet, vlan_name(0, 9), PAYLOAD), -EINVAL);
    driver().xmit_result = static_cast<u32>(-EINVAL);
    EXPECT_EQ(send(profinet, vlan_name(0, 1), PAYLOAD), -EINVAL);
}

TEST_F(Send, lldp_sends_on_a_port_of_the_kernel_too) {
    net_device *device = configure([] { return userlevel::netdev_create("eth7"); });
    add_ethernet("eth7", 700)->flags = TARN_IF_LINK;
    auto &record = userlevel::netdev_recorded(device);
    struct socket *lldp = open(TARN_AF_LLDP);
    EXPECT_EQ(send(lldp, vlan_name(700), PAYLOAD), 17);
    EXPECT_EQ(record.sent.at(0).bytes, header({0x88, 0xCC}) + PAYLOAD);
    EXPECT_THAT(driver().sent, IsEmpty());
    struct socket *lacp = open(TARN_AF_LACP);
    EXPECT_EQ(send(lacp, l2_name(700), PAYLOAD), -EINVAL);
}

TEST_F(Send, testd_sends_out_of_the_device_where_there_is_one) {
    EXPECT_EQ(netdev_set_flags_by_name("vlan1", IFF_UP), 0);
    auto &stack = userlevel::netdev_recorded(vlan1()->netdev);
    i32 references = vlan1()->netdev->references;
    struct socket *testd = open(TARN_AF_TESTD);
    EXPECT_EQ(send(testd, vlan_name(301), plain()), 60);
    fake_driver::Sent last = sent();
    EXPECT_EQ(last.ifindex, 0u); // flooded
    EXPECT_EQ(last.vid, 1u);
    EXPECT_EQ(last.bytes, plain());
    EXPECT_THAT(stack.received, IsEmpty());
    EXPECT_EQ(netdev_set_flags_by_name("vlan1", 0), 0);
    vlan1()->flags = TARN_IF_LINK;
    EXPECT_EQ(send(testd, vlan_name(301), plain()), 60); // a device that is down is no error
    vlan1()->flags = IFF_RUNNING;
    EXPECT_EQ(send(testd, vlan_name(301), plain()), -ENETDOWN);
    EXPECT_THAT(driver().sent, IsEmpty());
    EXPECT_EQ(vlan1()->netdev->references, references);
}

TEST_F(Send, testd_holds_the_device_while_it_sends_out_of_it) {
    EXPECT_EQ(netdev_set_flags_by_name("vlan1", IFF_UP), 0);
    const net_device *device = vlan1()->netdev;
    i32 before = device->references, meanwhile = 0;
    driver().answer = [&](const fake_driver::Sent &) {
        meanwhile = device->references;
        return 0u;
    };
    EXPECT_EQ(send(open(TARN_AF_TESTD), vlan_name(301), plain()), 60);
    driver().answer = nullptr;
    EXPECT_EQ(meanwhile, before + 1);
}

TEST_F(Send, testd_takes_any_answer_of_a_device_but_an_error) {
    net_device *device = configure([] { return userlevel::netdev_create("eth7"); });
    add_ethernet("eth7", 700)->flags = TARN_IF_LINK;
    auto &record = userlevel::netdev_recorded(device);
    struct socket *testd = open(TARN_AF_TESTD);
    EXPECT_EQ(send(testd, vlan_name(700), Bytes(20, 1)), 20);
    EXPECT_EQ(record.sent.at(0).bytes, Bytes(20, 1));
    record.queue_result = 1;
    EXPECT_EQ(send(testd, vlan_name(700), Bytes(20, 1)), 20);
    record.queue_result = -EINVAL;
    EXPECT_EQ(send(testd, vlan_name(700), Bytes(20, 1)), -EINVAL);
}

TEST_F(Send, testd_finds_the_device_of_a_name_that_fills_its_bytes) {
    net_device *device = configure([] { return userlevel::netdev_create("fifteen-letters"); });
    add_ethernet("fifteen-letters-and-more", 700)->flags = TARN_IF_LINK;
    auto &record = userlevel::netdev_recorded(device);
    struct socket *testd = open(TARN_AF_TESTD);
    EXPECT_EQ(send(testd, vlan_name(700), Bytes(20, 1)), 20);
    EXPECT_THAT(record.sent, SizeIs(1));
}

TEST_F(Send, testd_needs_the_device_that_it_sends_through) {
    port1()->if_flags |= TARN_IF_F_L3_SWITCHPORT;
    struct socket *testd = open(TARN_AF_TESTD);
    EXPECT_EQ(send(testd, vlan_name(PORT1), Bytes(20, 1)), -EINVAL);
    EXPECT_EQ(dropped(), 1u);
}

TEST_F(Send, a_runt_goes_out_as_it_is) {
    struct socket *frame = open(TARN_AF_FRAME);
    EXPECT_EQ(send(frame, vlan_name(PORT1, 1), Bytes{1, 2}), 2);
    EXPECT_EQ(sent().bytes, (Bytes{1, 2}));
    EXPECT_EQ(send(frame, vlan_name(PORT1, 1), {}), 0);
    EXPECT_EQ(sent().bytes, Bytes{});
}

TEST_F(Send, frame_asks_for_the_length_of_a_name_before_the_name) {
    struct socket *frame = open(TARN_AF_FRAME);
    msghdr msg{};
    msg.msg_namelen = 36; // the layer above would not do that
    EXPECT_EQ(frame->ops->sendmsg(frame, &msg, 0), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("4 vlan_skaddr is null"));
    msg.msg_namelen = 35;
    EXPECT_EQ(frame->ops->sendmsg(frame, &msg, 0), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("4 _frame_sock_sendmsg namelen 35"));
}

TEST_F(Send, frames_on_their_way_are_charged_to_the_socket) {
    struct socket *lacp = open(TARN_AF_LACP);
    int least = 0;
    EXPECT_EQ(userlevel::socket_setsockopt(lacp, SOL_SOCKET, SO_SNDBUF, &least, sizeof(least)), 0);
    // The chip's layer gives the frame's memory back before the chip has it.
    for (int i = 0; i < 100; i++)
        EXPECT_EQ(send(lacp, l2_name(PORT1), Bytes(1500)), 1514);
    EXPECT_EQ(lacp->sk->wmem_alloc, 1);
    lacp->sk->wmem_alloc += 5000;
    EXPECT_EQ(send(lacp, l2_name(PORT1), PAYLOAD), -EAGAIN);
    lacp->sk->wmem_alloc -= 5000;
}

TEST_F(Send, discarded_frames_count_as_sent) {
    struct socket *lacp = open(TARN_AF_LACP);
    tarn_tx_discard_all_set(1);
    EXPECT_EQ(send(lacp, l2_name(PORT1), PAYLOAD), 17);
    tarn_tx_discard_all_set(0);
    EXPECT_THAT(driver().sent, IsEmpty());
}

} // namespace
