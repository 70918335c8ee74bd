// One command of the control family, as its handler sees it, and the table of all of them.
//
// A handler is called when every attribute that its row names is there, and long enough. It reads
// them, finds the interface that its target wants, calls one function of a subsystem and gives back
// that function's result, which becomes the acknowledgement.
#pragma once

#include "ifmgr/tarn_ifmgr.h"
#include "kernel/errno.h"
#include "kernel/genl.h"
#include "tarn/tarnfwd_nl.h"

struct nl_command {
    nlattr_table attributes;

    bool has(tarnfwd_attr number) const { return attributes[number] != nullptr; }
    u32 length(tarnfwd_attr number) const { return nla_len(attributes[number]); }
    // At the attribute's full size: more are there than the row of the command asks for.
    const u8 *bytes(tarnfwd_attr number) const {
        return static_cast<const u8 *>(nla_data(attributes[number]));
    }
    u8 byte(tarnfwd_attr number) const { return *bytes(number); }
    u16 half(tarnfwd_attr number) const { return _read<u16>(number); }
    u32 word(tarnfwd_attr number) const { return _read<u32>(number); }

    u32 ifindex() const { return word(TARNFWD_ATTR_IFINDEX); }
    u16 vid() const { return half(TARNFWD_ATTR_VID); }
    const u8 *mac() const { return bytes(TARNFWD_ATTR_MAC); }
    // The 4 bytes as they stand in a packet.
    u32 address() const { return word(TARNFWD_ATTR_IPV4_ADDR); }
    u8 state() const { return byte(TARNFWD_ATTR_STATE); }
    bool on() const { return state() != 0; }

    template <typename Integer>
    Integer _read(tarnfwd_attr number) const {
        Integer value;
        memcpy(&value, bytes(number), sizeof(value));
        return value;
    }
};

// Calls with the interface of that ifindex and drops its reference; without one: `unknown`.
template <typename Call>
i32 nl_with_interface(u32 ifindex, i32 unknown, Call call) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
    if (!ifp)
        return unknown;
    i32 result = call(ifp);
    tarn_ifmgr_if_ref_put(ifp);
    return result;
}

inline constexpr u32 NL_NEEDS_MAX = 6;

struct nl_command_row {
    tarnfwd_cmd number;
    i32 (*handler)(const nl_command &command);
    tarnfwd_attr needs[NL_NEEDS_MAX]; // in the order in which they are asked for
};

#define NL_HANDLER(name) i32 tarnfwd_nl_##name(const nl_command &command)

// nl_interfaces.cc
NL_HANDLER(if_newlink);
NL_HANDLER(if_update);
NL_HANDLER(if_dellink);
NL_HANDLER(if_set_hwaddr);
NL_HANDLER(if_bind_fib);
NL_HANDLER(if_unbind_fib);
NL_HANDLER(if_delete_svi);
NL_HANDLER(lacp_delete_aggregator);
NL_HANDLER(if_create_svi_range);
NL_HANDLER(if_set_vlan_options);
NL_HANDLER(arp_mac_disparity);
NL_HANDLER(pmirror_set);
NL_HANDLER(pmirror_unset);
NL_HANDLER(port_set_l3);

// nl_neighbours.cc
NL_HANDLER(nbr_del_by_vlan_and_port);
NL_HANDLER(nbr_del_by_vlan_mac);
NL_HANDLER(arp_del_all_by_mac);

// nl_stp.cc
NL_HANDLER(stp_add_vlan_to_instance);
NL_HANDLER(stp_delete_vlan_from_instance);
NL_HANDLER(stp_set_port_state);

// nl_aggregators.cc

NL_HANDLER(lacp_attach_mux_to_aggregator);
NL_HANDLER(lacp_detach_mux_from_aggregator);

// nl_vlan.cc
NL_HANDLER(port_set_vlan_ingress_filter);
NL_HANDLER(vlan_set_default_pvid);
NL_HANDLER(vlan_add_port_dynamic);
NL_HANDLER(vlan_add_vid_bmp_to_port);
NL_HANDLER(vlan_delete_port_dynamic);
NL_HANDLER(vlan_delete_vid_bmp_from_port);
NL_HANDLER(vlan_port_state);
NL_HANDLER(vlan_port_state_bmp);

// nl_vlan_rules.cc
NL_HANDLER(if_set_vxlan_config);
NL_HANDLER(vlan_classifier_add);
NL_HANDLER(vlan_classifier_delete);
NL_HANDLER(vlan_xlate_add_to_port);
NL_HANDLER(vlan_xlate_delete_from_port);
NL_HANDLER(vlan_xlate_set_miss_action_to_port);
NL_HANDLER(vlan_stack_rule_add);
NL_HANDLER(vlan_stack_rule_delete);

// nl_multicast.cc
NL_HANDLER(igmp_snooping_routermode);
NL_HANDLER(igmp_snooping_routermode_db);
NL_HANDLER(stop_unreg_mc_flooding);
NL_HANDLER(multicast_ratelimit);
NL_HANDLER(ipv4_mc_vif_add);
NL_HANDLER(ipv4_mc_vif_del);
NL_HANDLER(ipv4_mc_flooding_group_add);
NL_HANDLER(ipv4_mc_flooding_group_remove);
NL_HANDLER(ipv4_mc_flooding_group_flush);
NL_HANDLER(ipv4_mc_software_routing_set);
NL_HANDLER(ipv6_mc_software_routing_set);
NL_HANDLER(ipv6_mc_vif_add);
NL_HANDLER(ipv6_mc_vif_del);

// nl_pvlan.cc
NL_HANDLER(pvlan_set_vlan_type);
NL_HANDLER(pvlan_vlan_associate);
NL_HANDLER(pvlan_vlan_dissociate);
NL_HANDLER(pvlan_port_add);
NL_HANDLER(pvlan_port_delete);
NL_HANDLER(pvlan_set_port_mode);
NL_HANDLER(pvlan_set_vlan_forwarding);
NL_HANDLER(pvlan_ufo_upstream_if_update);

// nl_auth.cc
NL_HANDLER(auth_set_port_state);
NL_HANDLER(auth_web_config);
NL_HANDLER(auth_fwd_config);
NL_HANDLER(auth_set_supp_state);
NL_HANDLER(auth_del_supp);
NL_HANDLER(auth_mac_ageout_incomplete);

// nl_dhcpsn.cc
NL_HANDLER(dhcpsn_lease);
NL_HANDLER(dhcpsn_state);
NL_HANDLER(dhcpsn_trust);
NL_HANDLER(dhcpsn_arpsec_action);
NL_HANDLER(dhcpsn_l2_flooding_state);

// nl_protocols.cc
NL_HANDLER(ryke_set_ctrl_vlan);
NL_HANDLER(udld_enabled);
NL_HANDLER(udld_set_hw_filter);
NL_HANDLER(vornappsd_redirect_add_ip_address);
NL_HANDLER(vornappsd_redirect_remove_ip_address);

// nl_stack.cc
NL_HANDLER(stack_mgmt_vlan_create);
NL_HANDLER(stack_mgmt_vlan_destroy);
NL_HANDLER(stack_mgmt_vlan_set_state);
