#include "tarnctl/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <sstream>

namespace tarnctl {

namespace {

constexpr std::size_t LONGEST = 64; // a word that is longer is no slip of the finger

// Letters to put in, leave out, change or swap with their neighbour.
std::size_t slips(const std::string &from, const std::string &to) {
    std::vector<std::vector<std::size_t>> table(from.size() + 1,
                                                std::vector<std::size_t>(to.size() + 1));
    for (std::size_t i = 0; i <= from.size(); i++) {
        for (std::size_t j = 0; j <= to.size(); j++) {
            if (i == 0 || j == 0) {
                table[i][j] = i + j;
                continue;
            }
            bool same = from[i - 1] == to[j - 1];
            table[i][j] = std::min(
                {table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                table[i][j] = std::min(table[i][j], table[i - 2][j - 2] + 1);
        }
    }
    return table[from.size()][to.size()];
}

} // namespace

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream input(text);
    for (std::string line; std::getline(input, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> fields_of(const std::string &line) {
    std::vector<std::string> fields;
    std::istringstream input(line);
    for (std::string field; input >> field;)
        fields.push_back(field);
    return fields;
}

long number_of(const std::string &text, int base) {
    return std::strtol(text.c_str(), nullptr, base);
}

// A short word may have one slip, a longer one two.
std::string did_you_mean(const std::string &word, const std::vector<std::string> &known) {
    std::size_t best = word.size() < 5 ? 2 : 3;
    const std::string *nearest = nullptr;
    for (const std::string &one : known) {
        if (word.size() > LONGEST || one.size() > LONGEST || one.size() < 2)
            continue;
        std::size_t distance = slips(word, one);
        if (distance < best && distance < one.size()) {
            best = distance;
            nearest = &one;
        }
    }
    return nearest ? fmt::format("; did you mean '{}'?", *nearest) : "";
}

} // namespace tarnctl
