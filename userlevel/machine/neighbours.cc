#include "machine/neighbours.h"

#include "kernel/skb.h"
#include "machine/interface.h"
#include "netdev.h"
#include "pkt/frame.h"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>

namespace machine {

namespace {

// A VLAN device has the number of its VLAN's interface.
constexpr u32 VLAN_BASE = 300;
constexpr std::size_t STATIONS_MAX = 4096;
constexpr int IPV4 = 2, IPV6 = 10; // AF_INET, AF_INET6
constexpr u32 ARP_SENDER = ETH_HLEN + 8, IPV6_NEXT = ETH_HLEN + 6, ICMPV6_TYPE = ETH_HLEN + 40;
constexpr u8 ICMPV6 = 58, DISCOVERY_FIRST = 133, DISCOVERY_LAST = 137;

using station = std::pair<unsigned, hardware_address>; // on which device

std::mutex mutex;
std::set<unsigned> devices;
std::map<station, u32> ports; // behind which port

void learn(unsigned device, const frame_bytes &frame, u32 at, u32 port) {
    station sender{device, {}};
    frame.copy(at, sender.second.data(), static_cast<u32>(sender.second.size()));
    std::lock_guard guard(mutex);
    if (ports.size() >= STATIONS_MAX && !ports.contains(sender))
        ports.clear(); // they are learned again
    ports[sender] = port;
}

bool is_looked_for(const userlevel::neigh_flush &flush, const neighbour &one) {
    if (flush.device ? one.ifindex != flush.device->ifindex : !devices.contains(one.ifindex))
        return false;
    if (flush.vid != -1 && one.ifindex != static_cast<u32>(flush.vid) + VLAN_BASE)
        return false;
    if (!flush.mac.empty())
        return std::equal(flush.mac.begin(), flush.mac.end(), one.mac.begin());
    // What was said by hand was learned on no port. Of a station that is not known any more, any.
    auto known = ports.find({one.ifindex, one.mac});
    return !one.is_by_hand && (known == ports.end() || known->second == flush.ifindex);
}

} // namespace

void neighbours_device(unsigned ifindex, bool is_there) {
    std::lock_guard guard(mutex);
    if (is_there)
        devices.insert(ifindex);
    else
        devices.erase(ifindex);
}

void neighbours_learn(unsigned ifindex, sk_buff *skb) {
    frame_bytes frame(skb);
    u16 type = frame.be16(ETH_TYPE_OFFSET);
    u8 icmp = frame.byte(ICMPV6_TYPE);
    if (type == ETH_P_ARP)
        learn(ifindex, frame, ARP_SENDER, frame_port_word(skb));
    else if (type == ETH_P_IPV6 && frame.byte(IPV6_NEXT) == ICMPV6 && icmp >= DISCOVERY_FIRST &&
             icmp <= DISCOVERY_LAST)
        learn(ifindex, frame, ETH_SRC_OFFSET, frame_port_word(skb));
}

void neighbours_forget(const userlevel::neigh_flush &flush) {
    {
        std::lock_guard guard(mutex);
        if (devices.empty() || (flush.device && !devices.contains(flush.device->ifindex)))
            return;
    }
    const std::string_view table = flush.table;
    for (int family : {IPV4, IPV6}) {
        if (table == (family == IPV4 ? "ndisc" : "arp"))
            continue;
        for (const neighbour &one : machine_neighbours(family)) {
            std::unique_lock guard(mutex);
            bool wanted = is_looked_for(flush, one);
            guard.unlock();
            if (wanted)
                machine_neighbour_delete(one);
        }
    }
}

} // namespace machine
