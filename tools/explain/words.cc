#include "explain/words.h"

#include "pkt/pkt_info.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <string_view>

namespace explain {

namespace {

struct FlagWord {
    u32 flag;
    std::string_view word;
};

constexpr std::array<FlagWord, 7> FLAG_WORDS{{
    {REDIRECT_STOP, "stop"},
    {REDIRECT_FLOOD_L2, "flood"},
    {REDIRECT_STACK_REPLICATE, "replicate to the stack"},
    {REDIRECT_POST_KERNEL, "post to the IP stack"},
    {REDIRECT_POST_KERNEL_PORT, "post to the IP stack through the port"},
    {REDIRECT_RESEND_L2, "resend"},
    {REDIRECT_POST_USERSPACE, "post to user space"},
}};

struct Meaning {
    std::string_view redirect;
    u32 reason;
    std::string_view words;
};

// The common gate of the classification redirects.
constexpr std::string_view GATE =
    "VLAN disabled, our own source MAC, memory short, or ingress filter";

constexpr Meaning MEANINGS[] = {
    {"orvo-bridge", 1, "the layer 3 device is a bridge port: to the IP stack"},
    {"remote-mirror", 1, "frame on a mirror VLAN: flooded, unless its destination starts 01:80:C2"},
    {"sflow", 1, "no ingress port"},
    {"sflow", 3, "flow sample"},
    {"flowd", 1, "no ingress port"},
    {"flowd", 2, "given to the flow daemon"},
    {"l2drop", 1, "source MAC is all ones"},
    {"l2drop", 2, "source MAC has the group bit"},
    {"l2drop", 3, "source MAC is zero"},
    {"l2mac", 1, "a new address, told to the control daemon"},
    {"kelm", 1, "VLAN disabled on the port, or our own source MAC"},
    {"kelm", 2, "delivered or replicated"},
    {"kelm_agent", 1, "our own source MAC, or memory is short"},
    {"kelm_agent", 2, "no ingress port"},
    {"kelm_agent", 3, "delivered"},
    {"openflow", 1, "VLAN disabled on the port"},
    {"openflow", 2, "metadata flags are 2"},
    {"openflow", 3, "stopped without a post"},
    {"openflow", 4, "given to the OpenFlow daemon"},
    {"qoroResLink", 1, "resiliency link: to the IP stack if the VLAN has an interface"},
    {"testd", 1, "given to the test daemon"},
    {"eapol", 2, "given to the authenticator, or replicated on a slave"},
    {"befd", 1, "the frame carried a tag"},
    {"befd", 2, "given to the daemon"},
    {"befd", 3, "another frame of this protocol"},
    {"stp", 2, "given to the spanning tree daemon"},
    {"garp", 2, "given to the GARP daemon"},
    {"mrp", 1, "given to the MRP daemon"},
    {"profinet", 1, "given to the PROFINET daemon"},
    {"lacp", 2, "no ingress port"},
    {"lacp", 3, "given to the LACP daemon"},
    {"lldp", 2, "no ingress port"},
    {"lldp", 3, "given to the LLDP daemon"},
    {"udld", 1, "no ingress port"},
    {"udld", 2, "VLAN disabled, or ingress filter"},
    {"udld", 3, "handled"},
    {"ryke", 1, "ingress filter"},
    {"ryke", 3, "trap code is 1"},
    {"ryke", 4, "given to the ring daemon"},
    {"cfm", 1, "ingress filter on opcode 40"},
    {"cfm", 2, "neither replicated nor matched by a filter"},
    {"cfm", 3, "opcode 40 without a tag"},
    {"cfm", 4, "given to the CFM daemon"},
    {"isis", 2, "no ingress port"},
    {"isis", 3, "delivered"},
    {"grasp", 1, "to the IP stack"},
    {"ldf", 1, "VLAN disabled, or ingress filter"},
    {"ldf", 2, "handled"},
    {"l3drop", 1, "IPv4"},
    {"l3drop", 2, "IPv6"},
    {"filterMatchCpuCode", 1, "a filter of the chip sends it to the IP stack"},
    {"auth", 5, "VLAN disabled, our own source MAC, or ingress filter"},
    {"vornappsd", 1, "TCP port 80 of a known address: to the IP stack"},
    {"vornappsd", 2, "TCP port 443 of a known address: to the IP stack"},
    {"mcdrop", 1, "multicast MAC of no IP family"},
    {"mcdrop", 2, "a group that the chip floods by itself"},
    {"mcdrop", 3, "unregistered IPv4 multicast, throttled"},
    {"mcdrop", 4, "unregistered IPv6 multicast, throttled"},
    {"igmp", 1, "given to the IGMP daemon"},
    {"igmp", 2, "query or report on a slave"},
    {"igmp", 3, "unregistered data, given to the IGMP daemon"},
    {"igmp", 4, "the MAC address is not that of the group"},
    {"igmp", 5, "spanning tree is not forwarding"},
    {"igmp", 6, "VLAN disabled, our own source MAC, or ingress filter"},
    {"mlds", 1, "unregistered data, given to the MLD daemon"},
    {"mlds", 2, "the MAC address is not that of the group, or no router alert"},
    {"mlds", 3, "VLAN disabled, our own source MAC, or ingress filter"},
    {"pim", 1, GATE},
    {"vrrp", 1, GATE},
    {"dhcpsn", 1, GATE},
    {"dhcpsn", 2, "for the master only"},
    {"dhcpsn", 3, "this unit is a stack slave"},
    {"dhcpsn", 4, "spanning tree is not forwarding"},
    {"dhcpsn", 5, "DHCP message too short"},
    {"dhcpsn", 6, "given to the DHCP snooping daemon"},
    {"dhcpsn", 7, "the VLAN does not flood DHCP"},
    {"ipv4", 1, GATE},
    {"ipv4", 2, "for the master only, throttled"},
    {"ipv4", 3, "for the master only, replicated"},
    {"ipv4", 4, "to the IP stack"},
    {"ipv4", 5, "no layer 3 interface"},
    {"ipv6_precheck", 1, GATE},
    {"ipv6_precheck", 2, "no layer 3 interface"},
    {"ipv6_precheck", 3, "for the master only, throttled"},
    {"ipv6_precheck", 4, "for the master only, replicated"},
    {"ipv6_precheck", 5, "headers could not be walked"},
    {"ipv6", 1, GATE},
    {"ipv6", 2, "neighbour discovery over its limit"},
    {"ipv6", 3, "for the master only, throttled"},
    {"ipv6", 4, "for the master only, replicated"},
    {"ipv6", 5, "headers could not be walked"},
    {"ipv6", 6, "to the IP stack"},
    {"arp", 2, GATE},
    {"arp", 3, "for the master only, replicated"},
    {"arp", 4, "stack slave, and the VLAN is not local to it"},
    {"arp", 5, "no layer 2 port, or the port is not up"},
    {"arp", 6, "no layer 3 port"},
    {"arp", 7, "the layer 3 port is not up and running"},
    {"arp", 8, "ARP security violation"},
    {"arp", 9, "request while the master is pending"},
    {"arp", 10, "multicast sender MAC is not allowed"},
    {"arp", 11, "spanning tree is not forwarding"},
    {"arp", 12, "to the IP stack"},
    {"arp", 13, "no layer 3 interface"},
    {"rarp", 1, GATE},
    {"rarp", 2, "for the master only, replicated"},
    {"rarp", 3, "to the IP stack"},
    {"rarp", 4, "no layer 3 interface"},
    {"pppoe", 1, GATE},
    {"pppoe", 2, "to the IP stack"},
    {"pppoe", 3, "no layer 3 interface"},
    {"vlan_local", 1, "no ingress port"},
    {"ptp", 1, "to the IP stack through the port"},
};

struct TypeWord {
    u32 ethertype;
    std::string_view word;
};

constexpr TypeWord TYPE_WORDS[] = {
    {0x0800, "IPv4"},
    {0x0806, "ARP"},
    {0x8035, "RARP"},
    {0x8100, "802.1Q tag"},
    {0x86DD, "IPv6"},
    {0x8809, "slow protocols"},
    {0x8863, "PPPoE discovery"},
    {0x8864, "PPPoE session"},
    {0x888E, "EAPOL"},
    {0x8892, "PROFINET"},
    {0x88A8, "802.1ad tag"},
    {0x88CC, "LLDP"},
    {0x88E3, "MRP"},
    {0x88F7, "PTP"},
    {0x8902, "CFM"},
};

// Who is behind a service access point of IEEE 802.2.
constexpr TypeWord SAP_WORDS[] = {
    {0x06, "IPv4"},    {0x42, "spanning tree"},     {0xE0, "IPX"},
    {0xF0, "NetBIOS"}, {0xFE, "OSI network layer"}, {0xFF, "IPX without LLC"},
};
// The first byte of an OSI network layer's frame.
constexpr TypeWord OSI_WORDS[] = {{0x81, "CLNP"}, {0x82, "ES-IS"}, {0x83, "IS-IS"}};
constexpr u32 SAP_SNAP = 0xAA, SAP_OSI = 0xFE;

// Of SNAP's protocols those of an organization's own; of OUI 0 they are Ethernet's types.
struct SnapWord {
    u32 oui, protocol;
    std::string_view word;
};

constexpr SnapWord SNAP_WORDS[] = {
    {0x00000C, 0x010B, "PVST+"}, {0x00000C, 0x0111, "UDLD"}, {0x00000C, 0x2000, "CDP"},
    {0x00000C, 0x2003, "VTP"},   {0x00000C, 0x2004, "DTP"},
};

template <std::size_t Size>
std::string word_of(const TypeWord (&words)[Size], u32 number) {
    auto found = std::find_if(std::begin(words), std::end(words),
                              [&](const TypeWord &entry) { return entry.ethertype == number; });
    return found == std::end(words) ? "" : std::string(found->word);
}

std::string behind_a_blank(const std::string &word) {
    return word.empty() ? "" : " " + word;
}

std::string snap_word(u32 oui, u32 protocol) {
    if (oui == 0)
        return explain::ethertype_words(protocol);
    auto found =
        std::find_if(std::begin(SNAP_WORDS), std::end(SNAP_WORDS), [&](const SnapWord &entry) {
            return entry.oui == oui && entry.protocol == protocol;
        });
    return found == std::end(SNAP_WORDS) ? "" : std::string(found->word);
}

std::string snap_words(std::span<const u8> snap) {
    const u32 oui = static_cast<u32>(snap[0]) << 16 | snap[1] << 8 | snap[2];
    const u32 protocol = static_cast<u32>(snap[3]) << 8 | snap[4];
    return fmt::format("SNAP {:02x}:{:02x}:{:02x} 0x{:04x}{}", snap[0], snap[1], snap[2], protocol,
                       behind_a_blank(snap_word(oui, protocol)));
}

} // namespace

std::string flag_words(u32 flags) {
    std::string words;
    for (const FlagWord &entry : FLAG_WORDS) {
        if (!(flags & entry.flag))
            continue;
        if (!words.empty())
            words += ", ";
        words += entry.word;
    }
    return words.empty() ? "none" : words;
}

std::string reason_words(const std::string &redirect, u32 reason) {
    auto found = std::find_if(std::begin(MEANINGS), std::end(MEANINGS), [&](const Meaning &entry) {
        return entry.redirect == redirect && entry.reason == reason;
    });
    return found == std::end(MEANINGS) ? "" : std::string(found->words);
}

bool is_length(u32 ethertype) {
    return ethertype < 0x600;
}

std::string ethertype_words(u32 ethertype) {
    return is_length(ethertype) ? "802.3 length" : word_of(TYPE_WORDS, ethertype);
}

std::string llc_words(std::span<const u8> llc) {
    constexpr std::size_t header = 3, snap = 5;
    if (llc.size() < header)
        return "";
    if (llc[0] == SAP_SNAP && llc.size() >= header + snap)
        return snap_words(llc.subspan(header));
    std::string word = word_of(SAP_WORDS, llc[0]);
    if (llc[0] == SAP_OSI && llc.size() > header)
        if (std::string inner = word_of(OSI_WORDS, llc[header]); !inner.empty())
            word = inner;
    return fmt::format("LLC 0x{:02x}{}", llc[0], behind_a_blank(word));
}

} // namespace explain
