// The options of tarnctl, before or behind its words.
#pragma once

#include "tarnctl/parse.h"

#include <string>
#include <string_view>
#include <vector>

namespace tarnctl {

struct Option {
    std::string_view word, short_word, value; // "--socket", "", "PATH"; one in brackets is a number
                                              // that may follow
    std::string_view help;
};

const std::vector<Option> &options();
std::string option_label(const Option &option);

struct Settings {
    bool json = false, force = false, help = false, replace = false, version = false;
    bool statistics = false, brief = false, colours = false;
    int wait = 0; // seconds
    std::string socket, proc, control, batch;
    Words words;
};

// Takes the options out of the words. Throws WordError.
Settings read_options(const Words &words);

} // namespace tarnctl
