// The switch as a live process: the module, the chip under it, the machine's devices at both ends.
//
// What a control daemon does on a real switch is done here from the command line: ports and VLANs
// are declared to the module and to the chip alike, and a port's link is told to the module when
// its device gains or loses carrier.
#pragma once

#include "switch/options.h"

#include <string>

namespace live {

// Starts everything; "" or what failed and what to do, in words. Once a process.
std::string start(const Options &options);

// Runs one line of the control socket, for the switch ("show ...") or, after the word "chip", for
// the chip. The reply ends in a newline; `ok` says whether the line was good.
std::string command(const std::string &line, bool *ok);

// Takes every interface away again, in order: no device is left behind.
void stop();

} // namespace live
