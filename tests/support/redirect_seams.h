// What the redirects ask of the features beside them, answered by a test.
//
// Each is the core's own until a test says something here.
#pragma once

#include "support/frame_builder.h"

#include <functional>
#include <map>
#include <optional>

struct sk_buff;
struct tarn_if;

namespace redirect_seams {

struct ArpCheck {
    tarn_if *port;
    u32 arp_offset, vid;
};

struct FdbEvent {
    Bytes mac;
    u32 ifindex;
    u8 event;
    u16 vid;
    u8 state;
    u32 vni, remote;
    bool operator==(const FdbEvent &) const = default;
};

struct Answers {
    std::optional<i32> ipv4_type, ipv6_type; // of a multicast frame
    bool ipv4_routing = false, ipv6_routing = false;
    std::optional<i32> arp_check; // ARP is checked, with this result
    std::vector<ArpCheck> arp_checks;
    bool master_pending = false;
    std::map<u32, u16> subnet_vlans; // by address, as in a packet
    std::optional<u32> block_bucket;
    std::optional<std::vector<FdbEvent>> fdb_events; // kept instead of sent
    std::function<void()> on_broadcast;              // before a frame goes to a raw netlink group
};

Answers &answers();

} // namespace redirect_seams
