// Calls between the interface manager and the folders around it: passed on to the core's own code,
// with a trace for a test to read, and results that it can set.
#pragma once

#include "ifmgr/tarn_if.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace seams {

struct IfmgrCalls {
    bool traced = false;
    // "flags_set vlan10 0x1003", "create_proc port1", in the order in which they were made.
    std::vector<std::string> trace;

    // Given instead of making the call.
    std::optional<i32> flags_set_result, unbind_result, unbind_vlan_result;
    bool refuse_local_members = false;

    std::function<void(u32 ifindex)> before_lookup;
    std::function<void()> on_configure, on_unbind_vlan, on_flags_set;
};

IfmgrCalls &ifmgr();

// Runs the change and returns what it called.
std::vector<std::string> calls_of(const std::function<void()> &change);

} // namespace seams
