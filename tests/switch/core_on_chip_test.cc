// What the core does through the chip.
#include "core_on_chip.h"
#include "ifmgr/tarn_ifmgr_settings.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

// The core floods what the chip traps, and the chip leaves that to it.
void let_the_core_flood() {
    char reply[1000];
    chip_command("trap broadcast only", reply, sizeof(reply));
    EXPECT_EQ(tarn_rmirror_set_mirror_vlan(1, true), 0);
}

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

TEST_F(CoreOnChip, a_flood_asks_what_the_core_knows_of_its_ports_whoever_makes_it) {
    const Bytes frame = Frame().to(BROADCAST).padded();
    let_the_core_flood();
    tarn_ifmgr_stp_port_state_set(5003, 0, TARN_STP_BLOCKING);
    for (const char *way : {"flood hardware", "flood software"}) {
        tell(way);
        receive(1, frame);
        EXPECT_EQ(senders(), "2 4") << way;
    }
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
