// What somebody who watches wants to see: the words behind "trace".
#pragma once

#include "explain/event.h"

#include <string>

namespace explain {

struct Order {
    Filter filter;
    bool json = false;
    unsigned long count = 0; // 0: no end
    unsigned long seconds = 0;
};

// "" or what was wrong with the line, which begins with "trace".
std::string parse_order(const std::string &line, Order &order);

} // namespace explain
