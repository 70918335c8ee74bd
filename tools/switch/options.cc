#include "switch/options.h"

#include <CLI/CLI.hpp>
#include <grp.h>
#include <set>

namespace live {

namespace {

constexpr unsigned LAST_VID = 4094;
constexpr std::size_t NAME_MAX_LENGTH = 15;

[[noreturn]] void wrong(const std::string &option, const std::string &what) {
    throw CLI::ValidationError(option, what);
}

std::vector<std::string> split(const std::string &text, char at) {
    std::vector<std::string> parts;
    std::size_t from = 0;
    for (std::size_t to; (to = text.find(at, from)) != std::string::npos; from = to + 1)
        parts.push_back(text.substr(from, to - from));
    parts.push_back(text.substr(from));
    return parts;
}

unsigned parse_vid(const std::string &text) {
    bool digits = !text.empty() && text.size() <= 4 &&
                  text.find_first_not_of("0123456789") == std::string::npos;
    unsigned vid = digits ? static_cast<unsigned>(std::stoul(text)) : 0;
    if (vid < 1 || vid > LAST_VID)
        wrong("--vlan", "'" + text + "' is no VLAN number: write one from 1 to 4094");
    return vid;
}

MemberOption parse_member(const std::string &text) {
    auto parts = split(text, ':');
    bool tagged = parts.size() == 2 && parts[1] == "tagged";
    if (parts[0].empty() || parts.size() > 2 ||
        (parts.size() == 2 && !tagged && parts[1] != "untagged"))
        wrong("--vlan", "'" + text + "' is no member: write PORT, PORT:tagged or PORT:untagged");
    return {parts[0], tagged};
}

} // namespace

PortOption parse_port(const std::string &text) {
    auto at = text.find('=');
    if (at == std::string::npos || at == 0 || at + 1 == text.size())
        wrong("--port", "'" + text + "' names no port: write NAME=DEVICE, as p1=veth1");
    PortOption port{text.substr(0, at), text.substr(at + 1)};
    if (port.name.size() > NAME_MAX_LENGTH)
        wrong("--port", "the name '" + port.name + "' is too long: at most 15 characters");
    return port;
}

VlanOption parse_vlan(const std::string &text) {
    auto at = text.find('=');
    VlanOption vlan{parse_vid(text.substr(0, at)), {}};
    if (at == std::string::npos)
        return vlan;
    for (const std::string &member : split(text.substr(at + 1), ','))
        vlan.members.push_back(parse_member(member));
    return vlan;
}

gid_t parse_group(const std::string &text) {
    if (const group *known = getgrnam(text.c_str()))
        return known->gr_gid;
    bool digits = !text.empty() && text.size() <= 9 &&
                  text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits)
        wrong("--group", "there is no group '" + text + "'");
    return static_cast<gid_t>(std::stoul(text));
}

void refuse_twice(const Options &options) {
    std::set<std::string> names;
    for (const PortOption &port : options.ports)
        if (!names.insert(port.name).second)
            wrong("--port", "port '" + port.name + "' is given twice: each needs its own name");
    std::set<unsigned> vids;
    for (const VlanOption &vlan : options.vlans)
        if (!vids.insert(vlan.vid).second)
            wrong("--vlan", "VLAN " + std::to_string(vlan.vid) +
                                " is given twice: write all its ports in one --vlan");
}

} // namespace live
