// Words against the table: which row they are, and what it makes of its arguments.
#pragma once

#include "client/message.h"
#include "tarnctl/values.h"

#include <string>
#include <vector>

namespace tarnctl {

using Words = std::vector<std::string>;

// What is left of a line: its words, up to a '#' that starts one. "a b", 'a b' and \x are one word.
// Throws WordError for a quote that does not end.
Words words_of(const std::string &line);

// The row whose words the line starts with; its arguments follow `used` words. Throws WordError,
// which says what may follow.
const Subcommand &row_of(const Words &words, std::size_t &used);

// What may follow these words of the table: "add", "del" after "link". Empty for none of its words.
std::vector<std::string> following(const Words &words);
// The rows that start with these words.
std::vector<const Subcommand *> rows_under(const Words &words);

struct Parsed {
    const Subcommand *row;
    std::vector<client::Message> messages;
    std::vector<std::string>
        values;                  // of the arguments in their order, as written; "" where left out
    std::vector<bool> said = {}; // which of them were written
};

Parsed parse(const Words &words, const Resolver &resolver);

// "link add port NAME ifindex IFINDEX ..."
std::string usage(const Subcommand &row);

} // namespace tarnctl
