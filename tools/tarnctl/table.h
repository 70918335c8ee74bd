// Tables for people: columns as wide as their widest cell, lists wrapped where the terminal is
// narrower, colours as 'ip -c' has them.
#pragma once

#include <string>
#include <vector>

namespace tarnctl {

enum class Colour { none, name, address, good, bad };

// The text in that colour, or as it is.
std::string coloured(const std::string &text, Colour colour, bool wanted);

struct Cell {
    std::string text;
    Colour colour = Colour::none;
};

class Table {
public:
    explicit Table(std::vector<std::string> heading) : heading_(std::move(heading)) {}
    void row(std::vector<Cell> cells) { rows_.push_back(std::move(cells)); }
    // At most so many characters a line; 0: as many as it takes.
    std::string text(std::size_t width, bool colours) const;

private:
    std::vector<std::size_t> widths(std::size_t width) const;

    std::vector<std::string> heading_;
    std::vector<std::vector<Cell>> rows_;
};

// How wide the terminal is that the output goes to, 0 where it goes to none.
std::size_t terminal_width();

} // namespace tarnctl
