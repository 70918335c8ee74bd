#include "plain_switch/plain_switch.h"

#include "ifmgr/tarn_ifmgr_create.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace plain_switch {

namespace {

tarn_if *install(tarn_if *record) {
    tarn_if *installed = nullptr;
    i32 result = record ? _tarn_ifmgr_if_install(record, &installed, true) : TARN_ERR_NO_MEMORY;
    if (result != 0) {
        std::fprintf(stderr, "cannot add an interface to the switch: error %d\n", result);
        std::exit(1);
    }
    std::fill(std::begin(installed->stp_state), std::end(installed->stp_state),
              TARN_STP_FORWARDING);
    return installed;
}

} // namespace

tarn_if *add_port(u32 k) {
    tarn_if *port = _tarn_ifmgr_if_alloc();
    if (port) {
        std::snprintf(port->name, sizeof(port->name), "port%u", k);
        port->ifindex = FIRST_PORT_IFINDEX + k;
        port->type = TARN_IF_TYPE_SWITCHPORT;
        port->flags = IFF_UP | IFF_BROADCAST | IFF_RUNNING;
        const std::array<u8, 6> mac{2, 0, 0, 0, static_cast<u8>(1 + (k >> 8)), static_cast<u8>(k)};
        std::copy(mac.begin(), mac.end(), port->port_hwaddr);
    }
    return install(port);
}

tarn_if *add_vlan(u32 vid) {
    tarn_if *vlan = _tarn_ifmgr_if_alloc();
    if (vlan) {
        std::snprintf(vlan->name, sizeof(vlan->name), "vlan%u", vid);
        vlan->ifindex = TARN_IF_VLAN_BASE + vid;
        vlan->type = TARN_IF_TYPE_VLAN;
        vlan->vid = static_cast<u16>(vid);
        vlan->flags = IFF_UP | IFF_BROADCAST | IFF_RUNNING | IFF_MULTICAST;
        const std::array<u8, 6> mac{2, 0, 0, 0, 0, 1};
        std::copy(mac.begin(), mac.end(), vlan->hwaddr);
    }
    return install(vlan);
}

void add_member(tarn_if *port, u32 vid) {
    if (vid < TARN_VLAN_COUNT)
        port->vlan_member_bmp[vid >> 5] |= 1u << (vid & 31);
}

} // namespace plain_switch
