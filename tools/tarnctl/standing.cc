#include "tarnctl/standing.h"

#include "tarnctl/session.h"
#include "tarnctl/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <tuple>

namespace tarnctl {

namespace {

constexpr std::string_view HEADING = "Interface ";

std::uint32_t unsigned_of(const std::string &text) {
    return static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

// "port 5001 veth1 link up pvid 10 learn on ... name p1 rx 3 tx 4": words, each with its value; a
// port that the switch does not know has no name.
ChipPort parse_port(const std::vector<std::string> &fields) {
    ChipPort port{.ifindex = unsigned_of(fields[1]), .device = fields[2]};
    for (std::size_t at = 3; at + 1 < fields.size(); at += 2) {
        const std::string &word = fields[at], &value = fields[at + 1];
        if (word == "name")
            port.name = value;
        else if (word == "link")
            port.up = value == "up";
        else if (word == "learn")
            port.learns = value == "on";
        else if (word == "trusted")
            port.is_trusted = value == "on";
        else if (word == "pvid")
            port.pvid = unsigned_of(value);
        else if (word == "lag")
            port.lag = unsigned_of(value);
        else if (word == "routed")
            port.routed = unsigned_of(value);
        else if (word == "mirror")
            port.mirror = unsigned_of(value);
        else if (!value.empty() && value.find_first_not_of("0123456789") == std::string::npos)
            port.counts.emplace_back(word, std::strtoull(value.c_str(), nullptr, 10));
    }
    return port;
}

ChipAddress parse_address(const Chip &chip, const std::vector<std::string> &fields) {
    ChipAddress address{fields[1], unsigned_of(fields[2]), fields[3], {}};
    for (std::size_t at = 4; at < fields.size(); at++)
        address.ports.push_back(chip.ifindex_of(fields[at]));
    return address;
}

} // namespace

std::uint32_t Interface::vid() const {
    bool is_vlan = ifindex > VLAN_IFINDEX_BASE && ifindex <= VLAN_IFINDEX_BASE + VID_LAST &&
                   name == fmt::format("vlan{}", ifindex - VLAN_IFINDEX_BASE);
    return is_vlan ? ifindex - VLAN_IFINDEX_BASE : 0;
}

bool Interface::has_child(const std::string &child) const {
    return std::find(children.begin(), children.end(), child) != children.end();
}

// Two lines of heading; a record has six fields; "  Children:" and its further lines belong to the
// record before.
std::vector<Interface> parse_ifdb(const std::string &text) {
    std::vector<Interface> all;
    for (const std::string &line : lines_of(text)) {
        auto fields = fields_of(line);
        if (fields.empty() || fields[0].starts_with("==="))
            continue;
        if (line[0] == ' ') {
            if (fields[0] == "Children:")
                fields.erase(fields.begin());
            if (!all.empty())
                all.back().children.insert(all.back().children.end(), fields.begin(), fields.end());
        } else if (fields.size() == 6 && fields[0] != "Interface") {
            all.push_back({fields[0], static_cast<std::uint32_t>(number_of(fields[1])),
                           static_cast<unsigned long>(number_of(fields[2], 16)),
                           number_of(fields[3]), number_of(fields[4]),
                           static_cast<unsigned long>(number_of(fields[5], 16))});
        }
    }
    return all;
}

const ChipPort *Chip::port(std::uint32_t ifindex) const {
    auto found = std::find_if(ports.begin(), ports.end(),
                              [=](const ChipPort &one) { return one.ifindex == ifindex; });
    return found == ports.end() ? nullptr : &*found;
}

std::uint32_t Chip::ifindex_of(const std::string &name_or_number) const {
    for (const ChipPort &one : ports)
        if (one.name == name_or_number)
            return one.ifindex;
    return unsigned_of(name_or_number);
}

// Ports come first: what follows calls them by their names.
Chip parse_chip(const std::string &text) {
    Chip chip;
    for (const std::string &line : lines_of(text)) {
        auto fields = fields_of(line);
        if (fields.size() >= 3 && fields[0] == "port")
            chip.ports.push_back(parse_port(fields));
        else if (fields.size() >= 4 && fields[0] == "fdb")
            chip.addresses.push_back(parse_address(chip, fields));
        else if (fields.size() >= 2 && fields[0] == "vlan")
            for (std::size_t at = 2; at + 1 < fields.size(); at += 2)
                chip.vlans[unsigned_of(fields[1])][chip.ifindex_of(fields[at])] =
                    fields[at + 1] == "tagged";
    }
    // The table's own order is another in each process.
    std::sort(chip.addresses.begin(), chip.addresses.end(),
              [](const ChipAddress &one, const ChipAddress &other) {
                  return std::tie(one.vid, one.mac) < std::tie(other.vid, other.mac);
              });
    return chip;
}

// The heading is there even where there is no interface: what lacks it is no answer.
void Standing::read() {
    interfaces_.emplace();
    try {
        std::string text = session_.proc().read("ifdb");
        if (text.starts_with(HEADING))
            interfaces_ = parse_ifdb(text);
        else
            why_not_ = "its list of interfaces cannot be read";
    } catch (const ProcError &error) {
        why_not_ = error.what();
    }
    for (std::size_t at = 0; at < interfaces_->size(); at++) {
        by_ifindex_.emplace((*interfaces_)[at].ifindex, at);
        by_name_.emplace((*interfaces_)[at].name, at);
    }
}

bool Standing::is_known() {
    if (!interfaces_)
        read();
    return why_not_.empty();
}

const std::vector<Interface> &Standing::interfaces() {
    if (!interfaces_)
        read();
    return *interfaces_;
}

const Interface *Standing::interface(std::uint32_t ifindex) {
    const auto &all = interfaces();
    auto found = by_ifindex_.find(ifindex);
    return found == by_ifindex_.end() ? nullptr : &all[found->second];
}

const Interface *Standing::interface(const std::string &name) {
    const auto &all = interfaces();
    auto found = by_name_.find(name);
    return found == by_name_.end() ? nullptr : &all[found->second];
}

const Interface *Standing::lag_of(const Interface &port) {
    const auto &all = interfaces();
    if (port.vid() != 0)
        return nullptr;
    auto found = std::find_if(all.begin(), all.end(), [&](const Interface &one) {
        return one.is_lag() && one.has_child(port.name);
    });
    return found == all.end() ? nullptr : &*found;
}

std::set<std::uint32_t> Standing::vids() {
    std::set<std::uint32_t> all;
    for (const Interface &one : interfaces())
        if (one.vid() != 0)
            all.insert(one.vid());
    return all;
}

std::string Standing::names() {
    std::string text;
    for (const Interface &one : interfaces())
        if (one.vid() == 0)
            text += (text.empty() ? "" : " ") + one.name;
    if (auto all = vids(); !all.empty())
        text += fmt::format("{}VLANs {}", text.empty() ? "" : " ", ranges(all));
    return text;
}

const Chip *Standing::chip() {
    if (!chip_) {
        chip_.emplace();
        try {
            chip_ports_ = session_.chip("show ports");
            *chip_ = parse_chip(chip_ports_ + session_.chip("show vlans"));
        } catch (const ProcError &) { // there is none, or none that tells
        }
    }
    return *chip_ ? &**chip_ : nullptr;
}

const std::vector<ChipAddress> &Standing::addresses() {
    if (addresses_)
        return *addresses_;
    addresses_.emplace();
    try {
        if (chip())
            addresses_ = parse_chip(chip_ports_ + session_.chip("show fdb")).addresses;
    } catch (const ProcError &) {
    }
    for (const ChipAddress &one : *addresses_)
        if (one.kind == "own")
            vlan_macs_.emplace(one.vid, one.mac);
    return *addresses_;
}

const std::vector<std::string> &Standing::stp_states(const std::string &port) {
    auto [at, is_new] = stp_.try_emplace(port);
    if (!is_new)
        return at->second;
    try {
        for (const std::string &line : lines_of(session_.proc().read(port + "/bridge")))
            if (auto fields = fields_of(line); fields.size() == 2)
                at->second.push_back(fields[1]);
    } catch (const ProcError &) {
    }
    return at->second;
}

std::string Standing::vlan_mac(std::uint32_t vid) {
    addresses();
    auto found = vlan_macs_.find(vid);
    return found == vlan_macs_.end() ? "" : found->second;
}

// A member of an aggregator is in the aggregator's VLANs: what the chip says of one is that of
// both.
std::optional<bool> Standing::is_tagged(const Interface &port, std::uint32_t vid) {
    const Chip *told = chip();
    if (!told || !told->vlans.contains(vid))
        return std::nullopt;
    const auto &members = told->vlans.at(vid);
    for (const auto &[ifindex, tagged] : members) {
        const ChipPort *member = told->port(ifindex);
        if (ifindex == port.ifindex || (member && member->lag == port.ifindex))
            return tagged;
    }
    return std::nullopt;
}

std::string ranges(const std::set<std::uint32_t> &numbers) {
    std::string text;
    for (auto from = numbers.begin(); from != numbers.end();) {
        auto to = from;
        while (std::next(to) != numbers.end() && *std::next(to) == *to + 1)
            ++to;
        text += fmt::format("{}{}", text.empty() ? "" : ",", *from);
        if (to != from)
            text += fmt::format("-{}", *to);
        from = std::next(to);
    }
    return text;
}

} // namespace tarnctl
