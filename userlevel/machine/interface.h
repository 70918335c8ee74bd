// Interfaces of the machine, asked and changed through its system calls. Nothing of the module's is
// known here: the module's own words for the same things would clash with the system's.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace machine {

// A TAP device of that name and number (0: any), without carrier: its descriptor, or -1 with *why
// set. It goes when the descriptor is closed.
int tap_open(const std::string &name, unsigned ifindex, std::string *why);
// 0 or -1.
int tap_set_carrier(int fd, bool on);

int interface_set_up(const std::string &name, bool up);
int interface_set_mtu(const std::string &name, unsigned mtu);
int interface_set_address(const std::string &name, const std::uint8_t *address);

// A packet socket that sends on the interface and receives its frames of that type (network order;
// 0: none), or -1.
int interface_open(unsigned ifindex, std::uint16_t ethertype);

using hardware_address = std::array<std::uint8_t, 6>;

struct link_state {
    unsigned ifindex = 0; // 0: there is no such interface
    std::string name = {};
    unsigned flags = 0; // IFF_*
    unsigned mtu = 0;
    hardware_address address = {};
    bool has_address = false;
    bool gone = false;
};
link_state interface_state(const std::string &name);

struct address_state {
    unsigned ifindex;
    int family; // AF_INET or AF_INET6
    std::array<std::uint8_t, 16> bytes;
    unsigned prefix;
    bool gone;
};

struct neighbour {
    unsigned ifindex;
    int family; // AF_INET or AF_INET6
    std::array<std::uint8_t, 16> bytes;
    hardware_address mac;
    bool is_by_hand;
};
// Those whose hardware address is known.
std::vector<neighbour> machine_neighbours(int family);
void machine_neighbour_delete(const neighbour &one);

// Tells of every interface and address that is there, then of every change, on a thread of its own.
// "" or what failed, in words.
std::string watch_interfaces(std::function<void(const link_state &)> link,
                             std::function<void(const address_state &)> address);

} // namespace machine
