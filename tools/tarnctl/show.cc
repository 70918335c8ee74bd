#include "tarnctl/show.h"

#include "tarnctl/session.h"
#include "tarnctl/table.h"
#include "tarnctl/text.h"
#include "tarnctl/views.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace tarnctl {

namespace {

using json = nlohmann::ordered_json;
using Numbers = std::set<std::uint32_t>;

constexpr std::string_view NOT_TOLD = "-";

std::string or_dash(const std::string &text) {
    return text.empty() ? std::string(NOT_TOLD) : text;
}

std::string dumped(const json &value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return text;
}

std::string state_of(const Interface &one) {
    return one.has_link() ? "up" : one.flags & 1 ? "no-link" : "down";
}

Cell state_cell(const Interface &one) {
    return {state_of(one), one.has_link() ? Colour::good : Colour::bad};
}

// In Mbit/s, as the machine has it of the device; "" where it does not tell.
std::string speed_of(const ChipPort &port) {
    ethtool_cmd asked{};
    asked.cmd = ETHTOOL_GSET;
    ifreq request{};
    port.device.copy(request.ifr_name, sizeof(request.ifr_name) - 1);
    request.ifr_data = reinterpret_cast<char *>(&asked);
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool told = ioctl(fd, SIOCETHTOOL, &request) == 0;
    close(fd);
    std::uint32_t speed = ethtool_cmd_speed(&asked);
    return told && speed != 0 && speed != static_cast<std::uint32_t>(SPEED_UNKNOWN)
               ? fmt::format("{}", speed)
               : "";
}

// In which instances a port is in which state.
std::map<std::string, Numbers> stp_of(Standing &standing, const Interface &port) {
    std::map<std::string, Numbers> all;
    std::uint32_t instance = 0;
    for (const std::string &state : standing.stp_states(port.name))
        all[lower(state)].insert(instance++);
    return all;
}

std::string stp_word(const std::map<std::string, Numbers> &states) {
    return states.empty() ? "" : states.size() == 1 ? states.begin()->first : "mixed";
}

// The VLANs of a port: tagged, untagged, and those of which the chip does not tell.
struct Membership {
    Numbers tagged, untagged, unknown;
};

Membership membership_of(Standing &standing, const Interface &port) {
    Membership all;
    if (port.vid() != 0)
        return all;
    for (const Interface &one : standing.interfaces()) {
        if (one.vid() == 0 || !one.has_child(port.name))
            continue;
        auto tagged = standing.is_tagged(port, one.vid());
        (!tagged ? all.unknown : *tagged ? all.tagged : all.untagged).insert(one.vid());
    }
    return all;
}

std::uint64_t count_of(const ChipPort &port, const std::string &word) {
    for (const auto &[name, count] : port.counts)
        if (name == word)
            return count;
    return 0;
}

std::uint64_t dropped(const ChipPort &port) {
    std::uint64_t sum = 0;
    for (const auto &[name, count] : port.counts)
        if (name.starts_with("drop-"))
            sum += count;
    return sum;
}

// Two readings a second apart.
struct Rates {
    Chip before;
    std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();
    double seconds = 1;

    double of(const ChipPort &port, const std::string &word) const {
        const ChipPort *old = before.port(port.ifindex);
        std::uint64_t now = count_of(port, word), then = old ? count_of(*old, word) : now;
        return now > then ? static_cast<double>(now - then) / seconds : 0;
    }
};

Rates begin_rates(Session &session) {
    Rates rates;
    Standing standing(session);
    if (const Chip *chip = standing.chip())
        rates.before = *chip;
    std::this_thread::sleep_for(session.rate_time);
    rates.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - rates.since).count();
    return rates;
}

// --- interfaces

json interface_json(Standing &standing, const Interface &one, const Rates *rates) {
    Membership in = membership_of(standing, one);
    const Chip *chip = standing.chip();
    const ChipPort *port = chip ? chip->port(one.ifindex) : nullptr;
    const Interface *lag = standing.lag_of(one);
    json shown = interface_record(one);
    shown["state"] = state_of(one);
    if (std::string mac = standing.vlan_mac(one.vid()); one.vid() != 0 && !mac.empty())
        shown["mac"] = mac;
    if (one.vid() != 0)
        shown["vid"] = one.vid();
    if (lag)
        shown["lag"] = lag->name;
    if (one.vid() == 0) {
        shown["vlans"] = {{"untagged", in.untagged}, {"tagged", in.tagged}};
        if (!in.unknown.empty())
            shown["vlans"]["member"] = in.unknown;
        for (const auto &[state, instances] : stp_of(standing, one))
            shown["stp"][state] = instances;
    }
    if (!port)
        return shown;
    shown["device"] = port->device;
    shown["pvid"] = port->pvid;
    if (std::string speed = speed_of(*port); !speed.empty())
        shown["speed"] = std::stol(speed);
    if (!rates)
        return shown;
    for (const auto &[name, count] : port->counts)
        shown["statistics"][name] = count;
    shown["statistics"]["rx_per_second"] = rates->of(*port, "rx");
    shown["statistics"]["tx_per_second"] = rates->of(*port, "tx");
    return shown;
}

std::string members_text(const Interface &one) {
    return fmt::format("{}", fmt::join(one.children, ","));
}

std::vector<Cell> interface_row(Standing &standing, const Interface &one, bool brief) {
    const Chip *chip = standing.chip();
    const ChipPort *port = chip ? chip->port(one.ifindex) : nullptr;
    const Interface *lag = standing.lag_of(one);
    std::string mac = one.vid() != 0 ? standing.vlan_mac(one.vid()) : "";
    std::string pvid = port && port->pvid != 0 ? fmt::format("{}", port->pvid) : "";
    std::vector<Cell> row{{one.name, Colour::name}, state_cell(one)};
    if (brief) {
        row.push_back({one.vid() != 0 || one.is_lag() ? or_dash(members_text(one))
                                                      : or_dash(port ? port->device : "")});
        return row;
    }
    Membership in = membership_of(standing, one);
    std::string untagged = ranges(in.untagged);
    if (!in.unknown.empty())
        untagged += fmt::format("{}({})", untagged.empty() ? "" : ",", ranges(in.unknown));
    std::string belongs = lag ? lag->name : members_text(one);
    if (port && port->routed != 0)
        belongs = fmt::format("routed {}", port->routed);
    for (const std::string &text :
         {fmt::format("{}", one.ifindex), port ? port->device : "", port ? speed_of(*port) : "",
          mac, pvid, untagged, ranges(in.tagged),
          one.vid() == 0 ? stp_word(stp_of(standing, one)) : "", belongs})
        row.push_back(
            {or_dash(text), text == mac && !mac.empty() ? Colour::address : Colour::none});
    return row;
}

std::string statistics_text(Session &session, Standing &standing, const Rates &rates,
                            const std::string &name) {
    Table table({"NAME", "STATE", "RX", "TX", "RX/S", "TX/S", "DROPPED", "OF THEM"});
    for (const Interface &one : standing.interfaces()) {
        const Chip *chip = standing.chip();
        const ChipPort *port = chip ? chip->port(one.ifindex) : nullptr;
        if (!port || (!name.empty() && one.name != name))
            continue;
        std::string why;
        for (const auto &[word, count] : port->counts)
            if (word.starts_with("drop-"))
                why += fmt::format("{}{} {}", why.empty() ? "" : ", ", word.substr(5), count);
        table.row({{one.name, Colour::name},
                   state_cell(one),
                   {fmt::format("{}", count_of(*port, "rx"))},
                   {fmt::format("{}", count_of(*port, "tx"))},
                   {fmt::format("{:.0f}", rates.of(*port, "rx"))},
                   {fmt::format("{:.0f}", rates.of(*port, "tx"))},
                   {fmt::format("{}", dropped(*port))},
                   {or_dash(why)}});
    }
    return table.text(session.width, session.colours);
}

// Ports and aggregators come before the VLANs, which may be many.
std::vector<Interface> in_order(Standing &standing) {
    std::vector<Interface> all = standing.interfaces();
    std::stable_partition(all.begin(), all.end(), [](const Interface &one) { return !one.vid(); });
    return all;
}

std::string interfaces(Session &session, Standing &standing, const std::string &name) {
    const auto all_of_them = in_order(standing);
    std::optional<Rates> rates;
    if (session.statistics)
        rates = begin_rates(session);
    if (session.json) {
        json all = json::array();
        for (const Interface &one : all_of_them)
            if (name.empty() || one.name == name)
                all.push_back(interface_json(standing, one, rates ? &*rates : nullptr));
        return dumped(all);
    }
    if (rates)
        return statistics_text(session, standing, *rates, name);
    Table table(session.brief
                    ? std::vector<std::string>{"NAME", "STATE", "ON"}
                    : std::vector<std::string>{"NAME", "STATE", "IFINDEX", "DEVICE", "SPEED", "MAC",
                                               "PVID", "UNTAGGED", "TAGGED", "STP", "LAG/PORTS"});
    for (const Interface &one : all_of_them)
        if (name.empty() || one.name == name)
            table.row(interface_row(standing, one, session.brief));
    return table.text(session.width, session.colours);
}

// --- VLANs

std::vector<std::string> vlan_options(const Interface &vlan) {
    std::vector<std::string> words;
    for (const auto &[flag, word] : vlan_flag_words())
        if (vlan.if_flags & flag)
            words.emplace_back(word);
    return words;
}

std::string vlans(Session &session, Standing &standing) {
    json all = json::array();
    Table table(session.brief ? std::vector<std::string>{"VLAN", "STATE", "PORTS"}
                              : std::vector<std::string>{"VLAN", "STATE", "MAC", "UNTAGGED",
                                                         "TAGGED", "NOT TOLD", "OPTIONS"});
    for (const Interface &vlan : standing.interfaces()) {
        if (vlan.vid() == 0)
            continue;
        std::vector<std::string> untagged, tagged, unknown;
        for (const std::string &name : vlan.children) {
            const Interface *port = standing.interface(name);
            auto is_tagged = port ? standing.is_tagged(*port, vlan.vid()) : std::nullopt;
            (!is_tagged ? unknown : *is_tagged ? tagged : untagged).push_back(name);
        }
        std::string mac = standing.vlan_mac(vlan.vid());
        json shown{{"vid", vlan.vid()},
                   {"state", state_of(vlan)},
                   {"untagged", untagged},
                   {"tagged", tagged},
                   {"options", vlan_options(vlan)}};
        if (!unknown.empty())
            shown["members"] = unknown;
        if (!mac.empty())
            shown["mac"] = mac;
        all.push_back(shown);
        Cell vid{fmt::format("{}", vlan.vid()), Colour::name};
        if (session.brief)
            table.row({vid, state_cell(vlan), {or_dash(members_text(vlan))}});
        else
            table.row({vid,
                       state_cell(vlan),
                       {or_dash(mac), Colour::address},
                       {or_dash(fmt::format("{}", fmt::join(untagged, ",")))},
                       {or_dash(fmt::format("{}", fmt::join(tagged, ",")))},
                       {or_dash(fmt::format("{}", fmt::join(unknown, ",")))},
                       {or_dash(fmt::format("{}", fmt::join(vlan_options(vlan), ",")))}});
    }
    return session.json ? dumped(all) : table.text(session.width, session.colours);
}

// --- the chip's addresses

std::string name_of(Standing &standing, std::uint32_t ifindex) {
    const Interface *one = standing.interface(ifindex);
    return one ? one->name : fmt::format("{}", ifindex);
}

// Of a port in an aggregator, both names.
std::vector<std::string> where(Standing &standing, const ChipAddress &address) {
    std::vector<std::string> names;
    for (std::uint32_t ifindex : address.ports)
        names.push_back(name_of(standing, ifindex));
    return names;
}

std::string fdb(Session &session, Standing &standing, const std::string &vid,
                const std::string &port) {
    if (!standing.chip())
        throw ProcError("show fdb: there is no chip to ask; --control says where its switch is");
    json all = json::array();
    Table table({"MAC", "VLAN", "KIND", "PORTS"});
    for (const ChipAddress &one : standing.addresses()) {
        auto names = where(standing, one);
        if ((!vid.empty() && fmt::format("{}", one.vid) != vid) ||
            (!port.empty() && std::find(names.begin(), names.end(), port) == names.end()))
            continue;
        all.push_back({{"mac", one.mac}, {"vid", one.vid}, {"kind", one.kind}, {"ports", names}});
        table.row({{one.mac, Colour::address},
                   {fmt::format("{}", one.vid)},
                   {one.kind},
                   {or_dash(fmt::format("{}", fmt::join(names, ","))), Colour::name}});
    }
    return session.json ? dumped(all) : table.text(session.width, session.colours);
}

// --- aggregators and spanning tree

std::string lags(Session &session, Standing &standing) {
    json all = json::array();
    Table table({"LAG", "STATE", "MODE", "PORTS", "WITHOUT LINK"});
    for (const Interface &lag : standing.interfaces()) {
        if (!lag.is_lag())
            continue;
        std::vector<std::string> idle;
        for (const std::string &name : lag.children)
            if (const Interface *port = standing.interface(name); port && !port->has_link())
                idle.push_back(name);
        std::string mode = lag.if_flags & 0x8 ? "static" : "dynamic";
        all.push_back({{"name", lag.name},
                       {"state", state_of(lag)},
                       {"mode", mode},
                       {"ports", lag.children},
                       {"without_link", idle}});
        table.row({{lag.name, Colour::name},
                   state_cell(lag),
                   {mode},
                   {or_dash(members_text(lag))},
                   {or_dash(fmt::format("{}", fmt::join(idle, ","))), Colour::bad}});
    }
    return session.json ? dumped(all) : table.text(session.width, session.colours);
}

std::string stp(Session &session, Standing &standing, const std::string &name) {
    json all = json::array();
    Table table({"PORT", "STATE", "INSTANCES"});
    for (const Interface &port : standing.interfaces()) {
        if (port.vid() != 0 || (!name.empty() && port.name != name))
            continue;
        json states = json::object();
        for (const auto &[state, instances] : stp_of(standing, port)) {
            states[state] = instances;
            table.row({{port.name, Colour::name},
                       {state, state == "forwarding" ? Colour::good : Colour::bad},
                       {ranges(instances)}});
        }
        all.push_back({{"port", port.name}, {"states", states}});
    }
    return session.json ? dumped(all) : table.text(session.width, session.colours);
}

// What happened alike to several VLANs or instances is one change: "stp p1 instance 0-63".
std::vector<Change> grouped(const std::vector<Change> &all) {
    std::vector<Change> groups;
    std::map<std::tuple<std::string, std::string, std::string>, std::pair<std::size_t, Numbers>> of;
    for (const Change &one : all) {
        std::size_t at = one.fact.rfind(' ') + 1;
        std::string last = one.fact.substr(at);
        if (last.find_first_not_of("0123456789") != std::string::npos) {
            groups.push_back(one);
            continue;
        }
        auto [group, is_new] =
            of.try_emplace({one.fact.substr(0, at), one.before, one.now}, groups.size(), Numbers{});
        if (is_new)
            groups.push_back(one);
        auto &[place, numbers] = group->second;
        numbers.insert(static_cast<std::uint32_t>(std::stoul(last)));
        groups[place].fact = one.fact.substr(0, at) + ranges(numbers);
    }
    return groups;
}

} // namespace

std::string show_facts(Session &session, const std::string &what,
                       const std::vector<std::string> &of) {
    Standing standing(session);
    if (!standing.is_known())
        throw ProcMissing(standing.why_not());
    if (what == "vlans")
        return vlans(session, standing);
    if (what == "fdb")
        return fdb(session, standing, of[0], of[1]);
    if (what == "lag")
        return lags(session, standing);
    if (what == "stp")
        return stp(session, standing, of[0]);
    if (what == "interfaces")
        return interfaces(session, standing, of.empty() ? "" : of[0]);
    std::string text;
    auto lines = running(session, !session.brief && !session.json);
    if (session.json)
        return dumped(json(lines));
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

Facts facts_of(Session &session) {
    Standing standing(session);
    Facts all;
    for (const Interface &one : standing.interfaces()) {
        const std::string what =
            one.vid() != 0 ? fmt::format("vlan {}", one.vid()) : "link " + one.name;
        all[what] = state_of(one);
        const Interface *lag = standing.lag_of(one);
        if (one.vid() != 0) {
            for (const std::string &member : one.children) {
                const Interface *port = standing.interface(member);
                auto tagged = port ? standing.is_tagged(*port, one.vid()) : std::nullopt;
                all[fmt::format("member {} of vlan {}", member, one.vid())] = !tagged ? "yes"
                                                                              : *tagged
                                                                                  ? "tagged"
                                                                                  : "untagged";
            }
            continue;
        }
        if (lag)
            all[fmt::format("lag {} port {}", lag->name, one.name)] = "yes";
        for (const auto &[state, instances] : stp_of(standing, one))
            for (std::uint32_t instance : instances)
                all[fmt::format("stp {} instance {}", one.name, instance)] = state;
        const Chip *chip = standing.chip();
        const ChipPort *port = chip ? chip->port(one.ifindex) : nullptr;
        if (!port)
            continue;
        if (port->pvid != 0)
            all[fmt::format("pvid {}", one.name)] = fmt::format("{}", port->pvid);
        all[fmt::format("device {}", one.name)] = port->device;
    }
    try {
        Redirects redirects = read_redirects(session.proc());
        for (const std::string &name : redirects.all())
            all["redirect " + name] = redirects.is_enabled(name) ? "enabled" : "disabled";
    } catch (const ProcError &) {
    }
    return all;
}

std::vector<Change> changes(const Facts &before, const Facts &now) {
    std::vector<Change> all;
    for (const auto &[fact, value] : before)
        if (auto at = now.find(fact); at == now.end())
            all.push_back({fact, "", value});
        else if (at->second != value)
            all.push_back({fact, at->second, value});
    for (const auto &[fact, value] : now)
        if (!before.contains(fact))
            all.push_back({fact, value, ""});
    return grouped(all);
}

} // namespace tarnctl
