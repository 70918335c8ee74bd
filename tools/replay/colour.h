// Words in colours, as `ip -c` has them.
#pragma once

#include <string>

namespace replay {

enum class Paint { port, mac, ipv4, ipv6, good, bad };

class Colour {
public:
    // "always", "never" or "auto": on a terminal, unless NO_COLOR (no-color.org) says no.
    explicit Colour(const std::string &when);
    std::string operator()(Paint paint, const std::string &text) const;

private:
    bool on_;
};

} // namespace replay
