// How the switch stands: its interfaces, as its proc tree lists them, and what only the chip under
// it tells (its own words, docs/driver.md). Read at the first need, and kept.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tarnctl {

struct Session;

inline constexpr std::uint32_t VLAN_IFINDEX_BASE = 300; // vlanVID has this and its VID
inline constexpr std::uint32_t VID_LAST = 4094;

struct Interface {
    std::string name;
    std::uint32_t ifindex;
    unsigned long flags; // IFF_*
    long running, references;
    unsigned long if_flags;
    std::vector<std::string> children = {};

    bool is_lag() const { return if_flags & 0x18; }
    bool is_routed() const { return if_flags & 0x80000; }
    bool has_link() const { return (flags & 0x41) == 0x41; }
    // Its VID, 0 for what is no VLAN.
    std::uint32_t vid() const;
    bool has_child(const std::string &child) const;
};

std::vector<Interface> parse_ifdb(const std::string &text);

struct ChipPort {
    std::uint32_t ifindex;
    std::string device;
    std::string name = {}; // in the switch, which may not know it
    bool up = false, learns = true, is_trusted = false;
    std::uint32_t pvid = 0, lag = 0, routed = 0, mirror = 0;
    std::vector<std::pair<std::string, std::uint64_t>> counts = {}; // "rx", "drop-vlan", ...
};

struct ChipAddress {
    std::string mac;
    std::uint32_t vid;
    std::string kind; // "learned", "static", "own", "group"
    std::vector<std::uint32_t> ports;
};

struct Chip {
    std::vector<ChipPort> ports = {};
    // Of each VLAN its ports, and whether they are tagged.
    std::map<std::uint32_t, std::map<std::uint32_t, bool>> vlans = {};
    std::vector<ChipAddress> addresses = {}; // of `show fdb` alone

    const ChipPort *port(std::uint32_t ifindex) const;
    std::uint32_t ifindex_of(const std::string &name_or_number) const;
};

// What `show ports`, `show vlans` and `show fdb` of the chip print; what is none of it is passed
// over.
Chip parse_chip(const std::string &text);

class Standing {
public:
    explicit Standing(Session &session) : session_(session) {}

    // None where the switch cannot be asked; `why_not` says why.
    bool is_known();
    const std::string &why_not() const { return why_not_; }

    const std::vector<Interface> &interfaces();
    const Interface *interface(std::uint32_t ifindex);
    const Interface *interface(const std::string &name);
    const Interface *vlan(std::uint32_t vid) { return interface(VLAN_IFINDEX_BASE + vid); }
    // The aggregator that it is a member of; null for none.
    const Interface *lag_of(const Interface &port);
    std::set<std::uint32_t> vids();
    // "p1 p2 lag1 VLANs 10,20-30"
    std::string names();

    // Null where there is none to ask. Its addresses, which may be many, are asked for apart.
    const Chip *chip();
    const std::vector<ChipAddress> &addresses();
    // Of a port in each instance, as the switch writes it; empty where it is not told.
    const std::vector<std::string> &stp_states(const std::string &port);
    // The switch's own address in a VLAN, where the chip tells it; else "".
    std::string vlan_mac(std::uint32_t vid);
    // Whether a port is tagged in a VLAN, where the chip tells it.
    std::optional<bool> is_tagged(const Interface &port, std::uint32_t vid);

private:
    void read();

    Session &session_;
    std::optional<std::vector<Interface>> interfaces_;
    std::map<std::uint32_t, std::size_t> by_ifindex_; // places in interfaces_
    std::map<std::string, std::size_t> by_name_;
    std::optional<std::optional<Chip>> chip_;
    std::string chip_ports_;
    std::optional<std::vector<ChipAddress>> addresses_;
    std::map<std::uint32_t, std::string> vlan_macs_;
    std::map<std::string, std::vector<std::string>> stp_;
    std::string why_not_;
};

// 10,20-30
std::string ranges(const std::set<std::uint32_t> &numbers);

} // namespace tarnctl
