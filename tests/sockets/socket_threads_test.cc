// Daemons that come, read, send and go beside the traffic.
#include "support/fake_driver.h"
#include "support/frame_builder.h"
#include "support/seams.h"

#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "module/tarn_module.h"
#include "pkt/pkt_rx.h"
#include "plain_switch/plain_switch.h"
#include "socket_calls.h"
#include "tarn/skaddr.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace {

constexpr int ROUNDS = 34000; // of three daemons: a hundred thousand sockets

i64 read_one(struct socket *one) {
    Bytes data(100), name(64);
    iovec buffer{data.data(), data.size()};
    msghdr msg{};
    msg.msg_name = name.data();
    msg.msg_namelen = static_cast<socklen_t>(name.size());
    msg.msg_iov = &buffer;
    msg.msg_iovlen = 1;
    return userlevel::socket_recvmsg(one, &msg, MSG_DONTWAIT);
}

void deliver(const std::atomic<bool> &stop) {
    const Bytes frames[] = {Frame().to("01:80:c2:00:00:02").type(0x8809).padded(),
                            Frame().to("01:80:c2:00:00:0e").type(0x88CC).padded()};
    tarn_rx_meta meta{};
    for (u32 i = 0; !stop || i < 2; i++) // at least one of each
        rxtx_hw_packet_recv(userlevel::frame_make(frames[i % 2], i % 3),
                            plain_switch::FIRST_PORT_IFINDEX + 1, 1, &meta);
}

void come_and_go(int family) {
    l2_skaddr name{};
    name.ifindex = plain_switch::FIRST_PORT_IFINDEX + 1;
    u8 payload[40] = {};
    for (int i = 0; i < ROUNDS; i++) {
        struct socket *one = nullptr;
        ASSERT_EQ(userlevel::socket_open(family, SOCK_RAW, 0, &one), 0);
        read_one(one);
        iovec buffer{payload, sizeof(payload)};
        msghdr msg{};
        msg.msg_name = &name;
        msg.msg_namelen = sizeof(name);
        msg.msg_iov = &buffer;
        msg.msg_iovlen = 1;
        userlevel::socket_sendmsg(one, &msg, MSG_DONTWAIT);
        read_one(one);
        userlevel::socket_close(one);
    }
}

TEST(SocketThreads, daemons_that_come_and_go_leave_nothing_but_their_records) {
    ASSERT_EQ(init_module(), 0);
    seams::record().pass_on = true;
    fake_driver::record().keep = false;
    fake_driver::attach();
    plain_switch::add_vlan(1);
    plain_switch::add_member(plain_switch::add_port(1), 1);
    struct socket *stays = nullptr;
    ASSERT_EQ(userlevel::socket_open(TARN_AF_LACP, SOCK_RAW, 0, &stays), 0);
    auto before = userlevel::take_snapshot();

    std::atomic<bool> stop = false;
    std::thread driver(deliver, std::cref(stop));
    std::vector<std::thread> daemons;
    for (int family : {TARN_AF_LACP, TARN_AF_LACP, TARN_AF_LLDP})
        daemons.emplace_back(come_and_go, family);
    for (std::thread &daemon : daemons)
        daemon.join();
    stop = true;
    driver.join();

    EXPECT_EQ(read_one(stays), 46);
    while (read_one(stays) >= 0) {
    }
    std::size_t records = 0;
    for (const userlevel::object &object : userlevel::leaked_since(before)) {
        EXPECT_STREQ(object.kind, "sock");
        records++;
    }
    EXPECT_EQ(records, 3u * ROUNDS);
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), 0u);
    userlevel::log_take();
}

} // namespace
