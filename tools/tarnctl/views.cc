#include "tarnctl/views.h"

#include "tarnctl/standing.h"
#include "tarnctl/text.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tarnctl {

namespace {

using json = nlohmann::ordered_json;

constexpr FlagWord IFF_WORDS[] = {{0x1, "up"},         {0x2, "broadcast"},   {0x8, "loopback"},
                                  {0x40, "running"},   {0x80, "noarp"},      {0x100, "promisc"},
                                  {0x200, "allmulti"}, {0x1000, "multicast"}};

constexpr FlagWord IF_FLAG_WORDS[] = {{0x1, "local"},
                                      {0x8, "static-lag"},
                                      {0x10, "dynamic-lag"},
                                      {0x20, "dhcp-snooping"},
                                      {0x40, "dhcp-trusted"},
                                      {0x80, "arp-security"},
                                      {0x2000, "arp-mac-disparity"},
                                      {0x4000, "always-up"},
                                      {0x8000, "ipv4-multicast-routing"},
                                      {0x10000, "no-dhcp-flood"},
                                      {0x20000, "no-member-check"},
                                      {0x40000, "ipv6-multicast-routing"},
                                      {0x80000, "routed"}};

template <std::size_t N>
std::vector<std::string> words_of_flags(unsigned long flags, const FlagWord (&table)[N]) {
    std::vector<std::string> words;
    for (const FlagWord &row : table)
        if (flags & row.flag)
            words.emplace_back(row.word);
    return words;
}

// --- the others
// -----------------------------------------------------------------------------------

constexpr std::string_view COUNTERS[] = {
    "_modify_rx_inspects", "_modify_tx_inspects", "_inspects",  "_userspace",   "_kernel",
    "_resend_l2",          "_flood_l2",           "_stack_rep", "_kernel_port", "_stops"};

// "ipv4_stops: 5 1:3 4:2": the redirect's name may hold blanks and underscores itself.
void counter_json(json &all, const std::string &line) {
    auto colon = line.find(": ");
    if (colon == std::string::npos)
        return;
    std::string left = line.substr(0, colon);
    for (std::string_view counter : COUNTERS) {
        if (!left.ends_with(counter) || left.size() == counter.size())
            continue;
        json &redirect = all[left.substr(0, left.size() - counter.size())];
        auto fields = fields_of(line.substr(colon + 1));
        redirect[std::string(counter.substr(1))] = fields.empty() ? 0 : number_of(fields[0]);
        for (std::size_t at = 1; at < fields.size(); at++) {
            auto middle = fields[at].find(':');
            if (fields[at] == "DISABLED")
                redirect["disabled"] = true;
            else if (middle != std::string::npos)
                redirect["reasons"][fields[at].substr(0, middle)] =
                    number_of(fields[at].substr(middle + 1));
        }
        return;
    }
}

json counters_json(const std::string &text) {
    json all = json::object();
    for (const std::string &line : lines_of(text))
        counter_json(all, line);
    return all;
}

json bridge_json(const std::string &text) {
    json all = json::array();
    for (const std::string &line : lines_of(text))
        if (auto fields = fields_of(line); fields.size() == 2)
            all.push_back({{"instance", number_of(fields[0])}, {"state", fields[1]}});
    return all;
}

// "key=value" lines.
json pairs_json(const std::string &text) {
    json all = json::object();
    for (const std::string &line : lines_of(text))
        if (auto at = line.find('='); at != std::string::npos)
            all[line.substr(0, at)] = line.substr(at + 1);
    return all;
}

json lines_json(const std::string &text) {
    return lines_of(text);
}

json refcounts_json(const std::string &text) {
    json all = json::array();
    for (const std::string &line : lines_of(text))
        if (auto fields = fields_of(line);
            fields.size() == 5 && fields[0] == "Interface" && fields[3] == "count")
            all.push_back({{"name", fields[1]}, {"references", number_of(fields[4])}});
    return all;
}

// "Free Pages 12": the last field is the number, the rest its name.
json memory_json(const std::string &text) {
    json all = json::object();
    for (const std::string &line : lines_of(text)) {
        auto at = line.rfind(' ');
        if (at != std::string::npos && line.find_first_of("0123456789", at) == at + 1)
            all[line.substr(0, at)] = number_of(line.substr(at + 1));
    }
    return all;
}

json leases_json(const std::string &text) {
    json all = json::array();
    for (const std::string &line : lines_of(text))
        if (auto fields = fields_of(line); fields.size() == 4 && std::isdigit(fields[0][0]))
            all.push_back({{"address", fields[0]},
                           {"mac", fields[1]},
                           {"vid", number_of(fields[2])},
                           {"ifindex", number_of(fields[3])}});
    return all;
}

json arpsec_json(const std::string &text) {
    json all = json::array();
    for (const std::string &line : lines_of(text)) {
        auto fields = fields_of(line);
        if (fields.size() != 8 || !std::isdigit(fields[0][0]))
            continue;
        json numbers = json::array();
        for (std::size_t at = 1; at < fields.size(); at++)
            numbers.push_back(number_of(fields[at]));
        all.push_back({{"ifindex", number_of(fields[0])}, {"counters", numbers}});
    }
    return all;
}

json subnets_json(const std::string &text) {
    json all = json::array();
    for (const std::string &line : lines_of(text))
        if (auto at = line.find(" tree size: "); at != std::string::npos)
            all.push_back(
                {{"name", line.substr(0, at)}, {"subnets", number_of(line.substr(at + 12))}});
    return all;
}

json word_json(const std::string &text) {
    return text.substr(0, text.find('\n'));
}

struct ViewRow {
    std::string_view file;
    json (*as_json)(const std::string &text);
    std::string (*as_text)(const std::string &text); // null: as it is
};

constexpr ViewRow VIEWS[] = {
    {"pktcounts", counters_json, nullptr},      {"rxmodifycounts", counters_json, nullptr},
    {"txmodifycounts", counters_json, nullptr}, {"refcounts", refcounts_json, nullptr},
    {"meminfo", memory_json, nullptr},          {"subnetvlan", subnets_json, nullptr},
    {"arpsecdb", leases_json, nullptr},         {"arpseccnt", arpsec_json, nullptr},
    {"authglobal", pairs_json, nullptr},        {"pktdebugpostinfo", word_json, nullptr},
    {"{}/bridge", bridge_json, nullptr},        {"{}/auth", pairs_json, nullptr},
    {"{}/members", lines_json, nullptr},        {"{}/openflow", word_json, nullptr},
    {"{}/disablevlans", word_json, nullptr},
};

// Bytes of frames may stand in a view: what is no UTF-8 is replaced.
std::string dumped(const json &value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace

std::string show_view(std::string_view file, const std::string &text, bool json_wanted) {
    auto view = std::find_if(std::begin(VIEWS), std::end(VIEWS),
                             [&](const ViewRow &row) { return row.file == file; });
    bool known = view != std::end(VIEWS);
    if (json_wanted)
        return dumped(known ? view->as_json(text) : lines_json(text));
    return known && view->as_text ? view->as_text(text) : text;
}

std::string raw_view(const std::string &text, bool json_wanted) {
    return json_wanted ? dumped(lines_json(text)) : text;
}

std::string table_json(const std::string &table) {
    json all = json::array();
    std::vector<std::string> heading;
    for (const std::string &line : lines_of(table)) {
        auto fields = fields_of(line);
        if (heading.empty()) {
            heading = std::move(fields);
            for (std::string &name : heading)
                name[0] = static_cast<char>(std::tolower(name[0]));
            continue;
        }
        json row = json::object();
        for (std::size_t i = 0; i < std::min(fields.size(), heading.size()); i++) {
            bool number = fields[i].find_first_not_of("0123456789") == std::string::npos;
            row[heading[i]] = number ? json(number_of(fields[i])) : json(fields[i]);
        }
        all.push_back(row);
    }
    return all.dump(2) + "\n";
}

nlohmann::ordered_json interface_record(const Interface &one) {
    return {{"name", one.name},
            {"ifindex", one.ifindex},
            {"flags", words_of_flags(one.flags, IFF_WORDS)},
            {"raw_flags", one.flags},
            {"running_ports", one.running},
            {"references", one.references},
            {"is", words_of_flags(one.if_flags, IF_FLAG_WORDS)},
            {"if_flags", one.if_flags},
            {"ports", one.children}};
}

std::span<const FlagWord> flag_words() {
    return IFF_WORDS;
}

std::span<const FlagWord> vlan_flag_words() {
    return IF_FLAG_WORDS;
}

std::map<std::string, std::uint32_t> interfaces_of(const std::string &ifdb) {
    std::map<std::string, std::uint32_t> all;
    for (const Interface &one : parse_ifdb(ifdb))
        all[one.name] = one.ifindex;
    return all;
}

bool Redirects::is_enabled(const std::string &name) const {
    return std::find(enabled.begin(), enabled.end(), name) != enabled.end();
}

bool Redirects::knows(const std::string &name) const {
    return is_enabled(name) || std::find(disabled.begin(), disabled.end(), name) != disabled.end();
}

std::vector<std::string> Redirects::all() const {
    std::vector<std::string> names = enabled;
    names.insert(names.end(), disabled.begin(), disabled.end());
    return names;
}

Redirects read_redirects(ProcTree &proc) {
    return {lines_of(proc.read("redirectprotocolenable")),
            lines_of(proc.read("redirectprotocoldisable"))};
}

std::string show_redirects(const Redirects &redirects, bool json_wanted) {
    json all = json::array();
    std::string text;
    for (const std::string &name : redirects.all()) {
        bool enabled = redirects.is_enabled(name);
        all.push_back({{"name", name}, {"enabled", enabled}});
        text += fmt::format("{:<20} {}\n", name, enabled ? "enabled" : "disabled");
    }
    return json_wanted ? dumped(all) : text;
}

} // namespace tarnctl
