#include "client/transport.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <tarn/tarnfwd_socket.h>
#include <unistd.h>
#include <utility>

namespace client {

namespace {

constexpr std::size_t DATAGRAM_MAX = 256 * 1024; // an error may carry back the longest message
constexpr int PATIENCE = 10000;                  // milliseconds

std::string failed(const std::string &what) {
    const char *why =
        errno == EAGAIN ? "the switch is there, but does not answer" : std::strerror(errno);
    return what + ": " + why;
}

// What the socket of a process says by a message, the kernel says by an error.
Bytes loss() {
    const nlmsghdr header{.nlmsg_len = sizeof(header),
                          .nlmsg_type = NLMSG_OVERRUN,
                          .nlmsg_flags = 0,
                          .nlmsg_seq = 0,
                          .nlmsg_pid = 0};
    Bytes message(sizeof(header));
    std::memcpy(message.data(), &header, sizeof(header));
    return message;
}

// Both sockets send and receive alike.
class Datagrams : public Transport {
public:
    explicit Datagrams(int fd) : fd_(fd) {}

    std::string send(View message) override {
        ssize_t sent = ::send(fd_, message.data(), message.size(), MSG_NOSIGNAL);
        return sent < 0 ? failed("a command cannot be sent") : "";
    }

    Bytes receive(int milliseconds, std::string &wrong) override {
        pollfd ready{.fd = fd_, .events = POLLIN, .revents = 0};
        int count = poll(&ready, 1, milliseconds);
        if (count < 0 && errno != EINTR)
            wrong = failed("waiting");
        if (count <= 0)
            return {};
        ssize_t length = recv(fd_, buffer_.data(), buffer_.size(), 0);
        if (length < 0 && errno == ENOBUFS)
            return loss();
        if (length < 0)
            wrong = failed("receiving");
        if (length == 0)
            wrong = "the switch has gone";
        return {buffer_.begin(), buffer_.begin() + std::max<ssize_t>(length, 0)};
    }

protected:
    int fd_;

private:
    Bytes buffer_ = Bytes(DATAGRAM_MAX);
};

class Kernel : public Datagrams {
public:
    explicit Kernel(mnl_socket *socket) : Datagrams(mnl_socket_get_fd(socket)), socket_(socket) {}
    ~Kernel() override { mnl_socket_close(socket_); }
    std::string name() const override { return "the kernel"; }

    std::string join(std::uint32_t group) override {
        int number = static_cast<int>(group);
        if (mnl_socket_setsockopt(socket_, NETLINK_ADD_MEMBERSHIP, &number, sizeof(number)) < 0)
            return failed("the group of events cannot be joined");
        return "";
    }

private:
    mnl_socket *socket_;
};

// Socket options are messages here.
class Socket : public Datagrams {
public:
    Socket(int fd, std::string path) : Datagrams(fd), path_(std::move(path)) {}
    ~Socket() override { close(fd_); }
    std::string name() const override { return "the socket '" + path_ + "'"; }

    std::string join(std::uint32_t group) override {
        return set_option(NETLINK_ADD_MEMBERSHIP, group) == 0
                   ? ""
                   : failed("the group of events cannot be joined");
    }

    // 0, or -1 and errno.
    int set_option(std::uint32_t option, std::uint32_t value) {
        struct {
            nlmsghdr header;
            tarnfwd_socket_option option;
        } asked{{.nlmsg_len = sizeof(asked),
                 .nlmsg_type = TARNFWD_SOCKET_OPTION,
                 .nlmsg_flags = NLM_F_REQUEST,
                 .nlmsg_seq = 0,
                 .nlmsg_pid = 0},
                {.protocol = NETLINK_GENERIC, .option = option, .value = value}};
        if (::send(fd_, &asked, sizeof(asked), MSG_NOSIGNAL) < 0)
            return -1;
        return acknowledged();
    }

private:
    // Events that come before the answer are lost.
    int acknowledged() {
        for (std::string wrong; wrong.empty();) {
            Bytes packet = receive(PATIENCE, wrong);
            if (packet.empty())
                break;
            for (const Received &received : messages_of(packet)) {
                auto answer = answer_of(received, {});
                if (answer && answer->error != 0)
                    errno = -answer->error;
                if (answer)
                    return answer->error == 0 ? 0 : -1;
            }
        }
        errno = EAGAIN;
        return -1;
    }

    std::string path_;
};

class InProcess : public Transport {
public:
    explicit InProcess(Function function) : function_(std::move(function)) {}
    std::string name() const override { return "the switch of this process"; }

    std::string send(View message) override {
        answer_ = function_(message);
        return "";
    }

    Bytes receive(int, std::string &) override { return std::exchange(answer_, {}); }
    std::string join(std::uint32_t) override { return "events stay within it"; }

private:
    Function function_;
    Bytes answer_;
};

} // namespace

std::unique_ptr<Transport> open_kernel(std::string &wrong) {
    mnl_socket *socket = mnl_socket_open2(NETLINK_GENERIC, SOCK_CLOEXEC);
    if (!socket || mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) < 0) {
        wrong = failed("the kernel: no generic netlink socket");
        if (socket)
            mnl_socket_close(socket);
        return nullptr;
    }
    // Kernels without them answer in numbers alone.
    int on = 1;
    mnl_socket_setsockopt(socket, NETLINK_EXT_ACK, &on, sizeof(on));
    mnl_socket_setsockopt(socket, NETLINK_CAP_ACK, &on, sizeof(on));
    return std::make_unique<Kernel>(socket);
}

std::unique_ptr<Transport> open_socket(const std::string &path, std::string &wrong) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    if (path.size() >= sizeof(address.sun_path)) {
        wrong = "the socket '" + path + "': the path is too long";
        return nullptr;
    }
    path.copy(address.sun_path, path.size());
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    const timeval patience{.tv_sec = PATIENCE / 1000, .tv_usec = 0}; // of connecting, too
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        wrong = failed("the socket '" + path + "'");
        if (fd >= 0)
            close(fd);
        return nullptr;
    }
    auto opened = std::make_unique<Socket>(fd, path);
    // As on the kernel's socket; one that has gone at once is told of.
    if (opened->set_option(NETLINK_EXT_ACK, 1) != 0 ||
        opened->set_option(NETLINK_CAP_ACK, 1) != 0) {
        wrong = failed("the socket '" + path + "'");
        return nullptr;
    }
    return opened;
}

std::unique_ptr<Transport> in_process(Function function) {
    return std::make_unique<InProcess>(std::move(function));
}

} // namespace client
