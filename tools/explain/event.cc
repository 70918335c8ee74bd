#include "explain/event.h"

#include "explain/words.h"
#include "pkt/pkt_info.h"

#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace explain {

namespace {

constexpr std::size_t PORT_NAME = 16, REDIRECT_NAME = 20;

std::string name_of(const char *name, std::size_t room) {
    return name ? std::string(name, strnlen(name, room)) : "";
}

std::string mac_text(const std::array<u8, 6> &mac) {
    return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3],
                       mac[4], mac[5]);
}

// --- a line of the kernel's trace
// -------------------------------------------------------------------

constexpr const char *MARK = " redirect: frame=";

// The value of "name=value" or name="value" behind the mark.
std::optional<std::string> word_of(const std::string &line, const std::string &name) {
    std::size_t at = line.find(" " + name + "=");
    if (at == std::string::npos)
        return std::nullopt;
    at += name.size() + 2;
    bool quoted = at < line.size() && line[at] == '"';
    std::size_t from = quoted ? at + 1 : at;
    std::size_t to = line.find(quoted ? '"' : ' ', from);
    return line.substr(from, to == std::string::npos ? to : to - from);
}

bool read_number(const std::string &line, const std::string &name, u32 &number) {
    auto word = word_of(line, name);
    if (!word)
        return false;
    number = static_cast<u32>(std::strtoul(word->c_str(), nullptr, 0));
    return true;
}

bool read_mac(const std::string &line, const std::string &name, std::array<u8, 6> &mac) {
    auto word = word_of(line, name);
    return word && std::sscanf(word->c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0],
                               &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]) == 6;
}

bool read_name(const std::string &line, const std::string &name, std::string &text) {
    auto word = word_of(line, name);
    if (word)
        text = *word == "-" ? "" : *word;
    return word.has_value();
}

} // namespace

Event copy_of(const redirect_event &event) {
    Event copy{.frame = reinterpret_cast<std::uintptr_t>(event.frame),
               .port = name_of(event.port, PORT_NAME),
               .ifindex = event.ifindex,
               .vid = event.vid,
               .ethertype = event.ethertype,
               .length = event.length,
               .redirect = name_of(event.redirect, REDIRECT_NAME),
               .slot = event.slot,
               .flags = event.flags,
               .reason = event.reason,
               .rule = event.rule ? event.rule : "",
               .number = event.number ? event.number : "",
               .measured = event.measured,
               .limit = event.limit};
    std::memcpy(copy.source.data(), event.source, copy.source.size());
    std::memcpy(copy.destination.data(), event.destination, copy.destination.size());
    return copy;
}

std::optional<Event> parse_trace_line(const std::string &line) {
    std::size_t mark = line.find(MARK);
    if (mark == std::string::npos)
        return std::nullopt;
    const std::string rest = line.substr(mark);
    Event event;
    event.frame = std::strtoull(rest.c_str() + std::strlen(MARK), nullptr, 16);
    bool whole =
        read_name(rest, "port", event.port) && read_number(rest, "ifindex", event.ifindex) &&
        read_number(rest, "vid", event.vid) && read_number(rest, "type", event.ethertype) &&
        read_number(rest, "len", event.length) && read_mac(rest, "dst", event.destination) &&
        read_mac(rest, "src", event.source) && read_name(rest, "redirect", event.redirect) &&
        read_number(rest, "slot", event.slot) && read_number(rest, "flags", event.flags) &&
        read_number(rest, "reason", event.reason) && read_name(rest, "rule", event.rule) &&
        read_name(rest, "number", event.number) && read_number(rest, "measured", event.measured) &&
        read_number(rest, "limit", event.limit);
    return whole ? std::optional(event) : std::nullopt;
}

bool is_drop(const Event &event) {
    return event.redirect.empty() || event.flags == REDIRECT_STOP;
}

std::string why_text(const std::string &rule, const std::string &number, u32 measured, u32 limit) {
    return number.empty() ? rule
                          : fmt::format("{}, {} {}, limit {}", rule, number, measured, limit);
}

std::string verdict_text(const Event &event) {
    std::string why = why_text(event.rule, event.number, event.measured, event.limit);
    if (event.redirect.empty())
        return why;
    std::string text = event.flags == 0 ? "no decision" : flag_words(event.flags);
    if (event.flags & REDIRECT_STOP) {
        std::string meaning = reason_words(event.redirect, event.reason);
        text += fmt::format("; reason {}{}{}", event.reason, meaning.empty() ? "" : ": ", meaning);
    }
    return why.empty() ? text : text + "; why: " + why;
}

std::string line_of(const Event &event) {
    std::string type = ethertype_words(event.ethertype);
    return fmt::format("{} vid {} {} > {} {} {} bytes  {}: {}",
                       event.port.empty() ? "-" : event.port, event.vid, mac_text(event.source),
                       mac_text(event.destination),
                       type.empty() ? fmt::format("0x{:04x}", event.ethertype) : type, event.length,
                       event.redirect.empty() ? "pipeline" : event.redirect, verdict_text(event));
}

std::string json_of(const Event &event) {
    nlohmann::ordered_json line{{"frame", event.frame},
                                {"port", event.port},
                                {"ifindex", event.ifindex},
                                {"vid", event.vid},
                                {"ethertype", fmt::format("0x{:04x}", event.ethertype)},
                                {"len", event.length},
                                {"src", mac_text(event.source)},
                                {"dst", mac_text(event.destination)},
                                {"redirect", event.redirect},
                                {"slot", event.slot},
                                {"flags", event.flags},
                                {"reason", event.reason},
                                {"words", reason_words(event.redirect, event.reason)},
                                {"rule", event.rule},
                                {"drop", is_drop(event)}};
    if (!event.number.empty()) {
        line["number"] = event.number;
        line["measured"] = event.measured;
        line["limit"] = event.limit;
    }
    return line.dump();
}

bool Filter::wants(const Event &event) const {
    return (port.empty() || port == event.port) &&
           (redirect.empty() || redirect == event.redirect) && (!drops || is_drop(event));
}

} // namespace explain
