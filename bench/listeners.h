// Daemons of a kind, as many as wanted, that read what is posted to them when they are told to.
#pragma once

#include "kernel/types.h"
#include "socket_calls.h"

#include <cstddef>
#include <vector>

#include <poll.h>

class Listeners {
public:
    Listeners(int family, std::size_t count) : sockets_(count) {
        for (struct socket *&one : sockets_)
            userlevel::socket_open(family, SOCK_RAW, 0, &one);
    }
    ~Listeners() {
        for (struct socket *one : sockets_)
            userlevel::socket_close(one);
    }
    Listeners(const Listeners &) = delete;
    Listeners &operator=(const Listeners &) = delete;

    // Frames that one of them can have waiting without losing any.
    static constexpr int ROOM = 32;

    void read_all() {
        for (struct socket *one : sockets_)
            while (userlevel::socket_poll(one, POLLIN, 0))
                read(one);
    }

private:
    static void read(struct socket *from) {
        u8 data[64];
        iovec buffer{data, sizeof(data)};
        msghdr msg{};
        msg.msg_iov = &buffer;
        msg.msg_iovlen = 1;
        userlevel::socket_recvmsg(from, &msg, MSG_DONTWAIT);
    }

    std::vector<struct socket *> sockets_;
};
