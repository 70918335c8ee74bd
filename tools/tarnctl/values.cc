#include "tarnctl/values.h"

#include "client/attributes.h"
#include "tarnctl/standing.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <tarn/tarnfwd_nl.h>

namespace tarnctl {

namespace {

using client::Bytes;

constexpr std::uint32_t FIRST_VID = 1, LAST_VID = VID_LAST;
constexpr std::size_t BITMAP_LENGTH = 512;
constexpr std::uint32_t LAST_INSTANCE = 63;
constexpr std::size_t NAME_MAX_LENGTH = 15;
constexpr std::size_t RULES_MAX = 255;
constexpr std::size_t UPSTREAM_MAX = client::ATTRIBUTE_MAX / sizeof(tarnfwd_upstream);
constexpr std::size_t PORTS_MAX = client::ATTRIBUTE_MAX / sizeof(std::uint16_t);

// What a reader of one part of a value finds wrong; read_value adds the argument and the text.
struct Wrong : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Decimal, or hexadecimal after 0x; the whole text.
std::optional<std::uint32_t> number_of(std::string_view text) {
    int base = 10;
    if (text.starts_with("0x")) {
        base = 16;
        text.remove_prefix(2);
    }
    std::uint32_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc{} || end != text.data() + text.size() || text.empty())
        return std::nullopt;
    return value;
}

std::uint32_t number_between(std::string_view text, std::uint32_t low, std::uint32_t high) {
    auto value = number_of(text);
    if (!value || *value < low || *value > high)
        throw Wrong("");
    return *value;
}

// 10,20-30 as numbers in order, each once.
std::vector<std::uint32_t> read_list(const std::string &text, std::uint32_t low,
                                     std::uint32_t high) {
    std::set<std::uint32_t> numbers;
    for (const std::string &item : split(text, ',')) {
        auto ends = split(item, '-');
        if (ends.size() > 2)
            throw Wrong("'" + item + "' is no range");
        std::uint32_t from = number_between(ends[0], low, high);
        std::uint32_t to = ends.size() == 2 ? number_between(ends[1], low, high) : from;
        if (to < from)
            throw Wrong("the range '" + item + "' runs backwards");
        for (std::uint32_t number = from; number <= to; number++)
            numbers.insert(number);
    }
    return {numbers.begin(), numbers.end()};
}

std::optional<std::uint32_t> chosen(const Argument &argument, std::string_view text) {
    for (const Choice &choice : argument.choices)
        if (choice.word == text)
            return choice.value;
    return std::nullopt;
}

std::uint32_t largest(std::uint16_t attribute) {
    switch (client::attribute_info(attribute).type) {
    case client::Type::u8:
        return 0xFF;
    case client::Type::u16:
        return 0xFFFF;
    default:
        return 0xFFFFFFFF;
    }
}

Bytes mac_of(const std::string &text) {
    Bytes bytes;
    for (const std::string &part : split(text, ':')) {
        auto byte = part.size() == 2 ? number_of("0x" + part) : std::nullopt;
        if (!byte)
            throw Wrong("");
        bytes.push_back(static_cast<std::uint8_t>(*byte));
    }
    if (bytes.size() != 6)
        throw Wrong("");
    return bytes;
}

// Of one station: frames come from no other.
Bytes station_of(const std::string &text) {
    Bytes bytes = mac_of(text);
    if (bytes[0] & 1)
        throw Wrong("that is the address of a group");
    if (std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; }))
        throw Wrong("that is no station's address");
    return bytes;
}

Bytes ipv4_of(const std::string &text) {
    Bytes bytes(4);
    if (inet_pton(AF_INET, text.c_str(), bytes.data()) != 1)
        throw Wrong("");
    return bytes;
}

template <typename Record>
void append(Bytes &bytes, const Record &record) {
    const auto *from = reinterpret_cast<const std::uint8_t *>(&record);
    bytes.insert(bytes.end(), from, from + sizeof(record));
}

std::uint32_t ifindex_of(const std::string &text, const Resolver &resolver) {
    if (auto number = number_of(text))
        return *number;
    std::uint32_t ifindex = resolver ? resolver(text) : 0;
    if (ifindex == 0)
        throw Wrong("no interface of that name is known");
    return ifindex;
}

// p1,p2,5003 in that order, each once.
std::vector<std::uint32_t> ifindexes_of(const std::string &text, const Resolver &resolver) {
    std::vector<std::uint32_t> all;
    for (const std::string &name : split(text, ',')) {
        std::uint32_t ifindex = ifindex_of(name, resolver);
        if (std::find(all.begin(), all.end(), ifindex) == all.end())
            all.push_back(ifindex);
    }
    return all;
}

std::string name_of(const std::string &text) {
    bool wrong = text.empty() || text == "." || text == ".." || text.size() > NAME_MAX_LENGTH ||
                 text.find_first_of("/ \t\n:") != std::string::npos || number_of(text);
    if (wrong)
        throw Wrong("");
    return text;
}

std::vector<std::uint32_t> vids_of(const std::string &text) {
    return read_list(text, FIRST_VID, LAST_VID);
}

Bytes bitmap_of(const std::vector<std::uint32_t> &vids) {
    std::array<std::uint32_t, BITMAP_LENGTH / 4> words{};
    for (std::uint32_t vid : vids)
        words[vid >> 5] |= std::uint32_t{1} << (vid & 31);
    Bytes bytes;
    append(bytes, words);
    return bytes;
}

std::vector<Parts> each(std::uint16_t attribute, const std::vector<std::uint32_t> &numbers,
                        std::uint32_t base = 0) {
    std::vector<Parts> all;
    all.reserve(numbers.size());
    for (std::uint32_t number : numbers)
        all.push_back({number_part(attribute, base + number)});
    return all;
}

// Neighbouring VIDs become one range, whose end is not in it.
std::vector<Parts> ranges_of(std::uint16_t attribute, const std::vector<std::uint32_t> &vids) {
    std::vector<Parts> all;
    for (std::size_t from = 0, to; from < vids.size(); from = to) {
        for (to = from + 1; to < vids.size() && vids[to] == vids[to - 1] + 1;)
            to++;
        all.push_back(
            {number_part(attribute, vids[from]), number_part(attribute + 1, vids[to - 1] + 1)});
    }
    return all;
}

// One VID has an attribute of its own, several share the bitmap.
Parts vid_or_bitmap(const std::vector<std::uint32_t> &vids) {
    if (vids.size() == 1)
        return {number_part(TARNFWD_ATTR_VID, vids[0])};
    return {{TARNFWD_ATTR_VID_BITMAP, bitmap_of(vids)}};
}

std::uint32_t bits_of(const Argument &argument, const std::string &text) {
    if (text == "none")
        return 0;
    if (auto number = number_of(text); number && *number <= largest(argument.attribute))
        return *number;
    std::uint32_t bits = 0;
    for (const std::string &word : split(text, ',')) {
        auto bit = chosen(argument, word);
        if (!bit)
            throw Wrong("'" + word + "' is none of them");
        bits |= *bit;
    }
    return bits;
}

Parts subnet_of(std::uint16_t attribute, const std::string &text) {
    auto parts = split(text, '/');
    if (parts.size() != 2)
        throw Wrong("");
    return {{attribute, ipv4_of(parts[0])},
            number_part(attribute + 1, number_between(parts[1], 0, 32))};
}

Bytes ports_of(const std::string &text) {
    Bytes bytes;
    if (text == "none")
        return bytes;
    auto all = split(text, ',');
    if (all.size() > PORTS_MAX)
        throw Wrong("too many");
    for (const std::string &port : all)
        append(bytes, static_cast<std::uint16_t>(number_between(port, 1, 65535)));
    return bytes;
}

std::uint8_t protocol_of(const std::string &text) {
    if (text == "tcp")
        return 6;
    if (text == "udp")
        return 17;
    return static_cast<std::uint8_t>(number_between(text, 0, 255));
}

// ADDRESS/LENGTH[:PORT[/PROTOCOL]], as the switch shows them.
tarnfwd_fwd_rule rule_of(const std::string &text) {
    auto sides = split(text, ':');
    auto subnet = split(sides[0], '/');
    if (sides.size() > 2 || subnet.size() > 2)
        throw Wrong("");
    tarnfwd_fwd_rule rule{};
    rule.family = 2;
    rule.prefix_len =
        static_cast<std::uint8_t>(subnet.size() == 2 ? number_between(subnet[1], 0, 32) : 32);
    Bytes address = ipv4_of(subnet[0]);
    std::copy(address.begin(), address.end(), rule.address);
    if (sides.size() == 1)
        return rule;
    auto service = split(sides[1], '/');
    if (service.size() > 2)
        throw Wrong("");
    rule.port = static_cast<std::uint16_t>(number_between(service[0], 0, 65535));
    rule.protocol = service.size() == 2 ? protocol_of(service[1]) : std::uint8_t{0};
    return rule;
}

Bytes rules_of(const std::string &text) {
    Bytes bytes;
    if (text == "none")
        return bytes;
    auto all = split(text, ',');
    if (all.size() > RULES_MAX)
        throw Wrong("at most 255 fit");
    for (const std::string &rule : all)
        append(bytes, rule_of(rule));
    return bytes;
}

Bytes upstream_of(const std::string &text, const Resolver &resolver) {
    Bytes bytes;
    auto all = split(text, ',');
    if (all.size() > UPSTREAM_MAX)
        throw Wrong("too many");
    for (const std::string &one : all) {
        auto parts = split(one, ':');
        if (parts.size() != 3 || (parts[0] != "add" && parts[0] != "del"))
            throw Wrong("");
        append(bytes, tarnfwd_upstream{.operation = parts[0] == "add" ? 1u : 0u,
                                       .vid = number_between(parts[1], FIRST_VID, LAST_VID),
                                       .ifindex = ifindex_of(parts[2], resolver)});
    }
    return bytes;
}

std::uint32_t number_or_choice(const Argument &argument, const std::string &text) {
    if (auto value = chosen(argument, text))
        return *value;
    if (argument.kind == Kind::choice)
        return number_between(text, 0, largest(argument.attribute));
    return number_between(text, argument.low, argument.high);
}

std::uint32_t on_or_off(const std::string &text) {
    if (text != "on" && text != "off")
        throw Wrong("");
    return text == "on";
}

Bytes terminated(const std::string &text) {
    const auto *from = reinterpret_cast<const std::uint8_t *>(text.c_str());
    return {from, from + text.size() + 1};
}

std::vector<Parts> read(const Argument &argument, const std::string &text,
                        const Resolver &resolver) {
    const std::uint16_t attribute = argument.attribute;
    switch (argument.kind) {
    case Kind::fixed:
    case Kind::flags:
    case Kind::word:
    case Kind::text:
        return {{}};
    case Kind::new_name:
        return {{{attribute, terminated(name_of(text))}}};
    case Kind::interface:
        return each(attribute, ifindexes_of(text, resolver));
    case Kind::vid:
        return {{number_part(attribute, number_between(text, FIRST_VID, LAST_VID))}};
    case Kind::vids:
        return each(attribute, vids_of(text));
    case Kind::vid_ranges:
        return ranges_of(attribute, vids_of(text));
    case Kind::vid_or_bitmap:
        return {vid_or_bitmap(vids_of(text))};
    case Kind::vlan_interface:
        return {{number_part(attribute,
                             VLAN_IFINDEX_BASE + number_between(text, FIRST_VID, LAST_VID))}};
    case Kind::vlan_interfaces:
        return each(attribute, vids_of(text), VLAN_IFINDEX_BASE);
    case Kind::number:
    case Kind::choice:
        return {{number_part(attribute, number_or_choice(argument, text))}};
    case Kind::bits:
        return {{number_part(attribute, bits_of(argument, text))}};
    case Kind::on_off:
        return {{number_part(attribute, on_or_off(text))}};
    case Kind::mac:
        return {{{attribute, station_of(text)}}};
    case Kind::ipv4:
        return {{{attribute, ipv4_of(text)}}};
    case Kind::subnet:
        return {subnet_of(attribute, text)};
    case Kind::instances:
        return each(attribute, read_list(text == "all" ? "0-63" : text, 0, LAST_INSTANCE));
    case Kind::ports:
        return {{{attribute, ports_of(text)}}};
    case Kind::rules:
        return {{{attribute, rules_of(text)}}};
    case Kind::upstream:
        return {{{attribute, upstream_of(text, resolver)}}};
    }
    return {{}};
}

std::string choices_of(const Argument &argument) {
    std::string text;
    for (const Choice &choice : argument.choices) {
        if (!text.empty())
            text += &choice == &argument.choices.back() ? " or " : ", ";
        text += choice.word;
    }
    return text;
}

std::string expected_number(const Argument &argument) {
    std::string text = fmt::format("a number from {} to {}", argument.low, argument.high);
    return argument.choices.empty() ? text : text + " or " + choices_of(argument);
}

} // namespace

std::vector<std::string> split(const std::string &text, char at) {
    std::vector<std::string> parts;
    std::size_t from = 0;
    for (std::size_t to; (to = text.find(at, from)) != std::string::npos; from = to + 1)
        parts.push_back(text.substr(from, to - from));
    parts.push_back(text.substr(from));
    return parts;
}

Part number_part(std::uint16_t attribute, std::uint32_t value) {
    client::Bytes bytes;
    switch (client::attribute_info(attribute).type) {
    case client::Type::u8:
        append(bytes, static_cast<std::uint8_t>(value));
        break;
    case client::Type::u16:
        append(bytes, static_cast<std::uint16_t>(value));
        break;
    default:
        append(bytes, value);
    }
    return {attribute, bytes};
}

std::string expected(const Argument &argument) {
    switch (argument.kind) {
    case Kind::new_name:
        return "a name of 1 to 15 characters, no number, without '/', ':' and blanks";
    case Kind::interface:
        return "the name or the ifindex of an interface";
    case Kind::vid:
    case Kind::vlan_interface:
        return "a VLAN number from 1 to 4094";
    case Kind::vids:
    case Kind::vid_ranges:
    case Kind::vid_or_bitmap:
    case Kind::vlan_interfaces:
        return "VLAN numbers from 1 to 4094, such as 10,20-30";
    case Kind::number:
        return expected_number(argument);
    case Kind::choice:
        return choices_of(argument) + ", or a number up to " +
               std::to_string(largest(argument.attribute));
    case Kind::bits:
        return choices_of(argument) + ", joined by commas, or none";
    case Kind::flags:
        return choices_of(argument);
    case Kind::on_off:
        return "on or off";
    case Kind::mac:
        return "a MAC address such as 02:00:00:00:00:01";
    case Kind::ipv4:
        return "an IPv4 address such as 192.0.2.1";
    case Kind::subnet:
        return "an IPv4 network such as 192.0.2.0/24";
    case Kind::instances:
        return "numbers from 0 to 63, such as 0,5-7, or all";
    case Kind::ports:
        return "port numbers from 1 to 65535, joined by commas, or none";
    case Kind::rules:
        return "ADDRESS/LENGTH[:PORT[/tcp|/udp]], joined by commas, such as 192.0.2.0/24:80/tcp, "
               "or "
               "none";
    case Kind::upstream:
        return "add:VID:INTERFACE or del:VID:INTERFACE, joined by commas";
    default:
        return "a word";
    }
}

std::vector<Parts> read_value(const Argument &argument, const std::string &text,
                              const Resolver &resolver) {
    try {
        return read(argument, text, resolver);
    } catch (const Wrong &wrong) {
        std::string why = wrong.what();
        throw WordError(fmt::format("{} '{}'{}; expected {}", argument.name, text,
                                    why.empty() ? " is wrong" : ": " + why, expected(argument)));
    }
}

} // namespace tarnctl
