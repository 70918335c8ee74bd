/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The functions of tarnfwd that tarn_lab calls, each with the name that /proc/kallsyms has for it.
 * tarnfwd exports what its driver needs and nothing else, so their addresses are parameters of
 * tarn_lab, named like the functions.
 */
#ifndef TARN_LAB_CORE_FUNCTIONS_H
#define TARN_LAB_CORE_FUNCTIONS_H

#define LAB_CORE_FUNCTIONS(FUNCTION)                                                               \
	FUNCTION(tarn_ifmgr_lookup_by_index, "_Z26tarn_ifmgr_lookup_by_indexj")                    \
	FUNCTION(tarn_ifmgr_if_ref_put, "_Z21tarn_ifmgr_if_ref_putP7tarn_if")                      \
	FUNCTION(tarn_ifmgr_switchport_create, "_Z28tarn_ifmgr_switchport_createPKcPKhjjjh")       \
	FUNCTION(tarn_ifmgr_ethernet_create, "_Z26tarn_ifmgr_ethernet_createPKcPKhjjj")            \
	FUNCTION(tarn_ifmgr_aggregator_add, "_Z25tarn_ifmgr_aggregator_addPKcPKhjj")               \
	FUNCTION(tarn_ifmgr_vlan_create, "_Z22tarn_ifmgr_vlan_createPKhjPP7tarn_iftj")             \
	FUNCTION(tarn_ifmgr_delete_interface, "_Z27tarn_ifmgr_delete_interfaceP7tarn_if")          \
	FUNCTION(tarn_ifmgr_aggregator_port_attach, "_Z33tarn_ifmgr_aggregator_port_attachjj")     \
	FUNCTION(tarn_ifmgr_stp_port_state_set, "_Z29tarn_ifmgr_stp_port_state_setjjj")            \
	FUNCTION(tarn_ifmgr_L2_link_state_check, "_Z30tarn_ifmgr_L2_link_state_checkP7tarn_ifj")   \
	FUNCTION(tarn_vlan_add_vlan_to_port, "_Z26tarn_vlan_add_vlan_to_portjjj")                  \
	FUNCTION(tarn_vlan_delete_vlan_from_port, "_Z31tarn_vlan_delete_vlan_from_portjj")         \
	FUNCTION(tarn_vlan_set_default_pvid, "_Z26tarn_vlan_set_default_pvidjt")                   \
	FUNCTION(tarn_vlan_set_ingress_filter, "_Z28tarn_vlan_set_ingress_filterjh")               \
	FUNCTION(tarn_vlan_set_vlan_port_disabled, "_Z32tarn_vlan_set_vlan_port_disabledjjj")      \
	FUNCTION(tarn_ryke_set_ctrl_vlan, "_Z23tarn_ryke_set_ctrl_vlanjh")                         \
	FUNCTION(print_redirect_counters, "_Z23print_redirect_countersjP8seq_file")                \
	FUNCTION(enable_redirect_by_name, "_Z23enable_redirect_by_namePKch")                       \
	FUNCTION(tarn_udld_enable, "_Z16tarn_udld_enableh")                                        \
	FUNCTION(tarn_udld_set_hw_filter, "_Z23tarn_udld_set_hw_filterjh")

#endif
