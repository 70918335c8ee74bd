#include "tarnctl/table.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tarnctl {

namespace {

constexpr std::size_t BETWEEN = 2; // blanks between columns

constexpr std::string_view CODES[] = {"", "\033[36m", "\033[33m", "\033[32m", "\033[31m"};
constexpr std::string_view PLAIN = "\033[0m";

// In pieces that stay whole, each with the comma or blank that it ends with.
std::vector<std::string> pieces_of(const std::string &text) {
    std::vector<std::string> pieces;
    for (std::size_t from = 0, at; from < text.size(); from = at + 1) {
        at = std::min(text.find_first_of(", ", from), text.size() - 1);
        pieces.push_back(text.substr(from, at - from + 1));
    }
    return pieces;
}

// In lines that are no longer than the width, where a piece allows it.
std::vector<std::string> wrapped(const std::string &text, std::size_t width) {
    std::vector<std::string> lines{""};
    for (const std::string &piece : pieces_of(text)) {
        if (!lines.back().empty() && lines.back().size() + piece.size() > width)
            lines.emplace_back();
        lines.back() += piece;
    }
    return lines;
}

void put(std::string &line, const std::string &text, std::size_t width, Colour colour, bool colours,
         bool last) {
    line += coloured(text, colour, colours && !text.empty());
    if (!last)
        line += std::string(width - std::min(width, text.size()) + BETWEEN, ' ');
}

std::string without_blanks_at_the_end(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

std::string row_text(const std::vector<Cell> &cells, const std::vector<std::size_t> &widths,
                     bool colours) {
    std::vector<std::vector<std::string>> parts;
    std::size_t height = 1;
    for (std::size_t at = 0; at < cells.size(); at++) {
        parts.push_back(wrapped(cells[at].text, widths[at]));
        height = std::max(height, parts.back().size());
    }
    std::string text;
    for (std::size_t line = 0; line < height; line++) {
        std::string shown;
        for (std::size_t at = 0; at < cells.size(); at++)
            put(shown, line < parts[at].size() ? parts[at][line] : "", widths[at], cells[at].colour,
                colours, at + 1 == cells.size());
        text += without_blanks_at_the_end(shown);
    }
    return text;
}

} // namespace

std::string coloured(const std::string &text, Colour colour, bool wanted) {
    if (!wanted || colour == Colour::none)
        return text;
    return std::string(CODES[static_cast<std::size_t>(colour)]) + text + std::string(PLAIN);
}

// The widest gives way first, as far as its pieces do.
std::vector<std::size_t> Table::widths(std::size_t width) const {
    std::vector<std::size_t> all, least;
    for (const std::string &word : heading_) {
        all.push_back(word.size());
        least.push_back(word.size());
    }
    for (const auto &row : rows_) {
        for (std::size_t at = 0; at < row.size(); at++) {
            all[at] = std::max(all[at], row[at].text.size());
            for (const std::string &piece : pieces_of(row[at].text))
                least[at] = std::max(least[at], piece.size());
        }
    }
    const std::size_t between = BETWEEN * (all.size() - 1);
    while (width != 0 && std::accumulate(all.begin(), all.end(), between) > width) {
        std::size_t widest = all.size();
        for (std::size_t at = 0; at < all.size(); at++)
            if (all[at] > least[at] && (widest == all.size() || all[at] > all[widest]))
                widest = at;
        if (widest == all.size())
            break;
        all[widest]--;
    }
    return all;
}

std::string Table::text(std::size_t width, bool colours) const {
    auto columns = widths(width);
    std::vector<Cell> heading;
    for (const std::string &word : heading_)
        heading.push_back({word});
    std::string all = row_text(heading, columns, false);
    for (const auto &row : rows_)
        all += row_text(row, columns, colours);
    return all;
}

std::size_t terminal_width() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

} // namespace tarnctl
