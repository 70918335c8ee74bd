// A switch with a driver and daemons, for tests of the protocol sockets:
//
//   struct socket *lacp = open(TARN_AF_LACP);
//   receive(Frame().to("01:80:c2:00:00:02").type(0x8809).padded());
//   EXPECT_EQ(read(lacp).data.size(), 46u);
//
// What is open at the end is closed. The record of a closed socket stays, on purpose, and is no
// leak.
#pragma once

#include "support/transmit_test.h"

#include "kernel/sock.h"
#include "socket_calls.h"
#include "tarn/skaddr.h"

#include <poll.h>
#include <set>

class SocketTest : public TransmitTest {
protected:
    ~SocketTest() override {
        while (!open_.empty())
            close(*open_.begin());
    }

    struct socket *open(int family, int protocol = 0) {
        return configure([&] {
            struct socket *made = nullptr;
            EXPECT_EQ(userlevel::socket_open(family, SOCK_RAW, protocol, &made), 0);
            open_.insert(made);
            return made;
        });
    }
    void close(struct socket *one) {
        open_.erase(one);
        EXPECT_EQ(userlevel::socket_close(one), 0);
    }

    struct Reading {
        i64 result;
        Bytes address, data;
        int flags;
    };
    static Reading read(struct socket *one, std::size_t size = 2048, int flags = MSG_DONTWAIT) {
        Bytes name(128), data(size);
        iovec buffer{data.data(), data.size()};
        msghdr msg{};
        msg.msg_name = name.data();
        msg.msg_namelen = static_cast<socklen_t>(name.size());
        msg.msg_iov = &buffer;
        msg.msg_iovlen = 1;
        i64 result = userlevel::socket_recvmsg(one, &msg, flags);
        name.resize(result < 0 ? 0 : msg.msg_namelen);
        data.resize(static_cast<std::size_t>(std::max<i64>(result, 0)));
        return {result, name, data, msg.msg_flags};
    }
    static bool has_frame(struct socket *one) {
        return userlevel::socket_poll(one, POLLIN, 0) & POLLIN;
    }

    static i64 send(struct socket *one, const Bytes &name, const Bytes &data,
                    int flags = MSG_DONTWAIT) {
        iovec buffer{const_cast<u8 *>(data.data()), data.size()};
        msghdr msg{};
        msg.msg_name = const_cast<u8 *>(name.data());
        msg.msg_namelen = static_cast<socklen_t>(name.size());
        msg.msg_iov = &buffer;
        msg.msg_iovlen = 1;
        return userlevel::socket_sendmsg(one, &msg, flags);
    }

    static Bytes l2_name(u32 ifindex) {
        l2_skaddr name{};
        std::copy_n(mac("01:80:c2:00:00:02").begin(), 6, name.dest_mac);
        std::copy_n(mac("02:00:00:00:00:07").begin(), 6, name.src_mac);
        name.ifindex = ifindex;
        return bytes_of(name);
    }
    static Bytes vlan_name(u32 ifindex, u16 vid = 0, u8 xmit_flag = 0) {
        return bytes_of(vlan_address(ifindex, vid, xmit_flag));
    }
    static vlan_skaddr vlan_address(u32 ifindex, u16 vid = 0, u8 xmit_flag = 0) {
        vlan_skaddr name{};
        std::copy_n(mac("01:80:c2:00:00:02").begin(), 6, name.dest_mac);
        std::copy_n(mac("02:00:00:00:00:07").begin(), 6, name.src_mac);
        name.ifindex = ifindex;
        name.vid = vid;
        name.xmit_flag = xmit_flag;
        return name;
    }
    template <typename Record>
    static Bytes bytes_of(const Record &record) {
        const auto *first = reinterpret_cast<const u8 *>(&record);
        return Bytes(first, first + sizeof(record));
    }
    using TransmitTest::bytes_of;

    static vlan_skaddr address_of(const Reading &reading) {
        vlan_skaddr address{};
        std::copy(reading.address.begin(), reading.address.end(), reinterpret_cast<u8 *>(&address));
        return address;
    }

private:
    std::set<struct socket *> open_;
};
