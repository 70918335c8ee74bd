// The attributes of the family by name and type, for whoever builds or shows them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace client {

enum class Type { none, u8, u16, u32, bytes, text };

struct AttributeInfo {
    std::string_view name; // "IFINDEX", as in TARNFWD_ATTR_IFINDEX
    Type type;
};

// Of an unknown number, an empty name.
AttributeInfo attribute_info(std::uint16_t number);

// "IF_NEWLINK", as in TARNFWD_CMD_IF_NEWLINK; "" for an unknown number.
std::string_view command_name(std::uint8_t number);

// What an error of the switch means, with its number and name; "" for 0.
std::string error_words(int error);

} // namespace client
