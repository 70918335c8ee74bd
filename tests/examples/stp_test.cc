// The spanning tree of the example daemon: its bytes, and bridges and links drawn at random, in a
// time that is only counted.
extern "C" {
#include "stp.h"
}

#include <algorithm>
#include <deque>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <vector>

namespace {

constexpr stp_time SECOND = 1000, LOOK = 50;
constexpr stp_times SHORTEST{
    .max_age = 6 * SECOND, .hello_time = SECOND, .forward_delay = 4 * SECOND};
// Those that suit up to seven Bridges in a row; a Root that is gone is forgotten after Max Age,
// then two Forward Delays, then a Hello or two.
constexpr stp_times USUAL{
    .max_age = 20 * SECOND, .hello_time = 2 * SECOND, .forward_delay = 15 * SECOND};
constexpr stp_time SETTLED = 60 * SECOND;

using Bytes = std::vector<uint8_t>;

struct Sent {
    const stp_port *port;
    Bytes bpdu;
};
std::deque<Sent> sent;

void send(const stp_port *port, const uint8_t *bpdu, size_t length) {
    sent.push_back({port, {bpdu, bpdu + length}});
}
void set_state(const stp_port *) {}

void make(stp_bridge &bridge, uint64_t id, size_t ports, const stp_times &times) {
    bridge = {};
    bridge.id = id;
    bridge.own = times;
    bridge.port_count = ports;
    bridge.send = send;
    bridge.set_state = set_state;
    for (size_t i = 0; i < ports; i++) {
        bridge.ports[i].id = static_cast<uint16_t>(0x8001 + i);
        bridge.ports[i].path_cost = 4;
    }
    stp_start(&bridge, 0);
}

class Stp : public ::testing::Test {
protected:
    Stp() {
        sent.clear();
        make(bridge, 0x8000'0200'0000'0001, 2, SHORTEST);
        stp_enable_port(&bridge, port, 0);
    }
    // A Bridge with a less identifier, one hop from the Root.
    static Bytes better() {
        return {0,    0, 0, 0, 0,                         // a Configuration BPDU without flags
                0,    0, 2, 0, 0, 0, 0, 9, 0,    0, 0, 4, // the Root, its cost
                0x10, 0, 2, 0, 0, 0, 0, 8, 0x80, 3,       // the Bridge, its port
                1,    0, 7, 0, 2, 0, 5, 0};               // 1, 7, 2 and 5 seconds
    }
    void receive(const Bytes &bpdu) {
        stp_receive(&bridge, port, bpdu.data(), bpdu.size(), bridge.now);
    }
    void run(stp_time time) {
        for (stp_time end = bridge.now + time; bridge.now < end;)
            stp_tick(&bridge, bridge.now + LOOK);
    }

    stp_bridge bridge;
    stp_port *port = &bridge.ports[0];
};

TEST_F(Stp, a_root_says_so_each_hello_time) {
    run(3 * SECOND);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].bpdu, (Bytes{0,    0, 0, 0, 0,                         // not yet a change
                                   0x80, 0, 2, 0, 0, 0, 0, 1, 0,    0, 0, 0, // itself the Root
                                   0x80, 0, 2, 0, 0, 0, 0, 1, 0x80, 1,       // the Bridge, its port
                                   0,    0, 6, 0, 1, 0, 4, 0}));             // age 0
}

TEST_F(Stp, a_port_forwards_after_two_forward_delays) {
    EXPECT_EQ(port->state, STP_LISTENING);
    run(4 * SECOND);
    EXPECT_EQ(port->state, STP_LEARNING);
    run(4 * SECOND - LOOK);
    EXPECT_EQ(port->state, STP_LEARNING);
    run(LOOK);
    EXPECT_EQ(port->state, STP_FORWARDING);
    EXPECT_TRUE(bridge.topology_change);
}

TEST_F(Stp, a_better_root_is_believed_and_told_on) {
    stp_enable_port(&bridge, &bridge.ports[1], 0);
    receive(better());
    EXPECT_EQ(bridge.root_port, port);
    EXPECT_EQ(bridge.root_path_cost, 8u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].port, &bridge.ports[1]);
    EXPECT_EQ(sent[0].bpdu,
              (Bytes{0,    0, 0, 0, 0,                         //
                     0,    0, 2, 0, 0, 0, 0, 9, 0,    0, 0, 8, // at a port's cost more
                     0x80, 0, 2, 0, 0, 0, 0, 1, 0x80, 2,       //
                     2,    0, 7, 0, 2, 0, 5, 0}));             // and a second older
}

TEST_F(Stp, a_root_that_is_not_heard_is_forgotten_after_max_age) {
    receive(better());
    run(6 * SECOND - LOOK); // it came with an age of one
    EXPECT_EQ(bridge.root_port, port);
    run(LOOK);
    EXPECT_EQ(bridge.root_port, nullptr);
}

TEST_F(Stp, a_second_way_to_the_root_is_blocked) {
    stp_enable_port(&bridge, &bridge.ports[1], 0);
    receive(better());
    port = &bridge.ports[1];
    receive(better());
    EXPECT_EQ(bridge.root_port, &bridge.ports[0]);
    EXPECT_EQ(bridge.ports[1].state, STP_BLOCKING);
}

TEST_F(Stp, of_two_ways_through_one_bridge_its_first_port_is_the_root_port) {
    stp_enable_port(&bridge, &bridge.ports[1], 0);
    receive(better());
    port = &bridge.ports[1];
    Bytes first = better();
    first[26]--;
    receive(first);
    EXPECT_EQ(bridge.root_port, port);
    EXPECT_EQ(bridge.ports[0].state, STP_BLOCKING);
}

TEST_F(Stp, who_knows_no_better_is_answered_once_a_second) {
    Bytes worse = better();
    worse[5] = worse[17] = 0xF0;
    receive(worse);
    EXPECT_EQ(sent.size(), 1u);
    receive(worse);
    EXPECT_EQ(sent.size(), 1u);
    run(SECOND);
    EXPECT_EQ(sent.size(), 2u);
}

TEST_F(Stp, a_bridge_that_was_designated_is_not_waited_for) {
    Bytes worse = better();
    stp_enable_port(&bridge, &bridge.ports[1], 0);
    port = &bridge.ports[1];
    worse[16] = 10; // the same Root, farther from there than through here
    receive(worse);
    port = &bridge.ports[0];
    receive(better());
    EXPECT_FALSE(bridge.ports[1].message_age.is_active);
}

TEST_F(Stp, a_change_is_told_by_the_root_until_its_time_is_over) {
    run(8 * SECOND + LOOK);
    EXPECT_TRUE(bridge.topology_change);
    run(10 * SECOND); // Max Age and Forward Delay
    EXPECT_FALSE(bridge.topology_change);
}

TEST_F(Stp, a_change_is_believed_of_the_root_alone) {
    Bytes changing = better();
    changing[4] = 1;
    receive(changing);
    EXPECT_TRUE(bridge.topology_change);
    receive(better());
    EXPECT_FALSE(bridge.topology_change);
}

TEST_F(Stp, a_change_is_notified_until_it_is_acknowledged) {
    stp_enable_port(&bridge, &bridge.ports[1], 0);
    receive(better());
    port = &bridge.ports[1];
    receive({0, 0, 0, 0x80});
    port = &bridge.ports[0];
    auto notified = [&] {
        return std::ranges::count_if(sent, [](const Sent &one) { return one.bpdu.size() == 4; });
    };
    run(3 * SECOND);
    EXPECT_EQ(notified(), 4);
    Bytes acknowledged = better();
    acknowledged[4] = 0x80;
    receive(acknowledged);
    run(3 * SECOND);
    EXPECT_EQ(notified(), 4);
}

TEST_F(Stp, a_change_below_is_notified_towards_the_root_and_acknowledged) {
    stp_enable_port(&bridge, &bridge.ports[1], 0);
    receive(better());
    sent.clear();
    port = &bridge.ports[1];
    receive({0, 0, 0, 0x80});
    ASSERT_EQ(sent.size(), 1u); // the other port has just sent, and holds
    EXPECT_EQ(sent[0].port, &bridge.ports[0]);
    EXPECT_EQ(sent[0].bpdu, (Bytes{0, 0, 0, 0x80}));
    run(SECOND);
    ASSERT_GE(sent.size(), 2u);
    auto acknowledged = [&](const Sent &one) { return one.port == port && one.bpdu[4] == 0x80; };
    EXPECT_TRUE(std::ranges::any_of(sent, acknowledged));
}

TEST_F(Stp, what_is_no_valid_bpdu_is_passed_over) {
    Bytes old = better(), other = better(), rapid = better(), own = better();
    old[27] = 7;  // Max Age
    other[1] = 1; // another protocol
    rapid[3] = 2; // another type
    std::ranges::copy(Bytes{0x80, 0, 2, 0, 0, 0, 0, 1, 0x80, 1}, own.begin() + 17);
    for (const Bytes &bpdu : {old, other, rapid, own})
        receive(bpdu);
    for (size_t length = 0; length < better().size(); length++) {
        Bytes shorter = better();
        shorter.resize(length);
        receive(shorter);
    }
    EXPECT_EQ(bridge.root_port, nullptr);
    receive(better());
    EXPECT_EQ(bridge.root_port, port);
}

// Bridges, and links between two ports each, some of them between the same two, or of one Bridge.
class Net {
public:
    explicit Net(unsigned seed) : random_(seed), bridges_(2 + random_() % 6) {
        sent.clear();
        links_.resize(bridges_.size() - 1 + random_() % bridges_.size());
        std::vector<size_t> used(bridges_.size());
        for (size_t i = 0; i < links_.size(); i++) {
            size_t a = i + 1 < bridges_.size() ? i + 1 : draw(),
                   b = i + 1 < bridges_.size() ? random_() % a : draw();
            links_[i] = {{a, used[a]++}, {b, used[b]++}, false};
        }
        for (size_t i = 0; i < bridges_.size(); i++)
            make(bridges_[i], uint64_t{random_() % 4} << 60 | (i + 1), used[i], USUAL);
    }

    size_t links() const { return links_.size(); }
    void turn(size_t which) {
        Link &link = links_[which % links_.size()];
        link.is_up = !link.is_up;
        for (End end : {link.a, link.b}) {
            if (link.is_up)
                stp_enable_port(&bridges_[end.bridge], &port(end), now_);
            else
                stp_disable_port(&bridges_[end.bridge], &port(end), now_);
        }
    }
    // Frames go round nowhere, ever.
    void run(stp_time time) {
        for (stp_time end = now_ + time; now_ < end;) {
            now_ += LOOK;
            for (stp_bridge &bridge : bridges_)
                stp_tick(&bridge, now_);
            deliver();
            ASSERT_FALSE(has_circle()) << "at " << now_;
        }
    }
    // As many parts hang together by ports that forward as by links.
    void expect_whole() {
        auto any = [](const Link &link) { return link.is_up; };
        auto forwards = [&](const Link &link) { return is_forwarding(link); };
        EXPECT_EQ(parts(forwards).first, parts(any).first);
    }

private:
    struct End {
        size_t bridge, port;
    };
    struct Link {
        End a, b;
        bool is_up;
    };

    size_t draw() { return random_() % bridges_.size(); }
    stp_port &port(End end) { return bridges_[end.bridge].ports[end.port]; }
    bool is_forwarding(const Link &link) {
        return link.is_up && port(link.a).state == STP_FORWARDING &&
               port(link.b).state == STP_FORWARDING;
    }

    void deliver() {
        for (; !sent.empty(); sent.pop_front())
            for (const Link &link : links_) {
                if (!link.is_up)
                    continue;
                for (auto [from, to] : {std::pair(link.a, link.b), std::pair(link.b, link.a)})
                    if (&port(from) == sent.front().port)
                        stp_receive(&bridges_[to.bridge], &port(to), sent.front().bpdu.data(),
                                    sent.front().bpdu.size(), now_);
            }
    }

    // How many parts there are by those links, and whether one of them was not needed for that.
    template <typename Counts>
    std::pair<size_t, bool> parts(Counts counts) {
        std::vector<size_t> of(bridges_.size());
        std::iota(of.begin(), of.end(), size_t{0});
        size_t left = of.size();
        bool is_circle = false;
        for (const Link &link : links_) {
            if (!counts(link))
                continue;
            size_t a = of[link.a.bridge], b = of[link.b.bridge];
            is_circle |= a == b;
            left -= a != b;
            std::ranges::replace(of, a, b);
        }
        return {left, is_circle};
    }
    bool has_circle() {
        return parts([&](const Link &link) { return is_forwarding(link); }).second;
    }

    std::mt19937 random_;
    std::vector<stp_bridge> bridges_;
    std::vector<Link> links_;
    stp_time now_ = 0;
};

TEST(StpRandom, forwards_in_no_circle_and_reaches_all) {
    for (unsigned seed = 0; seed < 500; seed++) {
        SCOPED_TRACE(seed);
        Net net(seed);
        std::mt19937 random(seed);
        for (size_t i = 0; i < net.links(); i++)
            net.turn(i);
        for (int change = 0; change < 10; change++) {
            ASSERT_NO_FATAL_FAILURE(net.run(SETTLED));
            net.expect_whole();
            for (size_t burst = random() % 3; burst-- > 0;) { // also while it is under way
                net.turn(random());
                ASSERT_NO_FATAL_FAILURE(net.run(random() % (50 * SECOND)));
            }
            net.turn(random());
        }
        if (HasFailure())
            return;
    }
}

} // namespace
