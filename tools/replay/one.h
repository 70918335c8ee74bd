// One made-up frame instead of a capture.
#pragma once

#include "replay/replay.h"

namespace replay {

// Tells where the frame of the options would go, through chip and core. The module must have been
// loaded, and the chip started; `configured`: the switch is made. What replay() returns.
int explain_frame(const Options &options, bool configured);

// A line of the chip's, for config::apply.
std::string say_to_chip(const std::string &line, bool &ok);

} // namespace replay
