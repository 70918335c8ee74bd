// Values as people write them, turned into the bytes of attributes.
#pragma once

#include "client/message.h"
#include "tarnctl/command.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnctl {

// What is wrong with the words, and what was expected.
struct WordError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The ifindex of an interface by its name; 0 where nobody knows it.
using Resolver = std::function<std::uint32_t(const std::string &name)>;

struct Part {
    std::uint16_t attribute;
    client::Bytes value;
};

// One value of an argument: most are one part, some are two.
using Parts = std::vector<Part>;

// The values that the text stands for: several where a command is sent for each.
std::vector<Parts> read_value(const Argument &argument, const std::string &text,
                              const Resolver &resolver);

// A number as the attribute's type has it.
Part number_part(std::uint16_t attribute, std::uint32_t value);

// "a VLAN number from 1 to 4094": what belongs in the argument's place.
std::string expected(const Argument &argument);

std::vector<std::string> split(const std::string &text, char at);

} // namespace tarnctl
