#include "replay/sinks.h"

#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "tarn/rxtx_hw.h"

#include <cstring>
#include <utility>

namespace replay {

namespace {

std::vector<Sent> sent;

u32 start_xmit(u32 ifindex, u32 vid, u32 tagged, u32, sk_buff *skb, u32, u8, u8) {
    sent.push_back({port_name(ifindex), vid, tagged != 0, skb_len(skb)});
    consume_skb(skb);
    return 0;
}

} // namespace

std::string port_name(u32 ifindex) {
    tarn_if *port = ifindex != 0 ? tarn_ifmgr_lookup_by_index(ifindex) : nullptr;
    std::string name = port ? std::string(port->name, strnlen(port->name, TARN_IF_NAME_SIZE)) : "";
    tarn_ifmgr_if_ref_put(port);
    return name;
}

void sinks_start() {
    rxtx_hw_register({.sdma_counters = nullptr,
                      .auth_set = nullptr,
                      .start_xmit = start_xmit,
                      .flood_except = nullptr,
                      .unknown_multicast_flood_set = nullptr,
                      .cache_index = nullptr});
}

Ends sinks_take() {
    Ends ends{.sent = std::exchange(sent, {}), .kernel = {}};
    for (net_device *device : userlevel::netdevs()) {
        auto frames = std::exchange(userlevel::netdev_recorded(device).received, {});
        for (const auto &frame : frames)
            ends.kernel.push_back({netdev_name(device), frame.bytes.size()});
    }
    return ends;
}

} // namespace replay
