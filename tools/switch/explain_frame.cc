#include "switch/explain_frame.h"

#include "control.h"
#include "explain/on_a_copy.h"
#include "explain/one_frame.h"
#include "userlevel/chip_home.h"

namespace live {

namespace {

constexpr char REFUSED = '!'; // before what is wrong

// In the copy.
std::string tell(u32 ifindex, const explain::Bytes &frame, bool json) {
    userlevel::log_echo(false);
    userlevel::log_keep(true);
    chip_home_send_to(explain::note_sent);
    explain::Story story;
    std::string wrong = explain::let_through(ifindex, frame, story);
    if (!wrong.empty())
        return REFUSED + wrong;
    return json ? json_of(story) : text_of(story) + "This was tried on a copy of the switch.\n";
}

std::string take_word(std::string &words) {
    std::size_t end = words.find(' ');
    std::string word = words.substr(0, end);
    words.erase(0, end == std::string::npos ? end : end + 1);
    return word;
}

} // namespace

std::string explain_frame(const std::string &words, bool *ok) {
    std::string rest = words;
    std::string port = take_word(rest);
    const bool json = port == "json";
    if (json)
        port = take_word(rest);
    *ok = false;
    const u32 ifindex = port.empty() ? 0 : explain::find_port(port);
    if (ifindex == 0)
        return "the chip has no port '" + port + "': say 'explain [json] PORT HEX'\n";
    explain::Bytes frame;
    if (std::string wrong = explain::parse_frame(rest, frame); !wrong.empty())
        return wrong + "\n";
    auto told = explain::on_a_copy([&] { return tell(ifindex, frame, json); });
    if (!told || told->empty())
        return "no copy of the switch answered; it may be too busy\n";
    *ok = told->front() != REFUSED;
    return *ok ? *told : told->substr(1) + "\n";
}

} // namespace live
