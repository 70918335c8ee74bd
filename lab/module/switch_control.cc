#include "switch_control.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/errno.h"
#include "kernel/netdev.h"
#include "kernel/seq.h"
#include "pkt/pkt_redirect.h"
#include "sockets/sockets.h"
#include "vlan/vlan_member.h"

// The function of the loaded core, by its address.
#define CORE(name) (reinterpret_cast<decltype(&(name))>(lab_core.name))

namespace {

constexpr u32 IFINDEXES = 8192;
constexpr u32 PORT_FLAGS = IFF_UP | IFF_BROADCAST;

// Every record that was declared, as the core's own database has it: for the kernel's search for
// leaks, from which the nodes of that database are hidden. A record that the core neither has nor
// gives back stands here no more once its ifindex is declared anew.
constinit tarn_if *volatile records[IFINDEXES] = {};

int declared(unsigned ifindex, i32 result) {
    if (result == 0 && ifindex < IFINDEXES) {
        records[ifindex] = CORE(tarn_ifmgr_lookup_by_index)(ifindex);
        CORE(tarn_ifmgr_if_ref_put)(records[ifindex]);
    }
    return result;
}

int change_flags(unsigned ifindex, u32 which, u32 flags) {
    tarn_if *ifp = CORE(tarn_ifmgr_lookup_by_index)(ifindex);
    if (!ifp)
        return TARN_ERR_NO_INTERFACE;
    u32 old = read_once(ifp->flags);
    write_once(ifp->flags, (old & ~which) | flags);
    CORE(tarn_ifmgr_L2_link_state_check)(ifp, (old & TARN_IF_LINK) == TARN_IF_LINK);
    CORE(tarn_ifmgr_if_ref_put)(ifp);
    return 0;
}

} // namespace

int lab_port(unsigned ifindex, const char *name, const unsigned char *address, int routed) {
    return declared(ifindex, CORE(tarn_ifmgr_switchport_create)(name, address, PORT_FLAGS, 0,
                                                                ifindex, static_cast<u8>(routed)));
}

int lab_ethernet(unsigned ifindex, const char *name, const unsigned char *address) {
    return declared(ifindex, CORE(tarn_ifmgr_ethernet_create)(name, address, PORT_FLAGS, ifindex,
                                                              TARN_IF_TYPE_ETHERNET));
}

int lab_aggregator(unsigned ifindex, const char *name, const unsigned char *address,
                   unsigned type) {
    return declared(ifindex, CORE(tarn_ifmgr_aggregator_add)(name, address, type, ifindex));
}

int lab_vlan(unsigned vid, const unsigned char *address, unsigned options) {
    tarn_if *vlan = nullptr;
    return declared(TARN_IF_VLAN_BASE + vid,
                    CORE(tarn_ifmgr_vlan_create)(address, sizeof(tarn_if::hwaddr), &vlan,
                                                 static_cast<u16>(vid), options));
}

int lab_delete(unsigned ifindex) {
    tarn_if *ifp = CORE(tarn_ifmgr_lookup_by_index)(ifindex);
    if (!ifp)
        return TARN_ERR_NO_INTERFACE;
    CORE(tarn_ifmgr_if_ref_put)(ifp);
    CORE(tarn_ifmgr_delete_interface)(ifp);
    return 0;
}

int lab_attach(unsigned aggregator, unsigned port) {
    return CORE(tarn_ifmgr_aggregator_port_attach)(aggregator, port);
}

int lab_member(unsigned vid, unsigned ifindex, int tagged) {
    i32 result = CORE(tarn_vlan_add_vlan_to_port)(ifindex, vid, static_cast<u32>(tagged));
    if (result == 0 && !tagged)
        result = CORE(tarn_vlan_set_default_pvid)(ifindex, static_cast<u16>(vid));
    return result;
}

int lab_no_member(unsigned vid, unsigned ifindex) {
    return CORE(tarn_vlan_delete_vlan_from_port)(ifindex, vid);
}

int lab_stp(unsigned ifindex, unsigned state) {
    i32 result = 0;
    for (u32 instance = 0; instance < TARN_STP_INSTANCES && result == 0; instance++)
        result = CORE(tarn_ifmgr_stp_port_state_set)(ifindex, instance, state);
    return result;
}

int lab_link(unsigned ifindex, int up) {
    return change_flags(ifindex, IFF_RUNNING, up ? IFF_RUNNING : 0);
}

int lab_flags(unsigned ifindex, unsigned flags) {
    return change_flags(ifindex, TARN_IF_LINK, flags);
}

int lab_filter(unsigned ifindex, int on) {
    return CORE(tarn_vlan_set_ingress_filter)(ifindex, static_cast<u8>(on));
}

int lab_shut(unsigned ifindex, unsigned vid, int on) {
    return CORE(tarn_vlan_set_vlan_port_disabled)(ifindex, vid, static_cast<u32>(on));
}

int lab_ring(unsigned vid, int on) {
    return CORE(tarn_ryke_set_ctrl_vlan)(vid, static_cast<u8>(on));
}

int lab_enable(const char *name, int value) {
    return CORE(enable_redirect_by_name)(name, static_cast<u8>(value));
}

int lab_udld(unsigned ifindex, int on, unsigned filter) {
    CORE(tarn_udld_enable)(on != 0);
    return CORE(tarn_udld_set_hw_filter)(ifindex, static_cast<u8>(filter));
}

void lab_counters(seq_file *view) {
    CORE(print_redirect_counters)(REDIRECT_COUNTERS_RX, view);
}

void lab_show(seq_file *view, unsigned ifindex) {
    tarn_if *ifp = CORE(tarn_ifmgr_lookup_by_index)(ifindex);
    if (!ifp)
        return;
    seq_printf(view, "if: %u %.16s flags 0x%x below %u device %d\n", ifp->ifindex, ifp->name,
               read_once(ifp->flags), read_once(ifp->oper_count),
               read_once(ifp->netdev) != nullptr);
    CORE(tarn_ifmgr_if_ref_put)(ifp);
}
