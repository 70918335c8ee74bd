// Devices of the chip that take every frame and keep none.
#pragma once

#include "kernel/types.h"

#include <span>

// A frame arrives at a slot; nothing happens where no device is open.
void chip_ports_receive(u32 slot, std::span<const u8> bytes);
