#include "machine/socket_server.h"

#include "socket_calls.h"
#include "tarn/socket_carrier.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace machine {

namespace {

constexpr std::uint8_t MARK = 1;

// One packet of a client, and what it is answered by.
struct call {
    tarn_carrier_request request{};
    tarn_carrier_reply reply{};
    std::vector<std::uint8_t> bytes; // behind the request
    std::vector<std::uint8_t> data;  // behind the reply
    int answer = -1;                 // where the reply goes

    call() = default;
    call(const call &) = delete;
    call &operator=(const call &) = delete;
    ~call() {
        if (answer >= 0)
            close(answer);
    }

    // Whether there is more to come.
    bool receive(int fd);
    void send_reply() const;
};

// There is room for one descriptor: the kernel closes what else is beside a packet, and says so.
bool call::receive(int fd) {
    bytes.resize(TARN_CARRIER_DATA_MAX);
    alignas(cmsghdr) std::array<char, CMSG_LEN(sizeof(int))> control{};
    std::array<iovec, 2> parts{{{&request, sizeof(request)}, {bytes.data(), bytes.size()}}};
    msghdr msg{};
    msg.msg_iov = parts.data();
    msg.msg_iovlen = parts.size();
    msg.msg_control = control.data();
    msg.msg_controllen = control.size();
    ssize_t length = recvmsg(fd, &msg, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (length < 0)
        return errno == EAGAIN || errno == EINTR;
    const cmsghdr *beside = CMSG_FIRSTHDR(&msg);
    if (beside && beside->cmsg_level == SOL_SOCKET && beside->cmsg_type == SCM_RIGHTS)
        std::memcpy(&answer, CMSG_DATA(beside), sizeof(answer));
    bool some_were_closed = msg.msg_flags & MSG_CTRUNC;
    if (answer < 0 && some_were_closed)
        return true; // none is left for this process: the call fails, and the next may not
    if (answer < 0 || some_were_closed || static_cast<std::size_t>(length) < sizeof(request))
        return false;
    bytes.resize(static_cast<std::size_t>(length) - sizeof(request));
    return request.name_length <= std::min<std::size_t>(bytes.size(), TARN_CARRIER_NAME_MAX);
}

void call::send_reply() const {
    std::array<iovec, 2> parts{{{const_cast<tarn_carrier_reply *>(&reply), sizeof(reply)},
                                {const_cast<std::uint8_t *>(data.data()), data.size()}}};
    msghdr msg{};
    msg.msg_iov = parts.data();
    msg.msg_iovlen = parts.size();
    sendmsg(answer, &msg, MSG_DONTWAIT | MSG_NOSIGNAL);
}

// One socket of a daemon. The thread of the server makes its calls; that of whoever delivers a
// frame puts the mark.
class carried_socket : public unix_client {
public:
    carried_socket(event_loop &loop, int fd, std::function<void()> leave)
        : unix_client(fd), leave_(std::move(leave)),
          readable_(loop, fd, event_watch::READABLE, [this] { serve_one(); }) {
        readable_.on();
    }
    ~carried_socket() override {
        if (socket_)
            userlevel::socket_close(socket_); // and nobody is told of frames any more
    }

private:
    void serve_one() {
        call one;
        if (!one.receive(fd()))
            return leave_();
        if (one.answer < 0)
            return; // nothing was there
        serve(one);
        one.send_reply();
        if (!socket_)
            leave_();
    }

    void serve(call &one) {
        if (one.request.call == TARN_CARRIER_OPEN)
            one.reply.result = open(one.request);
        else if (!socket_)
            one.reply.result = -EBADF;
        else
            serve_open(one);
    }

    void serve_open(call &one) {
        switch (one.request.call) {
        case TARN_CARRIER_SEND:
            return send(one);
        case TARN_CARRIER_RECEIVE:
            return receive(one);
        case TARN_CARRIER_SETOPT:
            one.reply.result = userlevel::socket_setsockopt(
                socket_, one.request.a, one.request.b, one.bytes.data(),
                static_cast<socklen_t>(one.bytes.size()));
            return;
        case TARN_CARRIER_GETOPT:
            return get_option(one);
        default:
            one.reply.result = userlevel::socket_other(socket_);
        }
    }

    int open(const tarn_carrier_request &request) {
        if (socket_)
            return -EISCONN;
        int result = userlevel::socket_open(request.a, request.b, request.c, &socket_);
        if (result != 0)
            return result;
        ucred peer{};
        socklen_t length = sizeof(peer);
        getsockopt(fd(), SOL_SOCKET, SO_PEERCRED, &peer, &length);
        userlevel::socket_set_owner(socket_, peer.pid);
        userlevel::socket_on_ready(
            socket_, [](void *self) { static_cast<carried_socket *>(self)->put_mark(); }, this);
        return 0;
    }

    void send(call &one) {
        const tarn_carrier_request &request = one.request;
        iovec data{one.bytes.data() + request.name_length, one.bytes.size() - request.name_length};
        if (request.nowhere)
            data = {nullptr, request.size};
        msghdr msg{};
        msg.msg_name = request.name_length != 0 ? one.bytes.data() : nullptr;
        msg.msg_namelen = request.name_length;
        msg.msg_iov = &data;
        msg.msg_iovlen = 1;
        one.reply.result = userlevel::socket_sendmsg(socket_, &msg, request.a | MSG_DONTWAIT);
    }

    void receive(call &one) {
        one.data.resize(std::min<std::size_t>(one.request.size, TARN_CARRIER_DATA_MAX));
        iovec data{one.data.data(), one.data.size()};
        msghdr msg{};
        msg.msg_name = one.reply.name;
        msg.msg_namelen = sizeof(one.reply.name);
        msg.msg_iov = &data;
        msg.msg_iovlen = 1;
        std::lock_guard guard(lock_);
        one.reply.empty = !can_read();
        one.reply.result = userlevel::socket_recvmsg(socket_, &msg, one.request.a | MSG_DONTWAIT);
        one.reply.takes_mark = marked_ && !can_read();
        if (one.reply.takes_mark)
            marked_ = false;
        one.reply.msg_flags = static_cast<std::uint32_t>(msg.msg_flags);
        one.reply.name_length = one.reply.result < 0 ? 0 : msg.msg_namelen;
        one.data.resize(static_cast<std::size_t>(std::max<std::int64_t>(one.reply.result, 0)));
    }

    void get_option(call &one) {
        auto length = static_cast<socklen_t>(std::min<std::uint64_t>(one.request.size, 4096));
        one.data.resize(length);
        one.reply.result = userlevel::socket_getsockopt(socket_, one.request.a, one.request.b,
                                                        one.data.data(), &length);
        if (one.reply.result == 0)
            one.reply.result = length;
        one.data.resize(static_cast<std::size_t>(std::max<std::int64_t>(one.reply.result, 0)));
    }

    bool can_read() { return userlevel::socket_poll(socket_, POLLIN, 0) & POLLIN; }

    void put_mark() {
        std::lock_guard guard(lock_);
        if (!marked_ && can_read())
            marked_ = ::send(fd(), &MARK, sizeof(MARK), MSG_DONTWAIT | MSG_NOSIGNAL) == 1;
    }

    std::function<void()> leave_;
    event_watch readable_;
    struct socket *socket_ = nullptr;
    std::mutex lock_;     // covers the mark, and with it what it tells of
    bool marked_ = false; // the mark is there, or about to be read
};

unix_server server(SOCK_SEQPACKET);

} // namespace

std::unique_ptr<unix_client> socket_connected(event_loop &loop, int fd,
                                              std::function<void()> leave) {
    return std::make_unique<carried_socket>(loop, fd, std::move(leave));
}

std::string sockets_serve(const std::string &path) {
    std::string wrong = server.serve(path, socket_connected);
    return wrong.empty() ? "" : "protocol sockets '" + path + "': " + wrong;
}

void sockets_end() {
    server.end();
}

} // namespace machine
