// Where frames end that the switch lets go: a driver that only remembers what it was told to send,
// and the devices of the layer 3 interfaces.
#pragma once

#include "kernel/types.h"

#include <string>
#include <vector>

namespace replay {

struct Sent {
    std::string port; // "" : on the VLAN as a whole
    u32 vid;
    bool tagged;
    std::size_t length;
};

struct Posted {
    std::string device;
    std::size_t length;
};

struct Ends {
    std::vector<Sent> sent;
    std::vector<Posted> kernel;
};

// Registers the driver. It leaves floods to the core, so that each port of one is seen.
void sinks_start();

// What the switch calls the port; "" for one that it does not know.
std::string port_name(u32 ifindex);

// What ended there since the last call.
Ends sinks_take();

} // namespace replay
