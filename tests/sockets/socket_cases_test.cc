// The cases that both homes share, in a process.
#include "sockets/socket_test.h"
#include "support/case_switch.h"

// For the names of the tests.
void PrintTo(const socket_case &one, std::ostream *out) {
    *out << one.name;
}

namespace {

// The list is plain C: what it calls are functions, which find the running test here.
class SocketCases : public SocketTest, public ::testing::WithParamInterface<socket_case> {
public:
    SocketCases() {
        current = this;
        add_port(2);
        fake_driver::attach_without_flood(); // what is flooded is seen port by port
    }

    static inline SocketCases *current = nullptr;
    std::vector<struct socket *> descriptors;
    std::string line;

    static int open_one(int family, int type, int protocol) {
        struct socket *made = nullptr;
        int result = current->configure(
            [&] { return userlevel::socket_open(family, type, protocol, &made); });
        if (result != 0)
            return result;
        current->descriptors.push_back(made);
        return static_cast<int>(current->descriptors.size()) - 1;
    }
    static struct socket *at(int fd) {
        return current->descriptors.at(static_cast<std::size_t>(fd));
    }

    static long send_one(int fd, const void *name, unsigned namelen, const void *data,
                         unsigned length) {
        iovec buffer{const_cast<void *>(data), length};
        msghdr msg{};
        msg.msg_name = const_cast<void *>(name);
        msg.msg_namelen = namelen;
        msg.msg_iov = &buffer;
        msg.msg_iovlen = 1;
        return userlevel::socket_sendmsg(at(fd), &msg, MSG_DONTWAIT);
    }
    static long receive_one(int fd, void *name, unsigned *namelen, void *data, unsigned size,
                            int *flags) {
        iovec buffer{data, size};
        msghdr msg{};
        msg.msg_name = name;
        msg.msg_namelen = namelen ? *namelen : 0;
        msg.msg_iov = &buffer;
        msg.msg_iovlen = 1;
        long result = userlevel::socket_recvmsg(at(fd), &msg, *flags);
        *flags = msg.msg_flags;
        if (namelen)
            *namelen = msg.msg_namelen;
        return result;
    }
    static void deliver_one(unsigned ifindex, unsigned vid, const case_meta *meta, const u8 *frame,
                            unsigned length) {
        Arrival arrival{.port = ifindex - 5000, .vid = vid};
        arrival.meta.flags = meta->flags;
        arrival.meta.code = meta->code;
        arrival.meta.local = static_cast<u8>(meta->local);
        current->receive(Bytes(frame, frame + length), arrival);
    }
    static long sent_last(unsigned port, u8 *frame, unsigned size, int) {
        auto [found, bytes] = case_switch::last_sent(port);
        std::copy_n(bytes.begin(), std::min<std::size_t>(bytes.size(), size), frame);
        return found ? static_cast<long>(bytes.size()) : -1;
    }
    static const char *list_now() {
        current->line = userlevel::proc_read("net/tarn_sockets").text;
        return current->line.c_str();
    }
    static void set_one(const char *what, unsigned value) {
        current->configure([&] { case_switch::set(what, value); });
    }
    static const char *said_last() {
        std::vector<std::string> lines = current->log();
        current->line = lines.empty() ? "" : lines.back();
        return current->line.c_str();
    }
};

TEST_P(SocketCases, holds) {
    const socket_home home{
        .open = open_one,
        .close = [](int fd) { userlevel::socket_close(at(fd)); },
        .send = send_one,
        .receive = receive_one,
        .readable = [](int fd,
                       int wait) { return int{userlevel::socket_poll(at(fd), POLLIN, wait)}; },
        .deliver = deliver_one,
        .sent = sent_last,
        .stops = [](const char *name,
                    int reason) { return case_switch::stops(name, static_cast<u32>(reason)); },
        .set = set_one,
        .udld = [](int on, int filter) { case_switch::set_udld(u32(on), u32(filter)); },
        .said = said_last,
        .rights = [](int net_raw) { userlevel::socket_caller(net_raw != 0, true); },
        .list = list_now,
        .check = [](int good, const char *what,
                    const char *detail) { EXPECT_TRUE(good) << what << ": " << detail; },
    };
    GetParam().run(&home);
}

INSTANTIATE_TEST_SUITE_P(Both, SocketCases, ::testing::ValuesIn(socket_cases),
                         [](const auto &one) { return std::string(one.param.name); });

} // namespace
