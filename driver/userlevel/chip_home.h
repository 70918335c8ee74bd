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
#include "kernel/types.h"

#include <span>

int chip_home_start(); // 0 or -errno
void chip_home_stop();

// From now on what leaves by a port goes there, and not to its device. For a copy of the process,
// in which nothing else runs.
void chip_home_send_to(void (*end)(u32 slot, std::span<const u8> frame));

// A device whose port cannot be opened (-EBUSY) is a port of that process, or (0) of one that is
// not known here.
int chip_home_holder(const char *device);
