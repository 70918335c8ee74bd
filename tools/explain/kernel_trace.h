// The kernel's event tarn:redirect, for whoever watches the module.
#pragma once

#include "explain/order.h"

#include <functional>
#include <string>

namespace explain {

// Where the event is, such as "/sys/kernel/tracing"; "" where no module with it is loaded, or the
// files cannot be seen.
std::string kernel_trace_folder();

// Turns the event on, prints what is wanted until the order's end, and turns it off again, whatever
// ends it but SIGKILL. "" or what failed, in words.
std::string kernel_trace(const std::string &folder, const Order &order,
                         const std::function<void(const std::string &line)> &print);

} // namespace explain
