#include "plain_switch/plain_switch.h"

#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/netdev.h"
#include "vlan/vlan_member.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace plain_switch {

namespace {

constexpr u32 PORT_FLAGS = IFF_UP | IFF_BROADCAST | IFF_RUNNING;
constexpr u32 VLAN_FLAGS = PORT_FLAGS | IFF_MULTICAST;

void must(i32 result, u32 number) {
    if (result == 0)
        return;
    std::fprintf(stderr, "cannot add interface %u to the switch: error %d\n", number, result);
    std::exit(1);
}

tarn_if *forwarding(tarn_if *port) {
    for (u32 instance = 0; instance < TARN_STP_INSTANCES; instance++)
        tarn_ifmgr_stp_port_state_set(port->ifindex, instance, TARN_STP_FORWARDING);
    return port;
}

} // namespace

tarn_if *add_port(u32 k) {
    char name[TARN_IF_NAME_SIZE];
    std::snprintf(name, sizeof(name), "port%u", k);
    const u8 mac[6] = {2, 0, 0, 0, static_cast<u8>(1 + (k >> 8)), static_cast<u8>(k)};
    u32 ifindex = FIRST_PORT_IFINDEX + k;
    must(tarn_ifmgr_switchport_create(name, mac, PORT_FLAGS, 0, ifindex, 0), ifindex);
    tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
    tarn_ifmgr_if_ref_put(port);
    userlevel::work_run();
    return forwarding(port);
}

tarn_if *add_vlan(u32 vid) {
    const u8 mac[6] = {2, 0, 0, 0, 0, 1};
    tarn_if *vlan = nullptr;
    must(tarn_ifmgr_vlan_create(mac, sizeof(mac), &vlan, static_cast<u16>(vid), 0), vid);
    vlan->flags = VLAN_FLAGS;
    std::fill(std::begin(vlan->stp_state), std::end(vlan->stp_state), TARN_STP_FORWARDING);
    return vlan;
}

void add_member(tarn_if *port, u32 vid) {
    tarn_vlan_add_vlan_to_port(port->ifindex, vid, 0);
    userlevel::work_run();
    tarn_if *vlan = tarn_ifmgr_lookup_by_vid(vid);
    if (vlan)
        vlan->flags = VLAN_FLAGS;
    tarn_ifmgr_if_ref_put(vlan);
}

} // namespace plain_switch
