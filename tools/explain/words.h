// Numbers of the packet path in words.
#pragma once

#include "kernel/types.h"

#include <string>

namespace explain {

// "stop, flood"; "none" for 0.
std::string flag_words(u32 flags);

// What a stop reason means to its redirect; "" where it has no meaning.
std::string reason_words(const std::string &redirect, u32 reason);

// "IPv4" for 0x0800; "" for a type without a name here.
std::string ethertype_words(u32 ethertype);

} // namespace explain
