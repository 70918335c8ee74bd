// Numbers of the packet path in words.
#pragma once

#include "kernel/types.h"

#include <span>
#include <string>

namespace explain {

// "stop, flood"; "none" for 0.
std::string flag_words(u32 flags);

// What a stop reason means to its redirect; "" where it has no meaning.
std::string reason_words(const std::string &redirect, u32 reason);

// "IPv4" for 0x0800; "" for a type without a name here.
std::string ethertype_words(u32 ethertype);

// The type word is a length (IEEE 802.3), and an LLC header follows it.
bool is_length(u32 ethertype);
// "LLC 0x42 spanning tree", "SNAP 00:00:0c 0x0111 UDLD"; "" where it is too short.
std::string llc_words(std::span<const u8> llc);

} // namespace explain
