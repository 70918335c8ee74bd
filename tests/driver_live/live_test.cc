// The chip on real devices: pairs of virtual Ethernet devices whose far ends are hosts in network
// namespaces of their own. The core's side is a counter, so what the hosts say to each other went
// through the chip alone.
#include "chip_home.h"
#include "chip_state.h"
#include "control.h"
#include "kernel/skb.h"
#include "tarn/rxtx_follow.h"
#include "tarn/rxtx_hw.h"
#include "userlevel/work.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <mutex>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

std::mutex trap_lock;
std::vector<std::vector<u8>> trapped;
rxtx_hw_callbacks callbacks{};

bool enter_namespace() {
    return unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0;
}

int run(const std::string &line) {
    return std::system((line + " >/dev/null 2>&1").c_str());
}

void tell(const std::string &line) {
    char reply[1000];
    EXPECT_EQ(chip_command(line.c_str(), reply, sizeof(reply)), 0) << line << ": " << reply;
}

bool write_all(int socket, const std::vector<u8> &bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        ssize_t sent = write(socket, bytes.data() + at, bytes.size() - at);
        if (sent <= 0)
            return false;
        at += static_cast<std::size_t>(sent);
    }
    return true;
}

std::vector<u8> read_all(int socket) {
    std::vector<u8> bytes, part(65536);
    for (ssize_t got; (got = read(socket, part.data(), part.size())) > 0;)
        bytes.insert(bytes.end(), part.begin(), part.begin() + got);
    return bytes;
}

std::vector<u8> pattern(std::size_t length) {
    std::vector<u8> bytes(length);
    u32 state = 1;
    for (u8 &byte : bytes)
        byte = static_cast<u8>((state = state * 1664525u + 1013904223u) >> 24);
    return bytes;
}

sockaddr_in address(int host, u16 port) {
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    at.sin_addr.s_addr = htonl(0x0A000000u + static_cast<u32>(host));
    return at;
}

int patient_socket(int type) {
    int made = socket(AF_INET, type, 0);
    timeval limit{10, 0};
    setsockopt(made, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(made, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    return made;
}

const sockaddr *plain(const sockaddr_in &at) {
    return reinterpret_cast<const sockaddr *>(&at);
}

} // namespace

void rxtx_hw_register(rxtx_hw_callbacks given) {
    callbacks = given;
}

// Its core knows no port: the chip is told all by its words.
void rxtx_follow_register(const rxtx_follow_callbacks *) {}
i32 rxtx_follow_port_get(u32, rxtx_follow_port *) {
    return -ENODEV;
}
u32 rxtx_follow_ifindex_get(const char *) {
    return 0;
}
i32 rxtx_follow_vlans_get(u32, u32, rxtx_follow_vlans *) {
    return -ENODEV;
}
i32 rxtx_follow_stp_get(u32, u32) {
    return -ENODEV;
}
i32 rxtx_follow_vlan_get(u32, rxtx_follow_vlan *) {
    return -ENODEV;
}

u32 rxtx_hw_packet_recv(sk_buff *skb, u32, u32, const tarn_rx_meta *) {
    std::lock_guard hold(trap_lock);
    trapped.emplace_back(skb_data(skb), skb_data(skb) + skb_len(skb));
    consume_skb(skb);
    return 0;
}

class Live : public ::testing::Test {
protected:
    void SetUp() override {
        if (!enter_namespace())
            GTEST_SKIP() << "no network namespace can be made here: " << std::strerror(errno)
                         << " (run as root)";
        if (run("ip link add t0 type veth peer name t1") != 0)
            GTEST_SKIP() << "'ip link add ... type veth' does not work here";
        run("ip link del t0");
        before_ = userlevel::take_snapshot();
        ASSERT_EQ(chip_home_start(), 0);
        started_ = true;
    }

    void TearDown() override {
        for (pid_t host : hosts_)
            kill(host, SIGKILL);
        for (pid_t host : hosts_)
            waitpid(host, nullptr, 0);
        if (!started_)
            return;
        chip_home_stop();
        EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), "");
    }

    // A host 10.0.0.N behind port 100+N that does this and ends; its exit status is the result.
    pid_t host(int number, const std::function<int()> &life) {
        std::string name = std::to_string(number);
        EXPECT_EQ(run("ip link add p" + name + " type veth peer name h" + name), 0);
        int ready[2], go[2];
        EXPECT_EQ(pipe(ready) | pipe(go), 0);
        pid_t child = fork();
        if (child == 0) {
            char byte = 0;
            bool apart = unshare(CLONE_NEWNET) == 0 && write(ready[1], &byte, 1) == 1 &&
                         read(go[0], &byte, 1) == 1;
            run("ip link set lo up");
            bool up = run("ip addr add 10.0.0." + name + "/24 dev h" + name) == 0 &&
                      run("ip link set h" + name + " up") == 0;
            _exit(apart && up ? life() : 99);
        }
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        EXPECT_EQ(run("ip link set h" + name + " netns " + std::to_string(child)), 0);
        EXPECT_EQ(run("ip link set p" + name + " up"), 0);
        tell("port " + std::to_string(100 + number) + " p" + name);
        tell("vlan " + std::to_string(100 + number) + " 1 untagged");
        tell("pvid " + std::to_string(100 + number) + " 1");
        EXPECT_EQ(write(go[1], &byte, 1), 1);
        for (int end : {ready[0], ready[1], go[0], go[1]})
            close(end);
        hosts_.push_back(child);
        return child;
    }

    int result_of(pid_t host) {
        int status = 0;
        waitpid(host, &status, 0);
        std::erase(hosts_, host);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    bool eventually(const std::function<bool()> &test) {
        for (int i = 0; i < 500; i++) {
            if (test())
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

private:
    bool started_ = false;
    userlevel::snapshot before_;
    std::vector<pid_t> hosts_;
};

TEST_F(Live, two_hosts_talk_over_udp_and_the_cpu_sees_no_data) {
    const std::vector<u8> data = pattern(1400);
    pid_t answering = host(2, [&] {
        int socket = patient_socket(SOCK_DGRAM);
        sockaddr_in self = address(2, 7), from{};
        socklen_t size = sizeof(from);
        std::vector<u8> got(2000);
        if (bind(socket, plain(self), sizeof(self)) != 0)
            return 1;
        ssize_t length =
            recvfrom(socket, got.data(), got.size(), 0, reinterpret_cast<sockaddr *>(&from), &size);
        got.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
        if (got != data)
            return 2;
        return sendto(socket, got.data(), got.size(), 0, plain(from), size) == length ? 0 : 3;
    });
    pid_t asking = host(1, [&] {
        int socket = patient_socket(SOCK_DGRAM);
        timeval soon{0, 200000};
        setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &soon, sizeof(soon));
        sockaddr_in far = address(2, 7);
        std::vector<u8> got(2000);
        for (int i = 0; i < 50; i++) { // until the other is up
            sendto(socket, data.data(), data.size(), 0, plain(far), sizeof(far));
            ssize_t length = recv(socket, got.data(), got.size(), 0);
            if (length >= 0)
                return static_cast<std::size_t>(length) == data.size() ? 0 : 1;
        }
        return 2;
    });
    EXPECT_EQ(result_of(asking), 0);
    EXPECT_EQ(result_of(answering), 0);
    std::lock_guard hold(trap_lock);
    for (const std::vector<u8> &frame : trapped)
        EXPECT_LT(frame.size(), 1000u); // ARP, and what a host says of itself
}

TEST_F(Live, a_megabyte_goes_over_tcp_and_back) {
    const std::vector<u8> data = pattern(1 << 20);
    pid_t answering = host(2, [&] {
        int listener = patient_socket(SOCK_STREAM);
        sockaddr_in self = address(2, 7);
        if (bind(listener, plain(self), sizeof(self)) != 0 || listen(listener, 1) != 0)
            return 1;
        int socket = accept(listener, nullptr, nullptr);
        std::vector<u8> got = read_all(socket);
        return got == data && write_all(socket, got) ? 0 : 2;
    });
    pid_t asking = host(1, [&] {
        sockaddr_in far = address(2, 7);
        int socket = -1;
        for (int i = 0; i < 50; i++) { // until the other listens
            socket = patient_socket(SOCK_STREAM);
            if (connect(socket, plain(far), sizeof(far)) == 0)
                break;
            close(socket);
            socket = -1;
            usleep(100000);
        }
        if (socket < 0 || !write_all(socket, data) || shutdown(socket, SHUT_WR) != 0)
            return 1;
        return read_all(socket) == data ? 0 : 2;
    });
    EXPECT_EQ(result_of(asking), 0);
    EXPECT_EQ(result_of(answering), 0);
}

TEST_F(Live, the_core_sends_out_of_a_port_and_a_tagged_answer_is_trapped_with_its_tag) {
    // It answers until nobody has asked for a while: with its end the port's device goes.
    pid_t echo = host(1, [] {
        int socket = ::socket(AF_PACKET, SOCK_RAW, htons(0x88B5));
        sockaddr_ll to{};
        to.sll_family = AF_PACKET;
        to.sll_ifindex = static_cast<int>(if_nametoindex("h1"));
        int result = 1;
        for (timeval limit{10, 0};; limit = {1, 0}) {
            setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
            std::vector<u8> frame(2000);
            ssize_t length = recv(socket, frame.data(), frame.size(), 0);
            if (length < 60)
                return result;
            // Back as a broadcast, tagged.
            std::vector<u8> answer{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 2,    0,
                                   0,    0,    0,    1,    0x81, 0,    0x60, 5};
            answer.insert(answer.end(), frame.begin() + 12, frame.begin() + length);
            if (sendto(socket, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr *>(&to),
                       sizeof(to)) <= 0)
                return 2;
            result = 0;
        }
    });
    tell("vlan 101 5 tagged");
    std::vector<u8> frame(64, 0x55);
    frame[0] = 2;
    frame[12] = 0x88;
    frame[13] = 0xB5;
    // Until the host listens.
    auto answered = [&] {
        sk_buff *skb = userlevel::frame_make(frame);
        EXPECT_EQ(callbacks.start_xmit(101, 1, 0, 0, skb, 0, 0, 1), 0u);
        std::lock_guard hold(trap_lock);
        for (const std::vector<u8> &got : trapped)
            if (got.size() == 68 && got[12] == 0x81 && got[14] == 0x60 && got[15] == 5 &&
                got[16] == 0x88 && got[17] == 0xB5 && got[18] == 0x55)
                return true;
        return false;
    };
    EXPECT_TRUE(eventually(answered));
    EXPECT_EQ(result_of(echo), 0);
}

namespace {

int packet_socket(const char *device) {
    int one = 1, made = ::socket(AF_PACKET, SOCK_RAW, 0);
    setsockopt(made, SOL_PACKET, PACKET_VNET_HDR, &one, sizeof(one));
    setsockopt(made, SOL_PACKET, PACKET_AUXDATA, &one, sizeof(one));
    setsockopt(made, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof(one));
    timeval limit{.tv_sec = 2, .tv_usec = 0};
    setsockopt(made, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    sockaddr_ll at{};
    at.sll_family = AF_PACKET;
    at.sll_protocol = htons(ETH_P_ALL);
    at.sll_ifindex = static_cast<int>(if_nametoindex(device));
    EXPECT_EQ(bind(made, reinterpret_cast<sockaddr *>(&at), sizeof(at)), 0);
    return made;
}

// A TCP segment as a stack leaves it to its hardware to cut, behind what is to be done.
std::vector<u8> large_segment(u32 payload) {
    const device_work work{.flags = 1,
                           .gso_type = 1,
                           .header_length = 54,
                           .gso_size = 1448,
                           .csum_start = 34,
                           .csum_offset = 16};
    u32 total = 40 + payload;
    std::vector<u8> frame(sizeof(work) + 14 + total, 0x5A);
    std::memcpy(frame.data(), &work, sizeof(work));
    const u8 headers[] = {2,
                          0,
                          0,
                          0,
                          0,
                          2,
                          2,
                          0,
                          0,
                          0,
                          0,
                          1,
                          8,
                          0,
                          0x45,
                          0,
                          static_cast<u8>(total >> 8),
                          static_cast<u8>(total),
                          0,
                          1,
                          0x40,
                          0,
                          64,
                          6,
                          0,
                          0,
                          10,
                          0,
                          0,
                          1,
                          10,
                          0,
                          0,
                          2,
                          0,
                          80,
                          0,
                          81,
                          0,
                          0,
                          0,
                          1,
                          0,
                          0,
                          0,
                          1,
                          0x50,
                          0x10,
                          1,
                          0,
                          0,
                          0,
                          0,
                          0};
    std::memcpy(frame.data() + sizeof(work), headers, sizeof(headers));
    return frame;
}

} // namespace

// Segmentation is left to the far side, whatever becomes of the tag on the way.
TEST_F(Live, a_large_frame_passes_uncut) {
    ASSERT_EQ(
        run("ip link add p1 type veth peer name h1 && ip link add p2 type veth peer name h2 && "
            "for d in p1 p2 h1 h2; do ip link set $d up; done"),
        0);
    for (const char *line :
         {"port 101 p1", "port 102 p2", "vlan 101 5 untagged", "pvid 101 5", "vlan 102 5 tagged"})
        tell(line);
    int from = packet_socket("h1"), to = packet_socket("h2");
    const std::vector<u8> large = large_segment(20000);
    ASSERT_EQ(send(from, large.data(), large.size(), 0), static_cast<ssize_t>(large.size()));
    std::vector<u8> got(70000);
    device_work work{};
    u32 tci = 0;
    while (true) {
        std::array<u8, 256> extra;
        iovec into{got.data(), got.size()};
        msghdr message{};
        message.msg_iov = &into;
        message.msg_iovlen = 1;
        message.msg_control = extra.data();
        message.msg_controllen = extra.size();
        ssize_t length = recvmsg(to, &message, 0);
        ASSERT_GT(length, 0) << "nothing came";
        std::memcpy(&work, got.data(), sizeof(work));
        if (work.gso_type == 0) // the machine's own
            continue;
        EXPECT_EQ(length, static_cast<ssize_t>(large.size())) << "its tag stands apart";
        tpacket_auxdata apart;
        std::memcpy(&apart, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof(apart));
        tci = apart.tp_vlan_tci;
        break;
    }
    EXPECT_EQ(work.gso_type, 1);
    EXPECT_EQ(work.gso_size, 1448);
    EXPECT_EQ(tci, 5u);
    EXPECT_TRUE(std::equal(large.begin() + sizeof(work) + 60, large.end(),
                           got.begin() + sizeof(work) + 60));
    close(from);
    close(to);
}

TEST_F(Live, frames_that_the_ring_has_no_room_for_are_counted) {
    constexpr int MORE_THAN_FIT = 6000;
    ASSERT_EQ(
        run("ip link add p1 type veth peer name h1 && ip link set p1 up && ip link set h1 up"), 0);
    tell("port 101 p1");
    int far = ::socket(AF_PACKET, SOCK_RAW, 0);
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex("h1"));
    std::vector<u8> frame(60, 0x02);
    auto number = [](const std::string &name) {
        char reply[1000];
        EXPECT_EQ(chip_command("show ports", reply, sizeof(reply)), 0);
        const char *at = std::strstr(reply, name.c_str());
        return at ? std::atol(at + name.size()) : 0;
    };
    write_lock_bh(&chip.lock); // holds up the first frame, and all behind it
    for (int i = 0; i < MORE_THAN_FIT; i++)
        sendto(far, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof(to));
    write_unlock_bh(&chip.lock);
    EXPECT_TRUE(
        eventually([&] { return number(" rx ") + number(" drop-arrival ") >= MORE_THAN_FIT; }));
    EXPECT_GT(number(" drop-arrival "), 0);
    EXPECT_GT(number(" rx "), 100);
    close(far);
}

TEST_F(Live, a_device_that_is_deleted_closes_its_port) {
    ASSERT_EQ(run("ip link add p1 type veth peer name h1 && ip link set p1 up"), 0);
    tell("port 101 p1");
    ASSERT_EQ(run("ip link del p1"), 0);
    EXPECT_TRUE(eventually([] {
        char reply[1000];
        return chip_command("show ports", reply, sizeof(reply)) == 0 && reply[0] == '\0';
    }));
}

TEST_F(Live, what_is_no_ethernet_device_is_refused) {
    char reply[1000];
    EXPECT_EQ(chip_command("port 101 none", reply, sizeof(reply)), -ENODEV);
    EXPECT_EQ(chip_command("port 101 lo", reply, sizeof(reply)), -EINVAL);
    EXPECT_STREQ(reply, "cannot open 'lo' (error 22): give an Ethernet device that exists and is "
                        "free\n");
}
