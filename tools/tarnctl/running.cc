// The batch that would make this switch again.
#include "tarnctl/session.h"
#include "tarnctl/show.h"
#include "tarnctl/text.h"
#include "tarnctl/views.h"

#include <algorithm>
#include <fmt/format.h>

namespace tarnctl {

namespace {

using Numbers = std::set<std::uint32_t>;

// A new switch has these off, and all others on.
constexpr std::string_view OFF_AT_FIRST[] = {"remote-mirror", "flowd",  "l2fdbdrop",
                                             "isis",          "l3drop", "ptp"};

constexpr std::string_view COMMENTS[] = {
    "# Not told by a switch, and so not in here: ingress filters, VLANs that are shut on a port, "
    "the",
    "# spanning tree instances of VLANs, mirrors, translations, private VLANs, limits, FIBs, and "
    "the",
    "# MAC addresses of ports: those below are made of the ifindex.",
};

// A flag of an interface, and the line that sets it. {} is the interface's name, {vid} its VID.
struct FlagLine {
    unsigned long flag;
    bool of_vlan;
    std::string_view line;
};
constexpr FlagLine FLAG_LINES[] = {
    {0x20, true, "dhcp snooping vlan {vid} on"}, {0x80, true, "arp security vlan {vid} on"},
    {0x10000, true, "dhcp flood {vid} off"},     {0x2000, true, "arp mac-disparity {} on"},
    {0x8000, true, "mroute ipv4 add {}"},        {0x40000, true, "mroute ipv6 add {}"},
    {0x40, false, "dhcp trust {} on"},
};

std::string filled(std::string_view form, const Interface &one) {
    std::string text(form);
    if (auto at = text.find("{vid}"); at != std::string::npos)
        return text.replace(at, 5, fmt::format("{}", one.vid()));
    return text.replace(text.find("{}"), 2, one.name);
}

class Running {
public:
    explicit Running(Session &session) : session_(session), standing_(session) {}

    std::vector<std::string> lines() {
        if (!standing_.is_known())
            throw ProcMissing(standing_.why_not());
        for (const Interface &one : standing_.interfaces())
            declare(one);
        vlans();
        for (const Interface &one : standing_.interfaces())
            if (one.is_lag())
                attach(one);
        for (const Interface &one : standing_.interfaces())
            if (one.vid() == 0)
                port(one);
        flags();
        redirects();
        chip();
        return lines_;
    }

private:
    void add(std::string line) { lines_.push_back(std::move(line)); }

    // A port's link is the device's where the chip has it open.
    void declare(const Interface &one) {
        if (one.vid() != 0)
            return;
        bool is_port = !standing_.stp_states(one.name).empty();
        std::string mac =
            fmt::format("02:00:{:02x}:{:02x}:{:02x}:{:02x}", one.ifindex >> 24,
                        one.ifindex >> 16 & 0xFF, one.ifindex >> 8 & 0xFF, one.ifindex & 0xFF);
        std::string line = fmt::format("link add {} {} ifindex {} mac {}",
                                       one.is_lag() ? "lag"
                                       : is_port    ? "port"
                                                    : "ethernet",
                                       one.name, one.ifindex, mac);
        if (one.is_lag())
            return add(line + (one.if_flags & 0x8 ? "" : " mode dynamic"));
        if (one.is_routed())
            line += " routed";
        for (const auto &[flag, word] : flag_words())
            if (one.flags & flag && (flag != 0x40 || !chip_port(one)))
                line += fmt::format(" {}", word);
        add(line);
    }

    // The last that joined is listed first.
    void attach(const Interface &lag) {
        for (auto port = lag.children.rbegin(); port != lag.children.rend(); ++port)
            add(fmt::format("lag attach {} {}", *port, lag.name));
    }

    const ChipPort *chip_port(const Interface &one) {
        const Chip *told = standing_.chip();
        return told ? told->port(one.ifindex) : nullptr;
    }

    // Those that are alike in one line.
    void vlans() {
        std::map<std::string, Numbers> alike;
        Numbers open;
        for (const Interface &one : standing_.interfaces()) {
            if (one.vid() == 0)
                continue;
            std::string mac = standing_.vlan_mac(one.vid());
            std::string options = mac.empty() ? "" : " mac " + mac;
            options += one.if_flags & 0x1 ? " local" : "";
            options += one.if_flags & 0x4000 ? " always-up" : "";
            alike[options].insert(one.vid());
            if (one.if_flags & 0x20000)
                open.insert(one.vid());
        }
        for (const auto &[options, vids] : alike)
            add(fmt::format("vlan add {}{}", ranges(vids), options));
        for (std::uint32_t vid : open)
            add(fmt::format("vlan options {}{} no-member-check", vid,
                            standing_.vlan(vid)->if_flags & 0x4000 ? " always-up" : ""));
    }

    void port(const Interface &one) {
        Numbers tagged, untagged, unknown;
        for (std::uint32_t vid : standing_.vids()) {
            if (!standing_.vlan(vid)->has_child(one.name))
                continue;
            auto told = standing_.is_tagged(one, vid);
            (!told ? unknown : *told ? tagged : untagged).insert(vid);
        }
        if (!untagged.empty())
            add(fmt::format("vlan member add {} {}", one.name, ranges(untagged)));
        if (!tagged.empty())
            add(fmt::format("vlan member add {} {} tagged", one.name, ranges(tagged)));
        if (!unknown.empty())
            add(fmt::format("vlan member add {} {} # tagged or not is not told", one.name,
                            ranges(unknown)));
        const ChipPort *told = chip_port(one);
        if (told && told->pvid != 0 && told->routed == 0)
            add(fmt::format("vlan pvid {} {}", one.name, told->pvid));
        if (told && told->routed != 0)
            add(fmt::format("link routed {} {}", one.name, told->routed));
        if (!told && one.is_routed())
            add(fmt::format("# link routed {} VID: the VLAN is not told", one.name));
        spanning_tree(one);
        authentication(one);
    }

    // A new port is blocking.
    void spanning_tree(const Interface &one) {
        std::map<std::string, Numbers> states;
        const auto &told = standing_.stp_states(one.name);
        for (std::uint32_t instance = 0; instance < told.size(); instance++)
            states[told[instance]].insert(instance);
        for (auto &[state, instances] : states) {
            std::string word = state;
            word[0] = static_cast<char>(std::tolower(word[0]));
            if (word != "blocking")
                add(fmt::format("stp state {} {} instance {}", one.name, word,
                                instances.size() == told.size() ? "all" : ranges(instances)));
        }
    }

    void authentication(const Interface &one) {
        std::string state, method;
        try {
            for (const std::string &line : lines_of(session_.proc().read(one.name + "/auth"))) {
                if (line.starts_with("state="))
                    state = line.substr(6);
                if (line.starts_with("method="))
                    method = line.substr(7);
            }
        } catch (const ProcError &) {
            return;
        }
        constexpr std::pair<std::string_view, std::string_view> STATES[] = {
            {"Block-InOut", "block-in-out"},
            {"Block-In", "block-in"},
            {"Unblock", "unblock"},
            {"Auto", "auto"}};
        std::string methods;
        for (auto [told, word] : {std::pair{"MAC", "mac"}, {"Dot1x", "dot1x"}, {"Web", "web"}})
            if (method.find(told) != std::string::npos)
                methods += (methods.empty() ? "" : ",") + std::string(word);
        for (auto [told, word] : STATES)
            if (state == told)
                add(fmt::format("auth port {} {}{}", one.name, word,
                                methods.empty() ? "" : " method " + methods));
    }

    void flags() {
        for (const Interface &one : standing_.interfaces())
            for (const FlagLine &row : FLAG_LINES)
                if (one.if_flags & row.flag && (one.vid() != 0) == row.of_vlan)
                    add(filled(row.line, one));
    }

    void redirects() {
        Redirects all;
        try {
            all = read_redirects(session_.proc());
        } catch (const ProcError &) {
            return;
        }
        for (const std::string &name : all.all()) {
            bool at_first = std::find(std::begin(OFF_AT_FIRST), std::end(OFF_AT_FIRST), name) ==
                            std::end(OFF_AT_FIRST);
            if (all.is_enabled(name) != at_first)
                add(fmt::format("redirect {} {}", at_first ? "disable" : "enable", name));
        }
    }

    void chip() {
        const Chip *told = standing_.chip();
        if (!told)
            return;
        for (const ChipPort &port : told->ports) {
            add(fmt::format("chip port {} {}", port.ifindex, port.device));
            if (!port.learns)
                add(fmt::format("chip learn {} off", port.ifindex));
            if (port.is_trusted)
                add(fmt::format("chip trusted {} on", port.ifindex));
        }
        for (const ChipAddress &one : standing_.addresses())
            for (std::uint32_t ifindex : one.ports)
                if (one.kind == "static" || one.kind == "group")
                    add(fmt::format("chip {} {} {} {}", one.kind, one.mac, one.vid, ifindex));
        settings();
    }

    // As a new chip has them they are left out.
    void settings() {
        constexpr std::string_view AT_FIRST[] = {"age 300", "flood hardware", "sflow 0",
                                                 "filter 0"};
        try {
            for (const std::string &line : lines_of(session_.chip("show settings")))
                if (!line.starts_with("unknown-multicast") &&
                    std::find(std::begin(AT_FIRST), std::end(AT_FIRST), line) == std::end(AT_FIRST))
                    add("chip " + line);
        } catch (const ProcError &) {
        }
    }

    Session &session_;
    Standing standing_;
    std::vector<std::string> lines_ = {};
};

} // namespace

std::vector<std::string> running(Session &session, bool with_comments) {
    auto lines = Running(session).lines();
    if (with_comments)
        lines.insert(lines.begin(), std::begin(COMMENTS), std::end(COMMENTS));
    return lines;
}

} // namespace tarnctl
