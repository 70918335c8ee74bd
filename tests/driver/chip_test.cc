#include "chip_test.h"

#include "chip_trap.h"
#include "kernel/skb.h"
#include "port.h"

#include <sstream>

std::string device_of(u32 ifindex) {
    return "p" + std::to_string(ifindex - 100);
}

ChipTest::ChipTest() : before_(userlevel::take_snapshot()) {
    userlevel::clock_stop(1000);
    home.sent.clear();
    home.trapped.clear();
    home.facts = {};
    chip_start();
    for (u32 ifindex = 101; ifindex <= 104; ifindex++) {
        std::string port = std::to_string(ifindex);
        tell("port " + port + " " + device_of(ifindex));
        tell("vlan " + port + " 1 untagged");
        tell("pvid " + port + " 1");
    }
}

ChipTest::~ChipTest() {
    chip_stop();
    EXPECT_EQ(home.alive, 0) << "devices that somebody still holds";
    EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), "");
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), 0u);
}

std::string ChipTest::tell(const std::string &line) {
    std::string reply(CHIP_REPLY, '\0');
    EXPECT_EQ(chip_command(line.c_str(), reply.data(), reply.size()), 0)
        << line << ": " << reply.c_str();
    return reply.c_str();
}

std::string ChipTest::refuse(const std::string &line, int result) {
    std::string reply(1000, '\0');
    EXPECT_EQ(chip_command(line.c_str(), reply.data(), reply.size()), result) << line;
    return reply.c_str();
}

void ChipTest::receive(u32 ifindex, const Bytes &frame) {
    chip_device *device = home.open.at(device_of(ifindex));
    chip_receive(device, device->slot, userlevel::frame_make(frame));
}

std::vector<Bytes> ChipTest::sent(u32 ifindex) {
    return std::exchange(home.sent[device_of(ifindex)], {});
}

std::string ChipTest::ports_that_sent() {
    std::string ports;
    for (u32 ifindex = 101; ifindex <= 104; ifindex++)
        for (std::size_t i = 0; i < home.sent[device_of(ifindex)].size(); i++)
            ports += (ports.empty() ? "" : " ") + std::to_string(ifindex);
    home.sent.clear();
    return ports;
}

std::vector<Trapped> ChipTest::trapped() {
    return std::exchange(home.trapped, {});
}

std::string ChipTest::traps() {
    std::string names;
    for (const Trapped &one : trapped())
        for (u32 row = 0; row < trap_count(); row++)
            if (trap_row(row).cpu_code == one.meta.cpu_code)
                names += (names.empty() ? "" : " ") + std::string(trap_row(row).name);
    return names;
}

namespace {

unsigned long number_after(const std::string &text, const std::string &line_start,
                           const std::string &name) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(line_start + " "))
            continue;
        std::size_t at = line.find(" " + name + " ");
        return at == std::string::npos ? 0 : std::stoul(line.substr(at + name.size() + 2));
    }
    ADD_FAILURE() << "no line " << line_start << " in\n" << text;
    return 0;
}

} // namespace

unsigned long ChipTest::counter(u32 ifindex, const std::string &name) {
    return number_after(tell("show ports"), "port " + std::to_string(ifindex), name);
}

unsigned long ChipTest::hits(const std::string &trap) {
    return number_after(tell("show traps"), "trap " + trap, "hits");
}

u32 ChipTest::transmit(u32 ifindex, u32 vid, bool tagged, const Bytes &frame, u32 cos) {
    sk_buff *skb = userlevel::frame_make(frame);
    u32 result = home.callbacks.start_xmit(ifindex, vid, tagged, 0, skb, cos, 0, 1);
    if (result != 0)
        kfree_skb(skb);
    return result;
}

i32 ChipTest::flood(u32 ifindex, u32 vid, const Bytes &frame, u32 except0, u32 except1, u32 mask) {
    sk_buff *skb = userlevel::frame_make(frame);
    i32 result = home.callbacks.flood_except(ifindex, vid, except0, except1, skb, 0, 0, mask, 0, 0);
    if (result != 0)
        kfree_skb(skb);
    return result;
}
