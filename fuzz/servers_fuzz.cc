// Clients of the three Unix sockets, who come, say anything with any descriptors beside it, read or
// do not, and go: netlink, protocol sockets, control. The input is a row of steps: what, which
// client, length, bytes. At the end all have gone, and nothing of them is left.
#include "control.h"
#include "events/tarnfwd_nl_event.h"
#include "fuzzed_switch.h"
#include "kernel/skb.h"
#include "machine/netlink_server.h"
#include "machine/socket_server.h"
#include "switch/control_socket.h"
#include "tarn/rxtx_hw.h"
#include "tarn/socket_carrier.h"
#include "tarn/tarnfwd_socket.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <linux/netlink.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::uint16_t FAMILY = 0x13;
constexpr std::uint32_t GROUP = 2;
constexpr std::size_t KINDS = 3;

void forbidden(const char *what, std::size_t number) {
    std::fprintf(stderr, "%s %zu\n", what, number);
    std::abort();
}

// A short line comes back, a longer one many times: more than a socket takes.
std::string answer(const std::string &line, bool *ok) {
    *ok = line.size() % 2 == 0;
    std::string text = line;
    for (int i = 0; line.size() > 8 && i < 16; i++)
        text += text.substr(0, 65536);
    return text;
}

struct Servers {
    machine::event_loop loop;
    std::array<machine::unix_clients, KINDS> clients{{{loop, machine::netlink_connected},
                                                      {loop, machine::socket_connected},
                                                      {loop, live::control_clients(answer)}}};

    // Whatever is due has been done.
    void go_on() {
        for (int i = 0; i < 3; i++)
            loop.run_once();
    }
};

Servers &servers() {
    static Servers all;
    return all;
}

struct Client {
    int fd = -1;
    std::size_t kind = 0;
    bool hears_messages = true; // and no whole frames
};
std::array<Client, 8> clients;
std::vector<int> answers; // ends of the pairs whose others went with a call

void leave(Client &client) {
    if (client.fd >= 0)
        close(std::exchange(client.fd, -1));
}

void come(Client &client, std::size_t kind) {
    leave(client);
    int pair[2];
    int type = (kind == 2 ? SOCK_STREAM : SOCK_SEQPACKET) | SOCK_NONBLOCK | SOCK_CLOEXEC;
    if (socketpair(AF_UNIX, type, 0, pair) != 0)
        forbidden("no socket pair after", answers.size());
    client = {pair[0], kind, true};
    servers().clients[kind].add(pair[1]);
}

void put(const Client &client, std::span<const u8> bytes, unsigned descriptors) {
    iovec data{const_cast<u8 *>(bytes.data()), bytes.size()};
    msghdr msg{};
    msg.msg_iov = &data;
    msg.msg_iovlen = 1;
    std::vector<int> beside;
    for (unsigned i = 0; i < descriptors; i++) {
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0)
            break;
        answers.push_back(pair[0]);
        beside.push_back(pair[1]);
    }
    std::vector<char> control(CMSG_SPACE(beside.size() * sizeof(int)));
    if (!beside.empty()) {
        msg.msg_control = control.data();
        msg.msg_controllen = control.size();
        cmsghdr *header = CMSG_FIRSTHDR(&msg);
        *header = {CMSG_LEN(beside.size() * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        std::memcpy(CMSG_DATA(header), beside.data(), beside.size() * sizeof(int));
    }
    sendmsg(client.fd, &msg, MSG_DONTWAIT | MSG_NOSIGNAL);
    for (int end : beside)
        close(end);
}

template <typename Header>
std::vector<u8> behind(const Header &header, std::span<const u8> bytes) {
    const auto *first = reinterpret_cast<const u8 *>(&header);
    std::vector<u8> packet(first, first + sizeof(header));
    packet.insert(packet.end(), bytes.begin(), bytes.end());
    return packet;
}

nlmsghdr header_of(std::uint16_t type, std::size_t size) {
    return {.nlmsg_len = static_cast<std::uint32_t>(sizeof(nlmsghdr) + size),
            .nlmsg_type = type,
            .nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK,
            .nlmsg_seq = 1,
            .nlmsg_pid = 0};
}

// As those who mean well say it.
void say(const Client &client, std::span<const u8> bytes) {
    if (client.kind == 0)
        return put(client, behind(header_of(FAMILY, bytes.size()), bytes), 0);
    if (client.kind == 2)
        return put(client, bytes, 0);
    tarn_carrier_request request{};
    std::memcpy(&request, bytes.data(), std::min(bytes.size(), sizeof(request)));
    put(client, behind(request, bytes.subspan(std::min(bytes.size(), sizeof(request)))), 1);
}

// Groups of the family and of whole frames, among others; a socket of any family.
void join(Client &client, u32 which) {
    if (client.kind == 0) {
        client.hears_messages &= which & 1;
        const u32 protocol = which & 1 ? u32{NETLINK_GENERIC} : u32{NETLINK_USERSOCK};
        const tarnfwd_socket_option option{protocol, NETLINK_ADD_MEMBERSHIP,
                                           which & 2 ? GROUP : which / 4};
        put(client,
            behind(header_of(TARNFWD_SOCKET_OPTION, sizeof(option)),
                   {reinterpret_cast<const u8 *>(&option), sizeof(option)}),
            0);
    } else if (client.kind == 1) {
        const tarn_carrier_request request{.call = TARN_CARRIER_OPEN,
                                           .a = 46 + static_cast<int>(which % 25),
                                           .b = SOCK_RAW,
                                           .c = 0,
                                           .name_length = 0,
                                           .nowhere = 0,
                                           .size = 0};
        put(client, behind(request, {}), 1);
    } else {
        const std::string line = which & 1 ? "trace\n" : "trace json drops seconds 100\n";
        put(client, {reinterpret_cast<const u8 *>(line.data()), line.size()}, 0);
    }
}

// What an answer may be.
void check(const Client &client, std::span<const u8> packet) {
    nlmsghdr header;
    if (client.kind != 0 || !client.hears_messages)
        return;
    if (packet.size() < sizeof(header))
        forbidden("a packet of", packet.size());
    std::memcpy(&header, packet.data(), sizeof(header));
    if (header.nlmsg_len != packet.size())
        forbidden("a message that is not whole, of", packet.size());
}

void read_some(const Client &client, u32 count) {
    std::vector<u8> bytes(65536);
    for (ssize_t length; count > 0; count--) {
        length = recv(client.fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (length <= 0)
            return;
        check(client, {bytes.data(), static_cast<std::size_t>(length)});
    }
}

void read_answers() {
    struct {
        tarn_carrier_reply reply;
        u8 data[TARN_CARRIER_DATA_MAX];
    } answer;
    for (int fd : std::exchange(answers, {})) {
        ssize_t length = recv(fd, &answer, sizeof(answer), MSG_DONTWAIT);
        if (length > 0 && static_cast<std::size_t>(length) < sizeof(answer.reply))
            forbidden("a reply of", static_cast<std::size_t>(length));
        close(fd);
    }
}

void happen(u32 which, std::span<const u8> bytes) {
    const u8 mac[6] = {};
    for (u32 i = 0; i < which; i++) {
        tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0, mac, 2);
        const tarn_rx_meta meta{};
        sk_buff *skb = userlevel::frame_make(bytes, 64);
        if (skb && rxtx_hw_packet_recv(skb, 5000 + which % 4, which % 3, &meta) != 0)
            kfree_skb(skb);
    }
}

void step(u32 what, u32 which, std::span<const u8> bytes) {
    Client &client = clients[which % clients.size()];
    which /= clients.size();
    switch (what % 9) {
    case 0:
        come(client, which % KINDS);
        break;
    case 1:
        client.hears_messages = false; // who knows what it asks for
        put(client, bytes, which % 4);
        break;
    case 2:
        say(client, bytes);
        break;
    case 3: // without reading
        for (u32 i = 0; i < which * 16; i++) {
            say(client, bytes);
            servers().go_on();
        }
        break;
    case 4:
        join(client, which);
        break;
    case 5:
        read_some(client, which);
        break;
    case 6:
        shutdown(client.fd, static_cast<int>(which % 3));
        break;
    case 7:
        leave(client);
        break;
    default:
        happen(which, bytes);
    }
    servers().go_on();
    read_answers();
}

// What else is open may be the fuzzer's own.
std::size_t open_sockets() {
    std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::count_if(begin(all), end(all), [](const auto &one) {
        std::error_code gone;
        return std::filesystem::read_symlink(one.path(), gone).string().starts_with("socket:");
    }));
}

u32 closed_sockets() {
    auto all = userlevel::live();
    return static_cast<u32>(std::count_if(all.begin(), all.end(), [](const auto &object) {
        return std::string(object.kind) == "sock";
    }));
}

void start() {
    std::signal(SIGPIPE, SIG_IGN);
    fuzzed::load();
    servers();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    static const bool started = (start(), true);
    static const std::size_t before = open_sockets();
    static const u32 records_before = closed_sockets();
    (void)started;
    fuzzed::run_steps({data, size}, step);
    std::for_each(clients.begin(), clients.end(), leave);
    for (int i = 0; i < 100; i++)
        servers().loop.run_once();
    for (std::size_t kind = 0; kind < KINDS; kind++)
        if (!servers().clients[kind].empty())
            forbidden("a client stays whose kind is", kind);
    if (std::size_t now = open_sockets(); now != before)
        forbidden("open sockets:", now);
    fuzzed::reset();
    fuzzed::must_have_lost_nothing(closed_sockets() - records_before);
    return 0;
}
