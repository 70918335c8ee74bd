// A chip with four ports, 101 to 104 on p1 to p4, all untagged members of VLAN 1 with that PVID:
//
//   TEST_F(ChipTest, a_behaviour_in_words) {
//       tell("mac 02:00:00:00:00:aa 1");
//       receive(101, Frame().from("02:00:00:00:00:01"));
//       EXPECT_EQ(ports_that_sent(), "102 103 104");
//   }
//
// Each test ends with a leak check, and no port may be open any more.
#pragma once

#include "fake_home.h"

#include "chip.h"
#include "control.h"

#include <gtest/gtest.h>

using Frames = std::vector<Bytes>;

class ChipTest : public ::testing::Test {
protected:
    ChipTest();
    ~ChipTest() override;

    // Runs a line that must succeed: its reply.
    std::string tell(const std::string &line);
    // Runs a line that must fail so: its reply.
    std::string refuse(const std::string &line, int result);

    void receive(u32 ifindex, const Bytes &frame);

    // What left since the last call of each kind, and is forgotten.
    std::vector<Bytes> sent(u32 ifindex);
    std::string ports_that_sent(); // "102 103"; forgets all
    std::vector<Trapped> trapped();
    // The names of the trap table's rows that what was trapped came by; forgets it.
    std::string traps();

    // A number in the port's line of `show ports`, 0 when it is not there.
    unsigned long counter(u32 ifindex, const std::string &name);
    unsigned long hits(const std::string &trap);

    // From the core. The buffer is freed if the chip leaves it.
    u32 transmit(u32 ifindex, u32 vid, bool tagged, const Bytes &frame, u32 cos = 0);
    i32 flood(u32 ifindex, u32 vid, const Bytes &frame, u32 except0 = ~0u, u32 except1 = 0,
              u32 mask = 0);

private:
    userlevel::snapshot before_;
};

std::string device_of(u32 ifindex); // p1 for 101
