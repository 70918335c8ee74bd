// What tarn-switch is told on its command line.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace live {

struct PortOption {
    std::string name, device;
};

struct MemberOption {
    std::string port;
    bool tagged;
};

struct VlanOption {
    unsigned vid;
    std::vector<MemberOption> members;
};

struct Options {
    std::vector<PortOption> ports;
    std::vector<VlanOption> vlans;
    std::vector<std::string> chip; // more words for the chip, a line each
    std::string address = "02:00:00:00:00:01";
    std::string control;             // path of the socket; empty: none
    std::string netlink;             // path of the control family's socket; empty: none
    std::string sockets;             // path of the protocol sockets; empty: none
    std::string proc;                // where to mount the files of /proc/tarn; empty: nowhere
    std::string group;               // who may reach those beside the owner; empty: nobody
    std::string config;              // a batch of tarnctl, run at the end; empty: none
    bool devices_in_process = false; // no TAP devices
    bool daemon = false;             // in the background, once it is ready
    std::string log;                 // what it says in the background; empty: nowhere
    std::vector<std::string> enable, disable;
    unsigned debug_log = 0; // 1 receive, 2 transmit
};

// Each throws CLI::ValidationError with what was wrong and what to write.
PortOption parse_port(const std::string &text); // NAME=DEVICE
VlanOption parse_vlan(const std::string &text); // VID=PORT[:tagged],...
gid_t parse_group(const std::string &text);     // a name or a number
// A port or a VLAN that was given twice: the second would take the place of the first.
void refuse_twice(const Options &options);

} // namespace live
