// The functions of the core that the commands of the control family call: what each was called
// with, and, where a test says so, a result instead of the call.
//
// A call that one of them makes itself is not told.
#pragma once

#include "kernel/types.h"

#include <optional>
#include <string>
#include <vector>

struct tarn_auth_supp;

struct NlCallees {
    bool traced = false;
    std::vector<std::string> calls; // "tarn_vlan_set_default_pvid 5201 20"

    // Not empty: given one after the other instead of making the calls; the last for the rest.
    std::vector<i32> results;
    std::size_t answered = 0;
    tarn_auth_supp *supplicant = nullptr; // found, with results
    int depth = 0;                        // of a call that is made
};

NlCallees &nl_callees();
