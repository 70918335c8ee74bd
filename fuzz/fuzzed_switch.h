// A switch that a fuzzer changes as it likes, and its way back to what it was, so that an input
// alone repeats what was found.
#pragma once

#include "kernel/types.h"

#include <span>
#include <string>
#include <vector>

namespace fuzzed {

inline constexpr u32 PORTS = 3; // 5001 to 5003, members of VLANs 1 and 2; 5003 under 4501

// The module, with the chip under it. Once.
void load();

// Every interface goes, and with them what hangs on them; the plainest switch comes back.
void reset();

// After a reset: ends the process, saying what is alive that was not there after load(), or no
// longer, or what the files say that they did not. A closed socket leaves its record behind on
// purpose; there must be as many.
void must_have_lost_nothing(u32 closed_sockets = 0);

// The paths of all that is in /proc/tarn now, folder by folder.
std::vector<std::string> files();

// The input as a row of steps: what, which, length, bytes.
using Step = void (*)(u32 what, u32 which, std::span<const u8> bytes);
void run_steps(std::span<const u8> input, Step step);

} // namespace fuzzed
