#include "tarnctl/help.h"

#include "tarnctl/options.h"

#include <algorithm>
#include <fmt/format.h>

namespace tarnctl {

namespace {

constexpr std::size_t WIDTH = 96;

// The text in lines that are not too long, all but the first behind `indent` blanks.
std::string wrapped(std::string_view text, std::size_t indent) {
    std::string lines;
    std::size_t column = indent;
    for (const std::string &word : split(std::string(text), ' ')) {
        if (column + word.size() > WIDTH && column > indent) {
            lines += "\n" + std::string(indent, ' ');
            column = indent;
        }
        lines += (column == indent ? "" : " ") + word;
        column += word.size() + 1;
    }
    return lines;
}

std::string row_help(const Subcommand &row) {
    constexpr std::size_t LABEL = 26;
    std::string text =
        fmt::format("tarnctl {}\n\n{}\n", wrapped(usage(row), 8), wrapped(row.help, 0));
    std::string places, others;
    for (const Argument &argument : row.arguments) {
        std::string label = argument_label(argument);
        if (label.empty())
            continue;
        std::string between = label.size() < LABEL ? std::string(LABEL - label.size(), ' ')
                                                   : "\n" + std::string(LABEL + 2, ' ');
        (argument.word.empty() && argument.kind != Kind::flags ? places : others) +=
            fmt::format("  {}{}{}\n", label, between, wrapped(argument_help(argument), LABEL + 2));
    }
    std::string arguments = places + others;
    if (!arguments.empty())
        text += "\n" + arguments;
    if (!row.example.empty())
        text += fmt::format("\nexample: tarnctl {}\n", row.example);
    return text;
}

std::string rows_help(const std::vector<const Subcommand *> &rows) {
    std::string text;
    for (const Subcommand *row : rows)
        text += fmt::format("tarnctl {}\n    {}\n", wrapped(usage(*row), 8), wrapped(row->help, 4));
    return text + "\n'--help' behind one of them tells more.\n";
}

std::string all_help() {
    std::string text =
        "tarnctl [OPTIONS] WORDS...    configures the switch and shows what it does\n\n";
    for (const Topic &topic : topics())
        text += fmt::format("  {:<12}{}\n", topic.word, topic.help);
    text += "\n'tarnctl TOPIC --help' lists what belongs to one.\n\n";
    for (const Option &option : options())
        text += fmt::format("  {:<22}{}\n", option_label(option), wrapped(option.help, 24));
    return text + "\nExit status: 0 done; 1 the switch refused it; 2 words that are wrong, or no "
                  "switch.\n";
}

} // namespace

std::string argument_label(const Argument &argument) {
    std::string label;
    if (argument.kind != Kind::flags)
        return argument.word.empty() ? std::string(argument.name)
                                     : fmt::format("{} {}", argument.word, argument.name);
    for (const Choice &choice : argument.choices)
        label += (label.empty() ? "" : " ") + std::string(choice.word);
    return label;
}

std::string argument_help(const Argument &argument) {
    std::string text(argument.help);
    if (argument.kind != Kind::word && argument.kind != Kind::text && argument.kind != Kind::flags)
        text += fmt::format(" ({})", expected(argument));
    if (!argument.fallback.empty())
        text += fmt::format("; else {}", argument.fallback);
    return text;
}

std::string help(const Words &words) {
    if (words.empty())
        return all_help();
    for (const Subcommand *row : rows_under(words))
        if (split(std::string(row->words), ' ').size() == words.size() && following(words).empty())
            return row_help(*row);
    if (auto rows = rows_under(words); !rows.empty())
        return rows_help(rows);
    std::size_t used;
    return row_help(row_of(words, used));
}

} // namespace tarnctl
