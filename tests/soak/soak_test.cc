// Everything at once: frames on all ports of the chip and from the driver, frames of the IP stack,
// commands, daemons that come and go, files read and written. For a few seconds, or for
// TARN_SOAK_SECONDS.
#include "control/nl_churn.h" // before what it has names of

#include "chip_ports.h"
#include "fuzzed_switch.h"
#include "support/frame_builder.h"

#include "control.h"
#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "netlink.h"
#include "proc.h"
#include "socket_calls.h"
#include "tarn/rxtx_hw.h"
#include "tarn/skaddr.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr std::array FAMILIES{46, 47, 48, 50, 51, 52, 53, 54, 55, 56, 57,
                              60, 61, 62, 63, 65, 66, 67, 68, 69, 70};
constexpr std::uint16_t FAMILY = 0x13;
constexpr long MOST_KB = 1024; // of growth: frames wait in sockets, interfaces come and go

std::atomic<bool> stop;
std::mutex building;
std::atomic<u64> frames, commands, sockets, files;
std::atomic<u32> closed_sockets;

std::vector<Bytes> all_frames() {
    return {Frame().to("01:80:c2:00:00:02").type(0x8809).padded(),
            Frame().to("01:80:c2:00:00:00").type(0x0007).bytes({0x42, 0x42, 3}).padded(),
            Frame().to("01:80:c2:00:00:0e").type(0x88CC).padded(),
            Frame().to("01:80:c2:00:00:21").type(0x0007).bytes({0x42, 0x42, 3}).padded(),
            Frame().to("01:15:4e:00:00:01").type(0x88E3).padded(),
            Frame().to("ff:ff:ff:ff:ff:ff").type(0x0806).padded(),
            Frame().ipv4({}).padded(),
            Frame().to("01:00:5e:00:00:12").ipv4({.protocol = 112}).padded(),
            Frame().to("01:00:5e:7f:ff:fa").ipv4({}).padded(),
            Frame().to("33:33:00:00:00:01").ipv6({.next = 58}).bytes({135, 0, 0, 0}).padded(),
            Frame().to("ff:ff:ff:ff:ff:ff").tag(2).padded(),
            Frame().from("ff:ff:ff:ff:ff:ff").padded()};
}

// By the driver's own entry and by the chip, in turn.
void deliver(u32 first) {
    const std::vector<Bytes> all = all_frames();
    for (u32 i = first; !stop; i++) {
        const Bytes &bytes = all[i % all.size()];
        tarn_rx_meta meta{};
        meta.flags = i % 7 == 0 ? 8 : 0;
        if (i & 1) {
            chip_ports_receive(i / 2 % fuzzed::PORTS, bytes);
        } else {
            sk_buff *skb = userlevel::frame_make(bytes, i % 64);
            if (rxtx_hw_packet_recv(skb, 5001 + i / 2 % fuzzed::PORTS, 1 + i % 2, &meta) != 0)
                kfree_skb(skb);
        }
        frames++;
    }
}

void transmit() {
    const std::vector<Bytes> all = all_frames();
    for (u32 i = 0; !stop; i++, frames++) {
        net_device *device = dev_get_by_name(i & 1 ? "vlan1" : "vlan2");
        if (!device)
            continue;
        userlevel::netdev_transmit(device, all[i % all.size()], i % 8);
        dev_put(device);
    }
}

// A port under an aggregator, VLANs with memberships; then all of it goes.
const std::vector<std::pair<u8, std::vector<std::pair<u16, Bytes>>>> &makes_and_removes() {
    auto word = [](u32 value) {
        auto *at = reinterpret_cast<const u8 *>(&value);
        return Bytes(at, at + sizeof(value));
    };
    auto half = [](u16 value) {
        auto *at = reinterpret_cast<const u8 *>(&value);
        return Bytes(at, at + sizeof(value));
    };
    const Bytes mac{2, 0, 0, 0, 3, 1}, name{'b', 'u', 's', 'y', 0}, lag{'l', 'a', 'g', '9', 0};
    static const std::vector<std::pair<u8, std::vector<std::pair<u16, Bytes>>>> all{
        {0, {{1, word(5301)}, {55, name}, {56, {3}}, {45, word(0x41)}, {9, mac}, {57, {0}}}},
        {0, {{1, word(4601)}, {55, lag}, {56, {3}}, {45, word(0x41)}, {9, mac}, {57, {3}}}},
        {42, {{1, word(5301)}, {2, word(4601)}}},
        {7, {{48, half(50)}, {49, half(53)}, {50, word(0)}, {9, mac}}},
        {20, {{1, word(4601)}, {7, {1}}, {8, Bytes(512, 0xFF)}}},
        {22, {{1, word(4601)}, {8, Bytes(512, 0xFF)}}},
        {43, {{1, word(5301)}, {2, word(4601)}}},
        {6, {{1, word(350)}}},
        {6, {{1, word(351)}}},
        {6, {{1, word(352)}}},
        {41, {{2, word(4601)}}},
        {2, {{1, word(5301)}}},
    };
    return all;
}

void send(userlevel::netlink_socket &client, nl_message &message) {
    message.u.header.nlmsg_len = message.length;
    client.send({message.u.bytes, message.length});
    commands++;
    std::this_thread::sleep_for(200us);
}

// What an attribute says of interfaces that are there, other things each round.
Bytes living(u8 number, u32 round) {
    const u32 interfaces[] = {5001, 5002, 5003, 4501, 301, 302};
    auto word = [](u32 value) {
        auto *at = reinterpret_cast<const u8 *>(&value);
        return Bytes(at, at + sizeof(value));
    };
    nl_attribute usual = nl_attribute_of(number);
    auto *at = static_cast<const u8 *>(usual.value);
    Bytes value(at, at + usual.length);
    switch (number) {
    case TARNFWD_ATTR_IFINDEX:
    case TARNFWD_ATTR_MIRROR_SOURCE:
        return word(interfaces[round % std::size(interfaces)]);
    case TARNFWD_ATTR_MIRROR_TARGET:
    case TARNFWD_ATTR_PORT_IFINDEX:
        return word(5002);
    case TARNFWD_ATTR_AGG_IFINDEX:
        return word(4501);
    case TARNFWD_ATTR_VID:
        return {static_cast<u8>(round % 3), 0};
    case TARNFWD_ATTR_FLAGS:
        return word(round % 3 == 0 ? 0x1003 : 0x1043);
    case TARNFWD_ATTR_STP_STATE:
        return {static_cast<u8>(round % 4 == 0 ? 4 : 3)};
    case TARNFWD_ATTR_MAC:
        value[5] = static_cast<u8>(round);
        return value;
    default:
        if (usual.kind == NL_INTEGER || usual.kind == NL_BITMAP)
            value[0] = static_cast<u8>(1 + round % 2);
        return value;
    }
}

bool takes_away(u8 number) {
    return number == TARNFWD_CMD_IF_DELLINK || number == TARNFWD_CMD_IF_DELETE_SVI ||
           number == TARNFWD_CMD_LACP_DELETE_AGGREGATOR;
}

// Every command that leaves the interfaces where they are.
void set_all(userlevel::netlink_socket &client, u32 round) {
    nl_message message;
    for (const nl_case &one : nl_cases) {
        if (takes_away(one.command))
            continue;
        nl_message_start(&message, FAMILY, one.command, NLM_F_ACK, 1);
        for (const u8 *number = one.needs; number < std::end(one.needs) && *number; number++) {
            Bytes value = living(*number, round);
            nl_message_put(&message, *number, value.data(), static_cast<unsigned>(value.size()));
        }
        send(client, message);
    }
}

void command() {
    userlevel::netlink_socket client([](std::span<const std::uint8_t>) {});
    client.set_option(NETLINK_GENERIC, NETLINK_ADD_MEMBERSHIP, 2);
    nl_message message;
    for (u32 round = 0; !stop; round++) {
        set_all(client, round);
        for (const auto &[number, attributes] : makes_and_removes()) {
            nl_message_start(&message, FAMILY, number, NLM_F_ACK, 1);
            for (const auto &[type, value] : attributes)
                nl_message_put(&message, type, value.data(), static_cast<unsigned>(value.size()));
            send(client, message);
        }
        for (const nl_case &one : nl_cases) {
            {
                std::lock_guard guard(building); // the list's own room
                nl_case_build(&message, &one, NL_COMPLETE, 0, FAMILY, 1);
            }
            send(client, message);
        }
    }
}

// Several, beside each other: the graph changes under each of them.
void churn(u32 first) {
    userlevel::netlink_socket client([](std::span<const std::uint8_t>) {});
    nl_message message;
    for (u32 i = first; !stop; i++, commands++) {
        nl_churn_build(&message, FAMILY, i);
        client.send({message.u.bytes, message.length});
        std::this_thread::sleep_for(20us);
    }
}

void use(struct socket *socket) {
    vlan_skaddr to{};
    to.ifindex = 5001;
    Bytes data(64), name(64);
    for (int i = 0; i < 4; i++) {
        iovec buffer{data.data(), data.size()};
        msghdr msg{};
        msg.msg_iov = &buffer;
        msg.msg_iovlen = 1;
        msg.msg_name = &to;
        msg.msg_namelen = sizeof(to);
        userlevel::socket_sendmsg(socket, &msg, MSG_DONTWAIT);
        msg.msg_name = name.data();
        msg.msg_namelen = static_cast<socklen_t>(name.size());
        buffer = {data.data(), data.size()};
        msg.msg_iov = &buffer;
        msg.msg_iovlen = 1;
        userlevel::socket_recvmsg(socket, &msg, MSG_DONTWAIT);
    }
}

void come_and_go(u32 first) {
    for (u32 i = first; !stop; i++, sockets++) {
        struct socket *socket = nullptr;
        if (userlevel::socket_open(FAMILIES[i % FAMILIES.size()], SOCK_RAW, 0, &socket) != 0)
            continue;
        use(socket);
        std::this_thread::sleep_for(20ms);
        userlevel::socket_close(socket);
        closed_sockets++;
    }
}

void read_and_write() {
    while (!stop) {
        for (const std::string &path : fuzzed::files()) { // ports come and go

            userlevel::proc_read(path);
            if (path.find("pktdebug") == std::string::npos &&
                path.find("lowmem") == std::string::npos)
                userlevel::proc_write(path, "0\n");
            files++;
        }
        for (const char *name : {"pppoe\n", "vrrp\n"}) {
            userlevel::proc_write("tarn/redirectprotocoldisable", name);
            userlevel::proc_write("tarn/redirectprotocolenable", name);
        }
    }
}

void run(std::chrono::seconds time) {
    stop = false;
    std::vector<std::thread> all;
    all.emplace_back(deliver, 0);
    all.emplace_back(deliver, 1000);
    all.emplace_back(transmit);
    all.emplace_back(command);
    all.emplace_back(command);
    for (u32 k : {0u, 1u, 2u})
        all.emplace_back(churn, k * NL_CHURN_MESSAGES / 3);
    all.emplace_back(come_and_go, 0);
    all.emplace_back(come_and_go, 7);
    all.emplace_back(read_and_write);
    std::this_thread::sleep_for(time);
    stop = true;
    for (std::thread &one : all)
        one.join();
}

long resident_kb() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// What the switch holds, but for the records that closed sockets leave behind on purpose. The
// process has more: a sanitizer's own memory grows with all that it has seen.
long held_kb() {
    std::size_t bytes = 0;
    for (const userlevel::object &object : userlevel::live())
        if (std::string(object.kind) != "sock")
            bytes += object.bytes;
    return static_cast<long>(bytes / 1024);
}

TEST(SoakThreads, everything_at_once_leaves_nothing_behind) {
    const char *said = std::getenv("TARN_SOAK_SECONDS");
    const std::chrono::seconds time(said ? std::atoi(said) : 5);
    fuzzed::load();
    userlevel::work_thread_start();
    run(time / 5);
    const long held = held_kb(), resident = resident_kb();
    const std::array<u64, 4> warm{frames, commands, sockets, files};
    run(time);
    const long held_after = held_kb();
    std::printf(
        "in %ld s: %lu frames, %lu commands, %lu sockets, %lu files; the switch held %ld kB "
        "before, %ld after; the process %ld kB resident, %ld after\n",
        static_cast<long>(time.count()), frames - warm[0], commands - warm[1], sockets - warm[2],
        files - warm[3], held, held_after, resident, resident_kb());
    EXPECT_TRUE(frames > warm[0] && commands > warm[1] && sockets > warm[2] && files > warm[3]);
    EXPECT_LT(held_after - held, MOST_KB);
    userlevel::work_run(); // all that the thread still has to do
    fuzzed::reset();
    fuzzed::must_have_lost_nothing(closed_sockets);
}

} // namespace
