// The classes of frame whose cost on the receive path is watched.
#pragma once

#include "control.h"
#include "module/tarn_module.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_redirect.h"
#include "plain_switch/plain_switch.h"
#include "support/frame_builder.h"

#include <string>
#include <vector>

namespace frame_classes {

struct Class {
    std::string name;
    Bytes frame;
};

inline std::vector<Class> all() {
    Ipv6 listeners{.next = 0};
    return {
        {"unclaimed", Frame().type(0x88B5).padded()},
        {"unclaimed-tagged", Frame().tag(1).type(0x88B5).padded()},
        {"unclaimed-ipv4", Frame().ipv4({}).padded()},
        {"unclaimed-ipv6", Frame().ipv6({}).padded()},
        {"ipv6-hop-by-hop",
         Frame().ipv6(listeners).bytes({58, 0, 5, 2, 0, 0, 1, 0}).bytes({143, 0}).padded()},
        {"pim", Frame().ipv4({.protocol = 103}).padded()},
        {"pppoe", Frame().type(0x8863).padded()},
        {"l2drop", Frame().from("ff:ff:ff:ff:ff:ff").padded()},
        {"runt", Frame().cut(8)},
        {"arp",
         Frame().to("ff:ff:ff:ff:ff:ff").type(0x0806).bytes({0, 1, 8, 0, 6, 4, 0, 1}).padded()},
        {"multicast-ipv4",
         Frame().to("01:00:5e:00:00:05").ipv4({.destination = {224, 0, 0, 5}}).padded()},
        {"multicast-held",
         Frame().to("01:00:5e:01:02:03").ipv4({.destination = {239, 1, 2, 3}}).padded()},
    };
}

// A switch of the usual size: 64 ports, 100 VLANs.
inline void load() {
    init_module();
    for (u32 vid = 1; vid <= 100; vid++)
        plain_switch::add_vlan(vid);
    for (u32 k = 1; k <= 64; k++)
        plain_switch::add_member(plain_switch::add_port(k), 1);
}

inline tarn_rx_meta meta() {
    tarn_rx_meta meta{};
    meta.debug = 1;
    meta.flood_except[0] = FLOOD_NO_EXCEPTION;
    return meta;
}

} // namespace frame_classes
