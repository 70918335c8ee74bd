#include "replay/colour.h"

#include <cstdlib>
#include <fmt/color.h>
#include <unistd.h>

namespace replay {

namespace {

bool is_wanted() {
    const char *no = std::getenv("NO_COLOR"), *terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) && !(no && *no) && !(terminal && std::string(terminal) == "dumb");
}

fmt::terminal_color colour_of(Paint paint) {
    switch (paint) {
    case Paint::port:
        return fmt::terminal_color::cyan;
    case Paint::mac:
        return fmt::terminal_color::yellow;
    case Paint::ipv4:
        return fmt::terminal_color::magenta;
    case Paint::ipv6:
        return fmt::terminal_color::blue;
    case Paint::good:
        return fmt::terminal_color::green;
    case Paint::bad:
        return fmt::terminal_color::red;
    }
    return fmt::terminal_color::white;
}

} // namespace

Colour::Colour(const std::string &when)
    : on_(when == "always" || (when == "auto" && is_wanted())) {}

std::string Colour::operator()(Paint paint, const std::string &text) const {
    return on_ ? fmt::format(fmt::fg(colour_of(paint)), "{}", text) : text;
}

} // namespace replay
