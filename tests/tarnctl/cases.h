// Lines and the messages that they are to be, byte for byte.
#pragma once

#include "tarnctl/fake_switch.h"

#include <vector>

struct Case {
    const char *line;
    std::vector<fake::Wire> messages;
};

const std::vector<Case> &cases();
