// The core above the chip: frames go in and out by ports 5001 to 5004 on p1 to p4, all untagged
// members of VLAN 1 with that PVID but port 5004, which has a tag. Each thing is said once, to the
// core.
#pragma once

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

class CoreOnChip : public ::testing::Test {
protected:
    static constexpr u32 PORTS = 4;
    static constexpr const char *BROADCAST = "ff:ff:ff:ff:ff:ff", *OWN = "02:00:00:00:00:01",
                                *HOST = "02:00:00:00:00:0a", *OTHER = "02:00:00:00:00:0b";

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
        userlevel::work_run();
        EXPECT_EQ(lost(), "");
        EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), 0u);
        chip_stop();
        EXPECT_EQ(home.alive, 0);
    }

    // What frames and commands left behind. After records_stay() only frames count: the database
    // keeps records and the nodes of their lists.
    std::string lost() {
        auto objects = userlevel::leaked_since(before_);
        if (records_stay_)
            std::erase_if(objects, [](const auto &one) {
                return !std::string_view(one.kind).starts_with("sk");
            });
        return userlevel::describe(objects);
    }
    void records_stay() { records_stay_ = true; }

    void add_port(u32 k) {
        tell("port " + std::to_string(5000 + k) + " " + device(k));
        ports_[k] = plain_switch::add_port(k);
        EXPECT_EQ(tarn_vlan_add_vlan_to_port(5000 + k, 1, k == PORTS), 0);
        EXPECT_EQ(tarn_vlan_set_default_pvid(5000 + k, 1), 0);
    }

    static std::string device(u32 k) { return "p" + std::to_string(k); }

    static std::string tell(const std::string &line, int result = 0) {
        std::string reply(CHIP_REPLY, '\0');
        EXPECT_EQ(chip_command(line.c_str(), reply.data(), reply.size()), result)
            << line << ": " << reply.c_str();
        return reply.c_str();
    }

    void receive(u32 k, const Bytes &frame) {
        chip_device *from = home.open.at(device(k));
        chip_receive(from, from->slot, userlevel::frame_make(frame));
    }

    std::vector<Bytes> sent(u32 k) { return std::exchange(home.sent[device(k)], {}); }

    // The ports that have sent since the last time, each as often as it did: "2 3".
    std::string senders() {
        std::string ports;
        for (u32 k = 1; k <= PORTS; k++)
            for (std::size_t i = sent(k).size(); i > 0; i--)
                ports += (ports.empty() ? "" : " ") + std::to_string(k);
        return ports;
    }

    tarn_if *vlan_;
    tarn_if *ports_[PORTS + 1]{};
    userlevel::snapshot before_;
    bool records_stay_ = false;
};
