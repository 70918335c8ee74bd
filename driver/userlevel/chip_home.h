// The chip in a process: ports on devices by packet sockets, and the thread that receives.
//
//   chip_home_start();                        // a chip with no ports; registers with the core
//   chip_command("port 101 veth0", reply, sizeof(reply));
//   ...
//   chip_home_stop();                         // closes all ports and ends the thread
//
// Needs CAP_NET_RAW where the devices are.
#pragma once

#include "chip.h"

int chip_home_start(); // 0 or -errno
void chip_home_stop();
