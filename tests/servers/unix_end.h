// A client's end of a Unix socket, for tests of who serves the other one.
#pragma once

#include "support/switch_test.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

class UnixEnd {
public:
    UnixEnd(const std::string &path, int type) : fd_(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        timeval patience{.tv_sec = 20, .tv_usec = 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    }
    ~UnixEnd() { close(); }
    UnixEnd(const UnixEnd &) = delete;
    UnixEnd &operator=(const UnixEnd &) = delete;

    int fd() const { return fd_; }
    void close() {
        if (fd_ >= 0)
            ::close(std::exchange(fd_, -1));
    }

    void put(std::span<const u8> bytes) const {
        EXPECT_EQ(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    void put(std::string_view text) const {
        put({reinterpret_cast<const u8 *>(text.data()), text.size()});
    }
    // What has come, in a packet or in part; empty at the end.
    Bytes read() const {
        Bytes bytes(65536);
        ssize_t length = recv(fd_, bytes.data(), bytes.size(), 0);
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        return bytes;
    }
    // All that comes until the end.
    std::string read_all() const {
        std::string text;
        for (Bytes part; !(part = read()).empty();)
            text.append(part.begin(), part.end());
        return text;
    }
    // Until the other end has read all that was put.
    void wait_until_taken() const {
        for (int waiting = 1; waiting != 0; std::this_thread::yield())
            EXPECT_EQ(ioctl(fd_, SIOCOUTQ, &waiting), 0);
    }
    bool is_readable(int milliseconds = 0) const {
        pollfd one{.fd = fd_, .events = POLLIN, .revents = 0};
        return poll(&one, 1, milliseconds) == 1;
    }

private:
    int fd_;
};
