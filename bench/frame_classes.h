// The classes of frame whose cost on the receive path is watched.
#pragma once

#include "control.h"
#include "module/tarn_module.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_redirect.h"
#include "plain_switch/plain_switch.h"
#include "redirects/redirects.h"
#include "support/frame_builder.h"
#include "tarn/skaddr.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace frame_classes {

struct Class {
    std::string name;
    Bytes frame;
    int family = 0;          // whose daemons listen
    std::size_t sockets = 0; // how many of them
};

namespace detail {

inline Bytes ipv4_of(std::size_t length) {
    return Frame().ipv4({}).padded(length);
}

inline Bytes lacpdu() {
    return Frame().to("01:80:c2:00:00:02").type(0x8809).bytes({1, 1}).padded(124);
}

// An IEEE 802.1D BPDU: a length, LLC with SAP 0x42, 35 bytes.
inline Bytes bpdu() {
    return Frame().to("01:80:c2:00:00:00").type(38).bytes({0x42, 0x42, 3}).padded();
}

// To the solicited-node group of the switch's address (RFC 4861).
inline Bytes neighbour_solicitation() {
    Ipv6 to_node{.next = 58, .destination = {0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0xFF, 0, 0, 2}};
    return Frame().to("33:33:ff:00:00:02").ipv6(to_node).bytes({135, 0}).padded(86);
}

} // namespace detail

inline std::vector<Class> all() {
    using namespace detail;
    Ipv6 listeners{.next = 0};
    return {
        {"lacp-1-socket", lacpdu(), TARN_AF_LACP, 1},
        {"lacp-10-sockets", lacpdu(), TARN_AF_LACP, 10},
        {"stp-1-socket", bpdu(), TARN_AF_STP, 1},
        {"lldp-1-socket", Frame().to("01:80:c2:00:00:0e").type(0x88CC).padded(), TARN_AF_LLDP, 1},
        {"unclaimed", Frame().type(0x88B5).padded()},
        {"unclaimed-tagged", Frame().tag(1).type(0x88B5).padded()},
        {"ipv4-to-switch", ipv4_of(60)},
        {"ipv4-512-bytes", ipv4_of(512)},
        {"ipv4-1500-bytes", ipv4_of(1500)},
        {"ipv4-9216-bytes", ipv4_of(9216)},
        {"ipv4-tagged", Frame().tag(1).ipv4({}).padded()},
        {"ipv6-to-switch", Frame().ipv6({}).padded()},
        {"ipv6-hop-by-hop",
         Frame().ipv6(listeners).bytes({58, 0, 5, 2, 0, 0, 1, 0}).bytes({143, 0}).padded()},
        {"neighbour-discovery", neighbour_solicitation()},
        {"pim", Frame().ipv4({.protocol = 103}).padded()},
        {"pppoe", Frame().type(0x8863).padded()},
        // By "pppoe", the last in the order, since it comes from ourselves.
        {"dropped-last", Frame().from("02:00:00:00:00:01").type(0x8863).padded()},
        // By "l2drop", the first that drops frames of a port as the switch starts.
        {"dropped-first", Frame().from("ff:ff:ff:ff:ff:ff").padded()},
        {"runt", Frame().cut(8)},
        {"arp",
         Frame().to("ff:ff:ff:ff:ff:ff").type(0x0806).bytes({0, 1, 8, 0, 6, 4, 0, 1}).padded()},
        {"multicast-ipv4",
         Frame().to("01:00:5e:00:00:05").ipv4({.destination = {224, 0, 0, 5}}).padded()},
        {"multicast-unregistered",
         Frame().to("01:00:5e:01:02:03").ipv4({.destination = {239, 1, 2, 3}}).padded()},
        {"multicast-registered",
         Frame().to("01:00:5e:01:02:04").ipv4({.destination = {239, 1, 2, 4}}).padded()},
    };
}

namespace detail {

inline bool make_switch() {
    init_module();
    for (u32 vid = 1; vid <= 100; vid++)
        plain_switch::add_vlan(vid);
    for (u32 k = 1; k <= 64; k++)
        plain_switch::add_member(plain_switch::add_port(k), 1);
    constexpr u8 group[] = {239, 1, 2, 4};
    u32 address;
    memcpy(&address, group, sizeof(address));
    return tarn_mcdrop_flooding_group_add(0, 1, address) == 0;
}

} // namespace detail

// A switch of the usual size, once: 64 ports, 100 VLANs, and one group that the chip floods.
inline void load() {
    static const bool made = detail::make_switch();
    if (!made)
        std::abort();
}

inline tarn_rx_meta meta() {
    tarn_rx_meta meta{};
    meta.debug = 1;
    meta.flood_except[0] = FLOOD_NO_EXCEPTION;
    return meta;
}

} // namespace frame_classes
