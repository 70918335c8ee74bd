// Events of the switch in words and as JSON, one line each.
#pragma once

#include "client/message.h"

#include <map>
#include <string>

namespace tarnctl {

// `names` of interfaces, as far as they are known.
using Names = std::map<std::uint32_t, std::string>;

std::string event_line(const client::Event &event, const Names &names);
std::string event_json(const client::Event &event, const Names &names);

} // namespace tarnctl
