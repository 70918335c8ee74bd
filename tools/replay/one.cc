#include "replay/one.h"

#include "chip.h"
#include "control.h"
#include "explain/one_frame.h"
#include "ifmgr/tarn_ifmgr.h"
#include "pkt/frame.h"
#include "plain_switch/plain_switch.h"
#include "vlan/vlan_member.h"

#include <cstdio>
#include <fmt/format.h>
#include <vector>

namespace replay {

namespace {

constexpr u32 PORTS = 4, LAST_PORT = 64;
constexpr u32 DEFAULT_VID = 1;

void open_port(u32 ifindex, const std::string &name) {
    bool ok = false; // not where it is open already
    say_to_chip(fmt::format("port {} {}", ifindex, name), ok);
}

u32 vid_of(const explain::Bytes &frame) {
    if (frame.size() < VLAN_TYPE_OFFSET ||
        (frame[ETH_TYPE_OFFSET] << 8 | frame[ETH_TYPE_OFFSET + 1]) != ETH_P_8021Q)
        return 0;
    return (frame[VLAN_TCI_OFFSET] << 8 | frame[VLAN_TCI_OFFSET + 1]) & 0xFFF;
}

bool is_vlan(u32 vid) {
    return vid > DEFAULT_VID && vid < TARN_VLAN_COUNT - 1;
}

// Four ports, untagged members of VLAN 1 and tagged ones of the frame's.
void build_switch(u32 vid) {
    plain_switch::add_vlan(DEFAULT_VID);
    if (is_vlan(vid))
        plain_switch::add_vlan(vid);
    for (u32 k = 1; k <= PORTS; k++) {
        const u32 ifindex = plain_switch::FIRST_PORT_IFINDEX + k;
        open_port(ifindex, fmt::format("port{}", k));
        plain_switch::add_member(plain_switch::add_port(k), DEFAULT_VID);
        tarn_vlan_set_default_pvid(ifindex, DEFAULT_VID);
        if (is_vlan(vid))
            tarn_vlan_add_vlan_to_port(ifindex, vid, 1);
    }
    userlevel::work_run();
}

// Those of the configured switch that no line of the chip has opened.
void open_ports() {
    for (u32 k = 1; k <= LAST_PORT; k++) {
        const u32 ifindex = plain_switch::FIRST_PORT_IFINDEX + k;
        if (std::string name = port_name(ifindex); !name.empty())
            open_port(ifindex, name);
    }
    userlevel::work_run();
}

int complain(const std::string &what) {
    fmt::print(stderr, "tarn-replay: {}\n", what);
    return 2;
}

} // namespace

std::string say_to_chip(const std::string &line, bool &ok) {
    static std::vector<char> reply(CHIP_REPLY);
    ok = chip_command(line.c_str(), reply.data(), reply.size()) == 0;
    return reply.data();
}

int explain_frame(const Options &options, bool configured) {
    explain::Bytes frame;
    if (std::string wrong = explain::parse_frame(options.frame, frame); !wrong.empty())
        return complain(wrong);
    if (configured)
        open_ports();
    else
        build_switch(vid_of(frame));
    const u32 ifindex = explain::find_port(options.port);
    if (ifindex == 0)
        return complain(options.port.empty()
                            ? "the switch has no port: give it one with an ifindex "
                              "from 5001"
                            : fmt::format("there is no port '{}'", options.port));
    explain::Story story;
    if (std::string wrong = explain::let_through(ifindex, frame, story); !wrong.empty())
        return complain(wrong);
    fmt::print("{}", options.json ? json_of(story) : text_of(story));
    return 0;
}

} // namespace replay
