#include "tarnctl/options.h"

#include <algorithm>
#include <fmt/format.h>

namespace tarnctl {

namespace {

const Option *option_of(const std::string &word) {
    auto option = std::find_if(options().begin(), options().end(), [&](const Option &one) {
        return one.word == word || (!one.short_word.empty() && one.short_word == word);
    });
    return option == options().end() ? nullptr : &*option;
}

void set(Settings &settings, const Option &option, const std::string &value) {
    if (option.word == "--json")
        settings.json = true;
    else if (option.word == "--force")
        settings.force = true;
    else if (option.word == "--help")
        settings.help = true;
    else if (option.word == "--batch")
        settings.batch = value;
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
        {"--batch", "", "FILE", "runs the lines of a file; - is the standard input"},
        {"--force", "", "", "goes on with a batch behind a line that fails"},
        {"--socket", "", "PATH",
         "the netlink socket of tarn-switch (else $TARN_NETLINK; else the kernel, else "
         "/run/tarn/netlink)"},
        {"--proc", "", "PATH",
         "the proc tree: a folder, or the control socket of tarn-switch (else $TARN_PROC; else "
         "/proc/tarn, else the control socket)"},
        {"--control", "", "PATH",
         "the control socket of tarn-switch (else $TARN_CONTROL, else /run/tarn/control)"},
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
            throw WordError(fmt::format("unknown option '{}': 'tarnctl --help' lists them", word));
        if (!option) {
            settings.words.push_back(word);
            continue;
        }
        if (!option->value.empty() && at + 1 == words.size())
            throw WordError(fmt::format("after '{}' comes {}", word, option->value));
        set(settings, *option, option->value.empty() ? "" : words[++at]);
    }
    return settings;
}

} // namespace tarnctl
