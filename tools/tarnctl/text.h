// Texts that others wrote, taken apart; and the word that somebody may have meant.
#pragma once

#include <string>
#include <vector>

namespace tarnctl {

std::vector<std::string> lines_of(const std::string &text);
std::vector<std::string> fields_of(const std::string &line); // between blanks
long number_of(const std::string &text, int base = 10);

// "; did you mean 'link'?" for a word that is nearly one of those, else "".
std::string did_you_mean(const std::string &word, const std::vector<std::string> &known);

} // namespace tarnctl
