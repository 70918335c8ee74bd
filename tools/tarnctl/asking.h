// Before a command is sent the switch is asked how it stands: the family itself would make a VLAN
// anew over one that is there, or take what contradicts for done.
//
// What is so already is left as it is, and said. What contradicts is refused with what stands
// there, unless `replace` says that it is meant.
#pragma once

#include "tarnctl/parse.h"
#include "tarnctl/standing.h"

#include <string>
#include <vector>

namespace tarnctl {

struct Plan {
    std::vector<client::Message> messages = {}; // what is left to be sent
    std::vector<std::string> already = {};      // "VLAN 10 is already there"
    std::vector<std::string> refused = {};      // with what stands there
};

// Throws ProcMissing where the switch cannot be asked and the command could take down what stands.
Plan plan(Standing &standing, const Parsed &parsed, bool replace);

} // namespace tarnctl
