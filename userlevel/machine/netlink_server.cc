#include "machine/netlink_server.h"

#include "machine/unix_server.h"
#include "netlink.h"
#include "tarn/tarnfwd_socket.h"

#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace machine {

namespace {

using packet = std::vector<std::uint8_t>;

constexpr int ANSWER_PATIENCE_MS = 5000;

// One client. Answers are its own to wait for, within reason; events may be lost.
class connection {
public:
    explicit connection(int fd)
        : fd_(fd), socket_([this](std::span<const std::uint8_t> message) { write(message); }) {}
    ~connection() { close(fd_); }
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    int fd() const { return fd_; }

    // Whether there is more to come.
    bool serve_one() {
        packet datagram(TARNFWD_SOCKET_PACKET_MAX);
        ssize_t length = recv(fd_, datagram.data(), datagram.size(), MSG_DONTWAIT);
        if (length < 0)
            return errno == EAGAIN || errno == EINTR;
        if (length == 0)
            return false;
        datagram.resize(static_cast<std::size_t>(length));
        answering_ = true;
        if (!is_option(datagram))
            socket_.send(datagram);
        else
            set_option(datagram);
        answering_ = false;
        return !lost_;
    }

private:
    static bool is_option(const packet &datagram) {
        nlmsghdr header;
        if (datagram.size() < sizeof(header) + sizeof(tarnfwd_socket_option))
            return false;
        std::memcpy(&header, datagram.data(), sizeof(header));
        return header.nlmsg_type == TARNFWD_SOCKET_OPTION && (header.nlmsg_flags & NLM_F_REQUEST) &&
               header.nlmsg_len == sizeof(header) + sizeof(tarnfwd_socket_option);
    }

    void set_option(const packet &datagram) {
        struct {
            nlmsghdr header;
            nlmsgerr error;
        } answer{};
        tarnfwd_socket_option wanted;
        std::memcpy(&answer.error.msg, datagram.data(), sizeof(answer.error.msg));
        std::memcpy(&wanted, datagram.data() + sizeof(nlmsghdr), sizeof(wanted));
        answer.error.error = socket_.set_option(wanted.protocol, wanted.option, wanted.value);
        answer.header = {.nlmsg_len = sizeof(answer),
                         .nlmsg_type = NLMSG_ERROR,
                         .nlmsg_flags = NLM_F_CAPPED,
                         .nlmsg_seq = answer.error.msg.nlmsg_seq,
                         .nlmsg_pid = socket_.portid()};
        auto *bytes = reinterpret_cast<const std::uint8_t *>(&answer);
        write({bytes, sizeof(answer)});
    }

    // From the server's thread an answer, from others an event: the path of frames waits for
    // nobody.
    void write(std::span<const std::uint8_t> message) {
        bool sent = ::send(fd_, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
        if (sent || errno != EAGAIN || std::this_thread::get_id() != server_ || !answering_)
            return;
        pollfd writable{.fd = fd_, .events = POLLOUT, .revents = 0};
        lost_ = poll(&writable, 1, ANSWER_PATIENCE_MS) <= 0 ||
                ::send(fd_, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0;
    }

    int fd_;
    const std::thread::id server_ = std::this_thread::get_id();
    bool answering_ = false; // the server's thread alone
    bool lost_ = false;
    userlevel::netlink_socket socket_;
};

unix_server<connection> server;

} // namespace

std::string netlink_serve(const std::string &path) {
    std::string wrong = server.serve(path);
    return wrong.empty() ? "" : "netlink socket '" + path + "': " + wrong;
}

void netlink_end() {
    server.end();
}

} // namespace machine
