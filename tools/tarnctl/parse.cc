#include "tarnctl/parse.h"

#include "tarnctl/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <utility>

namespace tarnctl {

namespace {

// An argument and what has been said of it.
struct Slot {
    const Argument *argument;
    std::optional<std::string> text = {};
    std::vector<const Choice *> said = {};
};

class Arguments {
public:
    Arguments(const Subcommand &row, const Words &words, std::size_t from) : row_(row) {
        for (const Argument &argument : row.arguments)
            slots_.push_back({&argument});
        for (std::size_t at = from; at < words.size();)
            at = take(words, at);
        for (const Slot &slot : slots_)
            require(slot);
    }

    const std::vector<Slot> &slots() const { return slots_; }

private:
    [[noreturn]] void wrong(const std::string &what) const {
        throw WordError(fmt::format("{}: {}\nusage: {}", row_.words, what, usage(row_)));
    }

    std::size_t take(const Words &words, std::size_t at) {
        if (take_flag(words[at]))
            return at + 1;
        if (Slot *slot = keyword(words[at]))
            return take_value(*slot, words, at);
        Slot *slot = place();
        if (!slot)
            wrong(fmt::format("unexpected word '{}'{}", words[at],
                              did_you_mean(words[at], unsaid())));
        if (slot->argument->kind == Kind::text)
            return take_rest(*slot, words, at);
        slot->text = words[at];
        return at + 1;
    }

    // Words that may still be said.
    std::vector<std::string> unsaid() const {
        std::vector<std::string> all;
        for (const Slot &slot : slots_) {
            if (!slot.argument->word.empty() && !slot.text)
                all.emplace_back(slot.argument->word);
            if (slot.argument->kind == Kind::flags)
                for (const Choice &choice : slot.argument->choices)
                    all.emplace_back(choice.word);
        }
        return all;
    }

    std::size_t take_value(Slot &slot, const Words &words, std::size_t at) {
        const Argument &argument = *slot.argument;
        if (slot.text)
            wrong(fmt::format("'{}' is said twice", argument.word));
        if (at + 1 == words.size())
            wrong(fmt::format("after '{}' comes {}: {}", argument.word, argument.name,
                              expected(argument)));
        slot.text = words[at + 1];
        return at + 2;
    }

    static std::size_t take_rest(Slot &slot, const Words &words, std::size_t at) {
        std::string rest;
        for (std::size_t word = at; word < words.size(); word++)
            rest += (word == at ? "" : " ") + words[word];
        slot.text = rest;
        return words.size();
    }

    bool take_flag(const std::string &word) {
        for (Slot &slot : slots_) {
            if (slot.argument->kind != Kind::flags)
                continue;
            for (const Choice &choice : slot.argument->choices) {
                if (choice.word != word)
                    continue;
                say(slot, choice);
                return true;
            }
        }
        return false;
    }

    void say(Slot &slot, const Choice &choice) {
        for (const Choice *before : slot.said) {
            if (before == &choice)
                wrong(fmt::format("'{}' is said twice", choice.word));
            if (before->word == choice.not_with)
                wrong(fmt::format("'{}' contradicts '{}'", choice.word, before->word));
        }
        slot.said.push_back(&choice);
    }

    Slot *keyword(const std::string &word) {
        auto slot = std::find_if(slots_.begin(), slots_.end(), [&](const Slot &one) {
            return !one.argument->word.empty() && one.argument->word == word;
        });
        return slot == slots_.end() ? nullptr : &*slot;
    }

    // The next value that goes by its place.
    Slot *place() {
        auto slot = std::find_if(slots_.begin(), slots_.end(), [](const Slot &one) {
            return one.argument->word.empty() && !one.argument->name.empty() && !one.text;
        });
        return slot == slots_.end() ? nullptr : &*slot;
    }

    void require(const Slot &slot) const {
        const Argument &argument = *slot.argument;
        if (!argument.needed() || argument.kind == Kind::fixed || slot.text || !slot.said.empty())
            return;
        std::string what = argument.kind == Kind::flags ? "a word"
                           : argument.word.empty()
                               ? std::string(argument.name)
                               : fmt::format("'{} {}'", argument.word, argument.name);
        wrong(fmt::format("{} is missing: {}", what, expected(argument)));
    }

    const Subcommand &row_;
    std::vector<Slot> slots_;
};

// A fixed value of an address is as many zeros as it has bytes.
client::Bytes zeros(std::uint16_t attribute, std::uint32_t value) {
    constexpr std::uint16_t MAC = 9;
    return attribute == MAC ? client::Bytes(6) : number_part(attribute, value).value;
}

// The values of one argument; more than one where a command is sent for each.
std::vector<Parts> values_of(const Slot &slot, const Resolver &resolver) {
    const Argument &argument = *slot.argument;
    if (argument.kind == Kind::fixed)
        return {{{argument.attribute, zeros(argument.attribute, argument.value)}}};
    if (argument.kind == Kind::flags) {
        std::uint32_t bits = 0;
        for (const Choice *choice : slot.said)
            bits |= choice->value;
        return {{number_part(argument.attribute, bits)}};
    }
    if (slot.text)
        return read_value(argument, *slot.text, resolver);
    if (argument.fallback.empty())
        return {{}};
    return read_value(argument, std::string(argument.fallback), resolver);
}

std::vector<Parts> combine(const std::vector<Parts> &before, const std::vector<Parts> &values) {
    std::vector<Parts> all;
    for (const Parts &parts : before) {
        for (const Parts &more : values) {
            all.push_back(parts);
            all.back().insert(all.back().end(), more.begin(), more.end());
        }
    }
    return all;
}

client::Message message_of(const Subcommand &row, const Parts &parts) {
    constexpr std::uint16_t VID = 4;
    bool one =
        row.command_one >= 0 && std::any_of(parts.begin(), parts.end(),
                                            [](const Part &part) { return part.attribute == VID; });
    client::Message message(static_cast<std::uint8_t>(one ? row.command_one : row.command));
    for (const Part &part : parts)
        message.bytes(part.attribute, part.value);
    return message;
}

std::vector<client::Message> messages_of(const Subcommand &row, const std::vector<Slot> &slots,
                                         const Resolver &resolver) {
    std::vector<Parts> all{{}};
    for (const Slot &slot : slots) {
        try {
            all = combine(all, values_of(slot, resolver));
        } catch (const WordError &error) {
            throw WordError(fmt::format("{}: {}", row.words, error.what()));
        }
    }
    std::vector<client::Message> messages;
    messages.reserve(all.size());
    for (const Parts &parts : all)
        messages.push_back(message_of(row, parts));
    return messages;
}

// How many of the row's words the line starts with.
bool starts_with(const Words &words, const Words &start) {
    return words.size() >= start.size() && std::equal(start.begin(), start.end(), words.begin());
}

Words row_words(const Subcommand &row) {
    return split(std::string(row.words), ' ');
}

std::string joined(const std::vector<std::string> &words, const char *between) {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : between) + word;
    return text;
}

[[noreturn]] void no_such_row(const Words &words) {
    Words known;
    while (known.size() < words.size()) {
        known.push_back(words[known.size()]);
        if (!rows_under(known).empty())
            continue;
        known.pop_back();
        break;
    }
    std::string next = joined(following(known), ", ");
    std::string after = known.empty() ? "" : fmt::format(" after '{}'", joined(known, " "));
    if (known.size() == words.size())
        throw WordError(fmt::format("a word is missing{}: say one of {}", after, next));
    const std::string &unknown = words[known.size()];
    std::string meant = did_you_mean(unknown, following(known));
    throw WordError(fmt::format("unknown word '{}'{}{} one of {}", unknown, after,
                                meant.empty() ? ": say" : meant + " Say", next));
}

// The word that the quote or the blank ends.
class Splitter {
public:
    explicit Splitter(const std::string &line) : line_(line) {}

    Words words() {
        while (at_ < line_.size())
            step();
        if (quote_)
            throw WordError(fmt::format("the quote {} does not end", quote_));
        end();
        return words_;
    }

private:
    void step() {
        char byte = line_[at_++];
        if (quote_) {
            quoted(byte);
        } else if (byte == '"' || byte == '\'') {
            quote_ = byte;
            open_ = true;
        } else if (byte == '\\' && at_ < line_.size()) {
            add(line_[at_++]);
        } else if (byte == '#' && !open_) {
            at_ = line_.size();
        } else if (byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n') {
            end();
        } else {
            add(byte);
        }
    }

    void quoted(char byte) {
        if (byte == quote_)
            quote_ = 0;
        else
            word_ += byte;
    }

    void add(char byte) {
        word_ += byte;
        open_ = true;
    }

    void end() {
        if (open_)
            words_.push_back(std::exchange(word_, {}));
        open_ = false;
    }

    const std::string &line_;
    std::size_t at_ = 0;
    char quote_ = 0;
    bool open_ = false; // a word has begun, if only with a quote
    std::string word_;
    Words words_;
};

std::string value_usage(const Argument &argument) {
    std::string name(argument.name);
    if (argument.kind == Kind::choice)
        name = "";
    for (const Choice &choice : argument.choices)
        if (argument.kind == Kind::choice)
            name += (name.empty() ? "" : "|") + std::string(choice.word);
    return argument.word.empty() ? name : fmt::format("{} {}", argument.word, name);
}

std::string flag_usage(const Argument &argument) {
    std::string text;
    for (const Choice &choice : argument.choices)
        text += fmt::format(" [{}]", choice.word);
    return text;
}

} // namespace

Words words_of(const std::string &line) {
    return Splitter(line).words();
}

std::vector<const Subcommand *> rows_under(const Words &words) {
    std::vector<const Subcommand *> rows;
    for (const Subcommand &row : subcommands())
        if (starts_with(row_words(row), words))
            rows.push_back(&row);
    return rows;
}

std::vector<std::string> following(const Words &words) {
    std::vector<std::string> next;
    for (const Subcommand *row : rows_under(words)) {
        Words of_row = row_words(*row);
        if (of_row.size() > words.size() &&
            std::find(next.begin(), next.end(), of_row[words.size()]) == next.end())
            next.push_back(of_row[words.size()]);
    }
    return next;
}

const Subcommand &row_of(const Words &words, std::size_t &used) {
    const Subcommand *found = nullptr;
    used = 0;
    for (const Subcommand &row : subcommands()) {
        Words of_row = row_words(row);
        if (of_row.size() > used && starts_with(words, of_row)) {
            found = &row;
            used = of_row.size();
        }
    }
    if (!found)
        no_such_row(words);
    return *found;
}

Parsed parse(const Words &words, const Resolver &resolver) {
    std::size_t used;
    const Subcommand &row = row_of(words, used);
    Arguments arguments(row, words, used);
    Parsed parsed{.row = &row, .messages = {}, .values = {}};
    for (const Slot &slot : arguments.slots()) {
        parsed.values.push_back(slot.text.value_or(std::string(slot.argument->fallback)));
        parsed.said.push_back(slot.text.has_value());
    }
    auto messages = messages_of(row, arguments.slots(), resolver);
    if (row.action == Action::message)
        parsed.messages = std::move(messages);
    return parsed;
}

std::string usage(const Subcommand &row) {
    std::string places, keywords, others;
    for (const Argument &argument : row.arguments) {
        if (argument.kind == Kind::fixed)
            continue;
        if (argument.kind == Kind::flags)
            others += flag_usage(argument);
        else if (!argument.needed())
            others += fmt::format(" [{}]", value_usage(argument));
        else
            (argument.word.empty() ? places : keywords) += " " + value_usage(argument);
    }
    return std::string(row.words) + places + keywords + others;
}

} // namespace tarnctl
