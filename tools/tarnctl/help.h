// What the table says of itself: help at every level, completion and the manual page.
#pragma once

#include "tarnctl/parse.h"

#include <string>

namespace tarnctl {

// All topics for no words, the rows under them else. Throws WordError for words that are none.
std::string help(const Words &words);

// "mac MAC", and what it is, what is expected and what is meant without it.
std::string argument_label(const Argument &argument);
std::string argument_help(const Argument &argument);

// What may stand where the last of the words is, which may be begun or empty. `names` are the
// interfaces that are known, `redirects` the redirects.
struct Known {
    std::vector<std::string> interfaces, redirects;
};
std::vector<std::string> complete(const Words &words, const Known &known);

// A script for bash. Its table of words is its own; for arguments it asks `tarnctl --complete`.
std::string completion_script();

// For man, section 8.
std::string manual();

} // namespace tarnctl
