// The core above the chip: frames go in and out by ports 5001 to 5004 on p1 to p4, all members of
// VLAN 1, port 5004 with a tag.
#include "chip.h"
#include "control.h"
#include "fake_home.h"
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "module/tarn_module.h"
#include "plain_switch/plain_switch.h"
#include "port.h"
#include "redirects/redirects.h"
#include "vlan/vlan_member.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr u32 PORTS = 4;
constexpr const char *BROADCAST = "ff:ff:ff:ff:ff:ff", *OWN = "02:00:00:00:00:01",
                     *HOST = "02:00:00:00:00:0a";

class CoreOnChip : public ::testing::Test {
protected:
    CoreOnChip() {
        EXPECT_EQ(init_module(), 0);
        chip_start();
        vlan_ = plain_switch::add_vlan(1);
        for (u32 k = 1; k <= PORTS; k++)
            add_port(k);
        userlevel::work_run();
        userlevel::log_take();
        before_ = userlevel::take_snapshot();
    }
    ~CoreOnChip() override {
        EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), "");
        EXPECT_THAT(userlevel::log_take(), IsEmpty());
        chip_stop();
        EXPECT_EQ(home.alive, 0);
    }

    void add_port(u32 k) {
        std::string number = std::to_string(5000 + k);
        tell("port " + number + " " + device(k));
        tell("vlan " + number + " 1 " + (k == PORTS ? "tagged" : "untagged"));
        tell("pvid " + number + " 1");
        ports_[k] = plain_switch::add_port(k);
        EXPECT_EQ(tarn_vlan_add_vlan_to_port(5000 + k, 1, k == PORTS), 0);
    }

    static std::string device(u32 k) { return "p" + std::to_string(k); }

    static void tell(const std::string &line) {
        char reply[1000];
        EXPECT_EQ(chip_command(line.c_str(), reply, sizeof(reply)), 0) << line << ": " << reply;
    }

    // The core floods what the chip traps, and the chip leaves that to it.
    static void let_the_core_flood() {
        tell("trap broadcast only");
        EXPECT_EQ(tarn_rmirror_set_mirror_vlan(1, true), 0);
    }

    void receive(u32 k, const Bytes &frame) {
        chip_device *from = home.open.at(device(k));
        chip_receive(from, from->slot, userlevel::frame_make(frame));
    }

    std::vector<Bytes> sent(u32 k) { return std::exchange(home.sent[device(k)], {}); }

    tarn_if *vlan_;
    tarn_if *ports_[PORTS + 1]{};
    userlevel::snapshot before_;
};

TEST_F(CoreOnChip, a_flood_of_the_core_leaves_on_each_port_but_its_source_once) {
    const Bytes frame = Frame().to(BROADCAST).padded();
    const Bytes tagged = Frame().to(BROADCAST).tag(1).padded(64);
    let_the_core_flood();
    for (const char *way : {"flood hardware", "flood software"}) {
        tell(way);
        receive(1, frame);
        EXPECT_THAT(sent(1), IsEmpty()) << way;
        EXPECT_THAT(sent(2), ElementsAre(frame)) << way;
        EXPECT_THAT(sent(3), ElementsAre(frame)) << way;
        EXPECT_THAT(sent(4), ElementsAre(tagged)) << way;
        receive(4, tagged);
        EXPECT_THAT(sent(1), ElementsAre(frame)) << way;
        EXPECT_THAT(sent(4), IsEmpty()) << way;
        home.sent.clear();
    }
}

// Of spanning tree the chip knows nothing.
TEST_F(CoreOnChip, a_flood_in_software_asks_what_the_core_knows_of_its_ports) {
    const Bytes frame = Frame().to(BROADCAST).padded();
    let_the_core_flood();
    tell("flood software");
    ports_[3]->stp_state[0] = TARN_STP_BLOCKING;
    receive(1, frame);
    EXPECT_THAT(sent(2), SizeIs(1));
    EXPECT_THAT(sent(3), IsEmpty());
    tell("flood hardware");
    receive(1, frame);
    EXPECT_THAT(sent(2), SizeIs(1));
    EXPECT_THAT(sent(3), SizeIs(1));
}

TEST_F(CoreOnChip, hosts_reach_each_other_without_the_core) {
    receive(2, Frame().from(HOST).to(BROADCAST).padded());
    home.sent.clear();
    u64 made = userlevel::allocations_made();
    const Bytes frame = Frame().to(HOST).padded();
    receive(1, frame);
    EXPECT_THAT(sent(2), ElementsAre(frame));
    EXPECT_THAT(sent(3), IsEmpty());
    EXPECT_EQ(userlevel::allocations_made() - made, 2u) << "the frame itself, and no copy";
}

TEST_F(CoreOnChip, what_the_ip_stack_sends_goes_where_the_chip_learned_the_address) {
    receive(4, Frame().from(HOST).to(BROADCAST).tag(1).padded(64));
    home.sent.clear();
    userlevel::netdev_transmit(vlan_->netdev, Frame().to(HOST).padded().build(), 5);
    EXPECT_THAT(sent(4), ElementsAre(Bytes(Frame().to(HOST).tag(0xA001).padded(64))));
    for (u32 k : {1u, 2u, 3u})
        EXPECT_THAT(sent(k), IsEmpty());
}

TEST_F(CoreOnChip, what_is_for_the_switch_itself_reaches_the_ip_stack) {
    tell(std::string("mac ") + OWN + " 1");
    tell("filter 800");
    tell("trap filter on");
    auto &stack = userlevel::netdev_recorded(vlan_->netdev);
    const Bytes frame = Frame().to(OWN).ipv4({.protocol = 1}).padded();
    receive(1, frame);
    receive(4, Frame().to(OWN).tag(1).ipv4({.protocol = 1}).padded(64));
    ASSERT_THAT(stack.received, SizeIs(2));
    EXPECT_EQ(stack.received[0].bytes, frame);
    EXPECT_EQ(stack.received[1].bytes, frame) << "without its tag";
    for (u32 k = 1; k <= PORTS; k++)
        EXPECT_THAT(sent(k), IsEmpty());
}

} // namespace
