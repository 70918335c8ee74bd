// The core as a list of what it was given.
#include "fake_home.h"

#include "kernel/errno.h"
#include "kernel/skb.h"

namespace {

template <typename Map, typename Key, typename Value>
i32 find(const Map &map, const Key &key, Value *value) {
    std::lock_guard hold(home.lock);
    auto at = map.find(key);
    if (at == map.end())
        return -ENODEV;
    *value = at->second;
    return 0;
}

} // namespace

void rxtx_hw_register(rxtx_hw_callbacks callbacks) {
    std::lock_guard hold(home.lock);
    home.callbacks = callbacks;
}

u32 rxtx_hw_packet_recv(sk_buff *skb, u32 ifindex, u32 vid, const tarn_rx_meta *meta) {
    std::lock_guard hold(home.lock);
    if (home.at_delivery)
        home.at_delivery(skb);
    home.trapped.push_back(
        {Bytes(skb_data(skb), skb_data(skb) + skb_len(skb)), ifindex, vid, *meta});
    if (home.core_result == 0)
        consume_skb(skb);
    return home.core_result;
}

void rxtx_follow_register(const rxtx_follow_callbacks *callbacks) {
    FakeFacts facts;
    {
        std::lock_guard hold(home.lock);
        home.follower = callbacks ? *callbacks : rxtx_follow_callbacks{};
        facts = home.facts;
    }
    if (!callbacks)
        return;
    for (const auto &[ifindex, port] : facts.ports)
        callbacks->port(ifindex);
    for (const auto &[vid, vlan] : facts.vlans)
        callbacks->vlan(vid);
}

i32 rxtx_follow_port_get(u32 ifindex, rxtx_follow_port *port) {
    return find(home.facts.ports, ifindex, port);
}

u32 rxtx_follow_ifindex_get(const char *name) {
    std::lock_guard hold(home.lock);
    for (const auto &[ifindex, port] : home.facts.ports)
        if (port.name == std::string(name))
            return ifindex;
    return 0;
}

i32 rxtx_follow_vlans_get(u32 ifindex, u32 vid, rxtx_follow_vlans *vlans) {
    return find(home.facts.port_vlans, std::pair(ifindex, vid >> 5), vlans);
}

i32 rxtx_follow_stp_get(u32 ifindex, u32 instance) {
    i32 state = RXTX_FOLLOW_STP_FORWARDING;
    find(home.facts.stp, std::pair(ifindex, instance), &state);
    return state;
}

i32 rxtx_follow_vlan_get(u32 vid, rxtx_follow_vlan *vlan) {
    return find(home.facts.vlans, vid, vlan);
}
