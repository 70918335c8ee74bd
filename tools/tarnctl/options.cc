#include "tarnctl/options.h"

#include "tarnctl/text.h"

#include <algorithm>
#include <fmt/format.h>

namespace tarnctl {

namespace {

constexpr int WAIT_SECONDS = 10;
constexpr std::size_t WAIT_DIGITS = 4;

const Option *option_of(const std::string &word) {
    auto option = std::find_if(options().begin(), options().end(), [&](const Option &one) {
        return one.word == word || (!one.short_word.empty() && one.short_word == word);
    });
    return option == options().end() ? nullptr : &*option;
}

bool is_number(const std::string &word) {
    return !word.empty() && word.size() <= WAIT_DIGITS &&
           word.find_first_not_of("0123456789") == std::string::npos;
}

// Whether the word behind an option, if there is one, belongs to it.
bool takes(const Option &option, const std::string *next) {
    if (option.value.empty() || (option.value.starts_with('[') && !(next && is_number(*next))))
        return false;
    if (!next)
        throw WordError(fmt::format("after '{}' comes {}", option.word, option.value));
    return true;
}

std::vector<std::string> option_words() {
    std::vector<std::string> words;
    for (const Option &option : options())
        words.emplace_back(option.word);
    return words;
}

std::string colon_or(const std::string &meant) {
    return meant.empty() ? ":" : meant;
}

void set(Settings &settings, const Option &option, const std::string &value) {
    if (option.word == "--json")
        settings.json = true;
    else if (option.word == "--force")
        settings.force = true;
    else if (option.word == "--statistics")
        settings.statistics = true;
    else if (option.word == "--brief")
        settings.brief = true;
    else if (option.word == "--color")
        settings.colours = true;
    else if (option.word == "--replace")
        settings.replace = true;
    else if (option.word == "--version")
        settings.version = true;
    else if (option.word == "--help")
        settings.help = true;
    else if (option.word == "--batch")
        settings.batch = value;
    else if (option.word == "--wait")
        settings.wait = value.empty() ? WAIT_SECONDS : std::stoi(value);
    else if (option.word == "--socket")
        settings.socket = value;
    else if (option.word == "--proc")
        settings.proc = value;
    else
        settings.control = value;
}

} // namespace

const std::vector<Option> &options() {
    static const std::vector<Option> all{
        {"--json", "-j", "", "shows as JSON"},
        {"--brief", "-b", "", "shows the least: state and ports; of 'show running' no comments"},
        {"--statistics", "-s", "",
         "'show interfaces' counts frames and drops, and measures rates for a second"},
        {"--color", "-c", "", "shows names, addresses and states in colour"},
        {"--batch", "", "FILE", "runs the lines of a file; - is the standard input"},
        {"--force", "", "", "goes on with a batch behind a line that fails"},
        {"--replace", "", "",
         "takes away what stands and contradicts, such as a VLAN with its members, to make it "
         "anew"},
        {"--socket", "", "PATH",
         "the netlink socket of tarn-switch (else $TARN_NETLINK; else the kernel, else "
         "/run/tarn/netlink)"},
        {"--proc", "", "PATH",
         "the proc tree: a folder, or the control socket of tarn-switch (else $TARN_PROC; else "
         "/proc/tarn, else the control socket)"},
        {"--control", "", "PATH",
         "the control socket of tarn-switch (else $TARN_CONTROL, else /run/tarn/control)"},
        {"--wait", "", "[SECONDS]",
         "waits for a switch that has yet to come, 10 seconds unless said otherwise"},
        {"--version", "-V", "", "says which version this is"},
        {"--help", "-h", "", "tells about the words before it"},
    };
    return all;
}

std::string option_label(const Option &option) {
    std::string label(option.word);
    if (!option.short_word.empty())
        label = fmt::format("{}, {}", option.short_word, label);
    return option.value.empty() ? label : fmt::format("{} {}", label, option.value);
}

Settings read_options(const Words &words) {
    Settings settings;
    for (std::size_t at = 0; at < words.size(); at++) {
        const std::string &word = words[at];
        if (word == "--") {
            settings.words.insert(settings.words.end(),
                                  words.begin() + static_cast<std::ptrdiff_t>(at) + 1, words.end());
            return settings;
        }
        const Option *option = option_of(word);
        if (!option && word.starts_with("-") && word.size() > 1 && settings.words.empty())
            throw WordError(fmt::format("unknown option '{}'{} 'tarnctl --help' lists them", word,
                                        colon_or(did_you_mean(word, option_words()))));
        if (!option) {
            settings.words.push_back(word);
            continue;
        }
        bool has_value = takes(*option, at + 1 < words.size() ? &words[at + 1] : nullptr);
        set(settings, *option, has_value ? words[++at] : "");
    }
    return settings;
}

} // namespace tarnctl
