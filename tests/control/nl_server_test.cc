// The control family over a Unix socket, as other processes reach it.
#include "control/nl_client.h"
#include "events/tarnfwd_nl_event.h"
#include "machine/netlink_server.h"
#include "tarn/tarnfwd_socket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

class Connection {
public:
    explicit Connection(const std::string &path) : fd_(socket(AF_UNIX, SOCK_SEQPACKET, 0)) {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        timeval patience{.tv_sec = 5, .tv_usec = 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    }
    ~Connection() { close(fd_); }

    void put(std::span<const u8> packet) {
        EXPECT_EQ(::send(fd_, packet.data(), packet.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(packet.size()));
    }
    Bytes ask(std::span<const u8> packet) {
        put(packet);
        return read();
    }
    Bytes read() {
        Bytes answer(TARNFWD_SOCKET_PACKET_MAX);
        ssize_t length = recv(fd_, answer.data(), answer.size(), 0);
        EXPECT_GT(length, 0);
        answer.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        return answer;
    }
    int option(u32 name, u32 value) {
        struct {
            nlmsghdr header;
            tarnfwd_socket_option option;
        } packet{};
        packet.header.nlmsg_len = sizeof(packet);
        packet.header.nlmsg_type = TARNFWD_SOCKET_OPTION;
        packet.header.nlmsg_flags = NLM_F_REQUEST;
        packet.option = {NETLINK_GENERIC, name, value};
        return Client::error_of(ask({reinterpret_cast<const u8 *>(&packet), sizeof(packet)}));
    }

private:
    int fd_;
};

struct NlServer : SwitchTest {
    std::string path = ::testing::TempDir() + "tarn-nl-" + std::to_string(getpid());
    Client inside;

    NlServer() { EXPECT_EQ(machine::netlink_serve(path), ""); }
    ~NlServer() override { machine::netlink_end(); }
};

TEST_F(NlServer, clients_are_answered_and_told_events) {
    Connection one(path), other(path);
    nl_message message;
    nl_message_start(&message, inside.family, TARNFWD_CMD_L2_FDB_SET, 0, 77);
    message.u.header.nlmsg_len = message.length;
    for (Connection *each : {&one, &other, &one})
        EXPECT_EQ(Client::error_of(each->ask({message.u.bytes, message.length})), -EINVAL);

    EXPECT_EQ(one.option(NETLINK_ADD_MEMBERSHIP, inside.group + 9), -EINVAL);
    EXPECT_EQ(one.option(NETLINK_ADD_MEMBERSHIP, inside.group), 0);
    const u8 mac[6] = {};
    EXPECT_EQ(tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0, mac, 2), 0);
    Bytes event = one.read();
    ASSERT_GT(event.size(), std::size_t{NLMSG_HDRLEN});
    EXPECT_EQ(event[NLMSG_HDRLEN], TARNFWD_CMD_DHCPSN_ARPSEC_VIOLATION);
    EXPECT_EQ(one.option(NETLINK_DROP_MEMBERSHIP, inside.group), 0);
}

TEST_F(NlServer, two_switches_do_not_serve_one_path) {
    EXPECT_THAT(machine::netlink_serve(path), ::testing::HasSubstr("another switch serves it"));
}

TEST_F(NlServer, a_packet_that_is_no_message_is_passed_over) {
    Connection client(path);
    client.put(Bytes{1, 2, 3});
    nl_message message;
    nl_message_start(&message, inside.family, TARNFWD_CMD_L2_FDB_SET, 0, 77);
    message.u.header.nlmsg_len = message.length;
    EXPECT_EQ(Client::error_of(client.ask({message.u.bytes, message.length})), -EINVAL);
}

} // namespace
