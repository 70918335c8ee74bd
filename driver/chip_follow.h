// What the chip takes over from the core: whatever it says of a port that it knows holds, and the
// chip's words are for the rest.
#pragma once

#include "kernel/types.h"

// From now on, and what there is at once; until follow_stop(), after which nothing is called.
void follow_start();
void follow_stop();

// A port was opened that the core may know.
void follow_port(u32 slot);
