#include "explain/order.h"

#include <charconv>
#include <sstream>

namespace explain {

namespace {

bool read_number(std::istream &words, unsigned long &number) {
    std::string word;
    if (!(words >> word))
        return false;
    auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return error == std::errc{} && end == word.data() + word.size() && number != 0;
}

} // namespace

std::string parse_order(const std::string &line, Order &order) {
    std::istringstream words(line);
    std::string word;
    words >> word; // "trace"
    while (words >> word) {
        bool good = true;
        if (word == "json")
            order.json = true;
        else if (word == "drops")
            order.filter.drops = true;
        else if (word == "port")
            good = static_cast<bool>(words >> order.filter.port);
        else if (word == "redirect")
            good = static_cast<bool>(words >> order.filter.redirect);
        else if (word == "count")
            good = read_number(words, order.count);
        else if (word == "seconds")
            good = read_number(words, order.seconds);
        else
            return "unknown word '" + word +
                   "': say 'trace [json] [port NAME] [redirect NAME] [drops] [count N] [seconds "
                   "N]'\n";
        if (!good)
            return "'" + word + "' wants a " +
                   (word == "port" || word == "redirect" ? "name" : "number from 1") +
                   " behind it\n";
    }
    return "";
}

} // namespace explain
