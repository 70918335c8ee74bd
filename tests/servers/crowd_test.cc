// A thousand clients at once that say nothing, do not read, or go in the middle: nobody waits for
// them.
#include "servers/netlink_end.h"

#include "servers/carried_end.h"
#include "servers/control_test.h"

#include "events/tarnfwd_nl_event.h"
#include "machine/netlink_server.h"
#include "machine/socket_server.h"

#include <atomic>
#include <deque>
#include <sys/resource.h>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using steady = std::chrono::steady_clock;

constexpr int CROWD = 1000;
// Clients that were waited for, for seconds each, would cost many of these.
constexpr seconds LONGEST{10};

class CrowdThreads : public ControlTest {
protected:
    CrowdThreads() {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 65536);
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_EQ(machine::netlink_serve(netlink), "");
        EXPECT_EQ(machine::sockets_serve(sockets), "");
    }
    ~CrowdThreads() override {
        auto begin = steady::now();
        machine::sockets_end();
        machine::netlink_end();
        live::control_end();
        EXPECT_LT(steady::now() - begin, LONGEST) << "it ends at once, whatever is unread";
        log();
        remember(); // the records of closed sockets stay, on purpose
    }

    // How long the longest of the calls took, each for a client of its own kind that behaves.
    template <typename Call>
    static milliseconds longest(int calls, Call call) {
        steady::duration most{};
        for (int i = 0; i < calls; i++) {
            auto begin = steady::now();
            call();
            most = std::max(most, steady::now() - begin);
        }
        return std::chrono::duration_cast<milliseconds>(most);
    }

    static void tell_events(int count) {
        const u8 mac[6] = {};
        for (int i = 0; i < count; i++)
            tarnfwd_nl_send_dhcpsn_arpsec_violation(5, 6, 0, mac, 2);
    }
    static void deliver(int count) {
        static const Bytes frame = Frame().to("01:80:c2:00:00:02").type(0x8809).padded();
        const tarn_rx_meta meta{};
        for (int i = 0; i < count; i++)
            rxtx_hw_packet_recv(userlevel::frame_make(frame), 5001, 1, &meta);
    }

    const std::string netlink = folder / "netlink", sockets = folder / "sockets";
    Client inside;
};

TEST_F(CrowdThreads, of_the_control_family_keeps_nobody_waiting) {
    std::deque<NetlinkEnd> crowd;
    auto add = [&](int i) {
        NetlinkEnd &one = crowd.emplace_back(netlink);
        const Bytes request = NetlinkEnd::request(inside.family, 1);
        if (i % 4 == 0)
            return; // silent
        if (i % 4 == 1)
            one.option(NETLINK_ADD_MEMBERSHIP, inside.group); // and never reads an event
        for (int k = 0; k < (i % 100 == 2 ? 2000 : 5); k++)
            one.put(request); // and never reads an answer
        if (i % 4 == 3)
            one.close();
    };
    std::atomic<bool> all_there = false;
    std::thread comers([&] {
        for (int i = 0; i < CROWD; i++)
            add(i);
        all_there = true;
    });
    std::thread frames([&] {
        while (!all_there)
            tell_events(1);
        tell_events(1000);
    });
    NetlinkEnd good(netlink);
    auto ask = [&] { EXPECT_EQ(good.ask(inside.family, 1), -EINVAL); };
    while (!all_there)
        EXPECT_LT(longest(10, ask), LONGEST);
    EXPECT_LT(longest(200, ask), LONGEST);
    comers.join();
    frames.join();
    EXPECT_EQ(good.option(NETLINK_ADD_MEMBERSHIP, inside.group), 0);
    tell_events(1);
    EXPECT_EQ(NetlinkEnd::type_of(good.read()), inside.family);
}

TEST_F(CrowdThreads, of_protocol_sockets_keeps_nobody_waiting) {
    std::deque<CarriedEnd> crowd;
    auto add = [&](int i) {
        CarriedEnd &one = crowd.emplace_back(sockets);
        if (i % 4 == 1)
            one.open(TARN_AF_LACP); // and never reads
        if (i % 4 == 2)
            one.call_and_go({.call = TARN_CARRIER_OPEN, .a = TARN_AF_LACP, .b = SOCK_RAW});
        if (i % 4 == 3) {
            EXPECT_EQ(one.open(TARN_AF_LACP), 0);
            one.close();
        }
    };
    std::atomic<bool> all_there = false;
    std::thread comers([&] {
        for (int i = 0; i < CROWD; i++)
            add(i);
        all_there = true;
    });
    CarriedEnd good(sockets);
    EXPECT_EQ(good.open(TARN_AF_STP), 0);
    auto ask = [&] { EXPECT_EQ(good.look(), -EINVAL); };
    while (!all_there) {
        EXPECT_LT(longest(10, ask), LONGEST);
        deliver(1);
    }
    deliver(10);
    EXPECT_LT(longest(200, ask), LONGEST);
    comers.join();
}

TEST_F(CrowdThreads, at_the_control_socket_keeps_nobody_waiting) {
    std::deque<UnixEnd> crowd;
    auto add = [&](int i) {
        UnixEnd &one = crowd.emplace_back(path, SOCK_STREAM);
        if (i % 4 == 1)
            one.put(i % 20 == 1 ? "trace\n" : "big\n"); // and never reads
        if (i % 4 == 2)
            one.put("half a li");
        if (i % 4 == 3) {
            one.put(i % 20 == 3 ? "trace\n" : "big\n");
            one.close();
        }
    };
    std::atomic<bool> all_there = false;
    std::thread comers([&] {
        for (int i = 0; i < CROWD; i++)
            add(i);
        all_there = true;
    });
    auto ask = [&] { EXPECT_EQ(this->ask("echo words\n"), "words\nok\n"); };
    while (!all_there) {
        EXPECT_LT(longest(3, ask), LONGEST);
        deliver(1);
    }
    EXPECT_LT(longest(20, ask), LONGEST);
    comers.join();
}

// Where no descriptor is left, who comes waits, and the server neither spins nor repeats itself.
TEST_F(CrowdThreads, beyond_the_last_descriptor_waits_for_one) {
    UnixEnd first(path, SOCK_STREAM);
    std::vector<int> held;
    const int last = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    for (int fd; (fd = dup(last)) >= 0;)
        held.push_back(fd);
    ::close(last);
    log();
    UnixEnd late(path, SOCK_STREAM); // its end is the last
    late.put("echo words\n");
    timespec before{}, after{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
    EXPECT_FALSE(late.is_readable(1000));
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
    double used = static_cast<double>(after.tv_sec - before.tv_sec) +
                  static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
    EXPECT_LT(used, 0.05);
    EXPECT_THAT(log(), ::testing::ElementsAre(::testing::HasSubstr("no descriptor is left")));
    for (int fd : held)
        ::close(fd);
    EXPECT_EQ(late.read_all(), "words\nok\n");
    EXPECT_EQ(ask("echo more\n"), "more\nok\n");
}

// A descriptor that a client had is somebody else's when it is given back: nothing that was meant
// for the client gets there.
class Leavers : public CrowdThreads {
protected:
    // Clients come and go beside what is told them, and others take the descriptors.
    template <typename Tell, typename ComeAndGo>
    static void leave_nothing_to_others(Tell tell, ComeAndGo come_and_go) {
        std::atomic<bool> done = false;
        std::thread frames([&] {
            while (!done)
                tell();
        });
        std::thread others([&] {
            while (!done) {
                int pair[2];
                EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
                std::this_thread::yield();
                char byte;
                for (int end : pair)
                    EXPECT_EQ(recv(end, &byte, 1, MSG_DONTWAIT), -1);
                for (int end : pair)
                    ::close(end);
            }
        });
        for (int i = 0; i < CROWD; i++)
            come_and_go();
        done = true;
        frames.join();
        others.join();
    }
};
using LeaverThreads = Leavers;

TEST_F(LeaverThreads, of_the_control_family_are_told_of_no_event_any_more) {
    leave_nothing_to_others([] { tell_events(1); },
                            [&] {
                                NetlinkEnd one(netlink);
                                EXPECT_EQ(one.option(NETLINK_ADD_MEMBERSHIP, inside.group), 0);
                            });
}

TEST_F(LeaverThreads, of_protocol_sockets_are_told_of_no_frame_any_more) {
    leave_nothing_to_others([] { deliver(1); },
                            [&] {
                                CarriedEnd(sockets).call_and_go(
                                    {.call = TARN_CARRIER_OPEN, .a = TARN_AF_LACP, .b = SOCK_RAW});
                            });
}

} // namespace
