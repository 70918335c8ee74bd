#include "machine/netlink_server.h"

#include "netlink.h"
#include "tarn/tarnfwd_socket.h"

#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <mutex>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace machine {

namespace {

using packet = std::vector<std::uint8_t>;

// A socket of a client: what waits for it is in its buffer. What finds no room there is lost, as on
// a netlink socket, and so is all that follows until the client has read on and been told. But an
// option is set by a call elsewhere, which always returns: its answer waits for room, and the
// client's next request for it.
class netlink_client : public unix_client {
public:
    netlink_client(event_loop &loop, int fd, std::function<void()> leave)
        : unix_client(fd), leave_(std::move(leave)),
          readable_(loop, fd, event_watch::READABLE, [this] { serve_one(); }),
          writable_(loop, fd, event_watch::WRITABLE, [this] { tell_of_loss(); }),
          socket_([this](std::span<const std::uint8_t> message) { write(message); }) {
        readable_.on();
    }

private:
    void serve_one() {
        packet datagram(TARNFWD_SOCKET_PACKET_MAX);
        ssize_t length = recv(fd(), datagram.data(), datagram.size(), MSG_DONTWAIT);
        if (length < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (length <= 0)
            return leave_();
        datagram.resize(static_cast<std::size_t>(length));
        if (!is_option(datagram))
            socket_.send(datagram);
        else
            set_option(datagram);
    }

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
        write_surely({bytes, bytes + sizeof(answer)});
    }

    void write_surely(packet answer) {
        std::lock_guard guard(lock_);
        if (!is_losing_ && put(answer))
            return;
        owed_ = std::move(answer);
        readable_.off();
        is_losing_ = true;
        writable_.on();
    }

    // From the server's thread an answer, from those of frames an event: neither waits.
    void write(std::span<const std::uint8_t> message) {
        std::lock_guard guard(lock_);
        if (!is_losing_ && !put(message)) {
            is_losing_ = true;
            writable_.on();
        }
    }

    void tell_of_loss() {
        const nlmsghdr loss{.nlmsg_len = sizeof(loss),
                            .nlmsg_type = NLMSG_OVERRUN,
                            .nlmsg_flags = 0,
                            .nlmsg_seq = 0,
                            .nlmsg_pid = socket_.portid()};
        std::lock_guard guard(lock_);
        is_losing_ = !put({reinterpret_cast<const std::uint8_t *>(&loss), sizeof(loss)}) ||
                     (!owed_.empty() && !put(owed_));
        if (is_losing_)
            return writable_.on();
        owed_.clear();
        readable_.on();
    }

    // Whether there was room for it. Nothing is lost by who has gone.
    bool put(std::span<const std::uint8_t> message) const {
        return ::send(fd(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 ||
               errno == EPIPE || errno == ECONNRESET;
    }

    std::function<void()> leave_;
    event_watch readable_, writable_;
    std::mutex lock_; // covers what is written, and in which order
    bool is_losing_ = false;
    packet owed_;                      // the answer that waits
    userlevel::netlink_socket socket_; // the first to go: nobody writes then
};

unix_server server(SOCK_SEQPACKET);

} // namespace

std::unique_ptr<unix_client> netlink_connected(event_loop &loop, int fd,
                                               std::function<void()> leave) {
    return std::make_unique<netlink_client>(loop, fd, std::move(leave));
}

std::string netlink_serve(const std::string &path) {
    std::string wrong = server.serve(path, netlink_connected);
    return wrong.empty() ? "" : "netlink socket '" + path + "': " + wrong;
}

void netlink_end() {
    server.end();
}

} // namespace machine
