// The control family: its attributes, its commands, and the check that stands before each of them.
#include "control/control.h"
#include "control/nl_command.h"
#include "events/tarnfwd_nl_event.h"
#include "kernel/netdev.h"

namespace {

#define A(name) TARNFWD_ATTR_##name

struct _attribute_row {
    tarnfwd_attr number;
    nla_policy_type type;
    u16 length = 0; // the most bytes; 0: no bound
};

constexpr _attribute_row ATTRIBUTES[] = {
    {TARNFWD_ATTR_IFINDEX, NLA_U32},
    {TARNFWD_ATTR_AGG_IFINDEX, NLA_U32},
    {TARNFWD_ATTR_PORT_IFINDEX, NLA_U32},
    {TARNFWD_ATTR_VID, NLA_U16},
    {TARNFWD_ATTR_ID, NLA_U32},
    {TARNFWD_ATTR_STATE, NLA_U8},
    {TARNFWD_ATTR_TAGGED, NLA_U8},
    {TARNFWD_ATTR_VID_BITMAP, NLA_BINARY, 512},
    {TARNFWD_ATTR_MAC, NLA_BINARY, 6},
    {TARNFWD_ATTR_FAMILY, NLA_U8},
    {TARNFWD_ATTR_IPV4_ADDR, NLA_BINARY, 4},
    {TARNFWD_ATTR_PREFIX_LEN, NLA_U8},
    {TARNFWD_ATTR_XLATE_VID, NLA_U16},
    {TARNFWD_ATTR_XLATE_NEW_VID, NLA_U16},
    {TARNFWD_ATTR_XLATE_MISS_ACTION, NLA_U8},
    {TARNFWD_ATTR_STACK_RULE_VID_A, NLA_U16},
    {TARNFWD_ATTR_STACK_RULE_VID_B, NLA_U16},
    {TARNFWD_ATTR_PVLAN_TYPE, NLA_U8},
    {TARNFWD_ATTR_PVLAN_PRIMARY_VID, NLA_U16},
    {TARNFWD_ATTR_PVLAN_SECONDARY_VID, NLA_U16},
    {TARNFWD_ATTR_PVLAN_PORT_MODE, NLA_U8},
    {TARNFWD_ATTR_PVLAN_FORWARDING, NLA_U8},
    {TARNFWD_ATTR_PVLAN_UPSTREAM_LIST, NLA_BINARY},
    {TARNFWD_ATTR_DHCPSN_LEASE_OP, NLA_U8},
    {TARNFWD_ATTR_DHCPSN_KIND, NLA_U8},
    {TARNFWD_ATTR_DHCPSN_GLOBAL, NLA_U8},
    {TARNFWD_ATTR_ARPSEC_ACTION, NLA_U8},
    {TARNFWD_ATTR_ARPSEC_REASON, NLA_U8},
    {TARNFWD_ATTR_MIRROR_TARGET, NLA_U32},
    {TARNFWD_ATTR_MIRROR_SOURCE, NLA_U32},
    {TARNFWD_ATTR_MIRROR_DIRECTION, NLA_U8},
    {TARNFWD_ATTR_STP_INSTANCE, NLA_U32},
    {TARNFWD_ATTR_STP_STATE, NLA_U8},
    {TARNFWD_ATTR_AUTH_PORT_STATE, NLA_U8},
    {TARNFWD_ATTR_AUTH_METHOD, NLA_U8},
    {TARNFWD_ATTR_AUTH_WEB_PORT, NLA_U16},
    {TARNFWD_ATTR_AUTH_WEB_PORT2, NLA_U16},
    {TARNFWD_ATTR_AUTH_HTTP_PORTS, NLA_BINARY},
    {TARNFWD_ATTR_AUTH_HTTPS_PORTS, NLA_BINARY},
    {TARNFWD_ATTR_AUTH_GUEST_FWD_RULES, NLA_BINARY},
    {TARNFWD_ATTR_AUTH_FWD_RULES, NLA_BINARY},
    {TARNFWD_ATTR_MC_RATE_LIMIT, NLA_U32},
    {TARNFWD_ATTR_MC_ROUTER_OP, NLA_U8},
    {TARNFWD_ATTR_MC_ROUTER_VALUE, NLA_U8},
    {TARNFWD_ATTR_FLAGS, NLA_U32},
    {TARNFWD_ATTR_SPEED, NLA_U32},
    {TARNFWD_ATTR_DUPLEX, NLA_U8},
    {TARNFWD_ATTR_VID_START, NLA_U16},
    {TARNFWD_ATTR_VID_END, NLA_U16},
    {TARNFWD_ATTR_VLAN_OPTIONS, NLA_U32},
    {TARNFWD_ATTR_VXLAN_LOCAL_ADDR, NLA_BINARY, 4},
    {TARNFWD_ATTR_VXLAN_REMOTE_ADDR, NLA_BINARY, 4},
    {TARNFWD_ATTR_VXLAN_VNI, NLA_U32},
    {TARNFWD_ATTR_RESERVED, NLA_U32},
    {TARNFWD_ATTR_IF_NAME, NLA_STRING},
    {TARNFWD_ATTR_IF_KIND, NLA_U8},
    {TARNFWD_ATTR_PORT_KIND, NLA_U8},
    {TARNFWD_ATTR_STACK_MEMBER, NLA_U32},
    {TARNFWD_ATTR_DOS_REASON, NLA_U8},
    {TARNFWD_ATTR_ETHERTYPE, NLA_U16},
    {TARNFWD_ATTR_DOS_HEADER, NLA_BINARY, 20},
    {TARNFWD_ATTR_FDB_EVENT, NLA_U8},
};
static_assert(sizeof(ATTRIBUTES) / sizeof(ATTRIBUTES[0]) == TARNFWD_ATTR_MAX);

// Kept for a command that no daemon may send any more.
i32 _l2_fdb_set(const nl_command &) {
    return -EINVAL;
}

// The two stacking rules ask for an interface and an action and use neither, on purpose: daemons
// send all four.
constexpr nl_command_row COMMANDS[] = {
    {TARNFWD_CMD_IF_NEWLINK, tarnfwd_nl_if_newlink, {A(IFINDEX), A(IF_NAME), A(IF_KIND), A(FLAGS)}},
    {TARNFWD_CMD_IF_UPDATE, tarnfwd_nl_if_update, {A(IFINDEX), A(FLAGS)}},
    {TARNFWD_CMD_IF_DELLINK, tarnfwd_nl_if_dellink, {A(IFINDEX)}},
    {TARNFWD_CMD_IF_SET_HWADDR, tarnfwd_nl_if_set_hwaddr, {A(IFINDEX), A(MAC)}},
    {TARNFWD_CMD_IF_BIND_FIB, tarnfwd_nl_if_bind_fib, {A(IFINDEX), A(ID)}},
    {TARNFWD_CMD_IF_UNBIND_FIB, tarnfwd_nl_if_unbind_fib, {A(IFINDEX), A(ID)}},
    {TARNFWD_CMD_IF_DELETE_SVI, tarnfwd_nl_if_delete_svi, {A(IFINDEX)}},
    {TARNFWD_CMD_IF_CREATE_SVI_RANGE,
     tarnfwd_nl_if_create_svi_range,
     {A(VID_START), A(VID_END), A(VLAN_OPTIONS), A(MAC)}},
    {TARNFWD_CMD_IF_SET_VLAN_OPTIONS,
     tarnfwd_nl_if_set_vlan_options,
     {A(IFINDEX), A(VLAN_OPTIONS)}},
    {TARNFWD_CMD_IF_SET_VXLAN_CONFIG,
     tarnfwd_nl_if_set_vxlan_config,
     {A(STATE), A(VID), A(VXLAN_VNI), A(VXLAN_REMOTE_ADDR), A(VXLAN_LOCAL_ADDR)}},
    {TARNFWD_CMD_NBR_DEL_BY_VLAN_AND_PORT,
     tarnfwd_nl_nbr_del_by_vlan_and_port,
     {A(FAMILY), A(ID), A(PORT_IFINDEX), A(IFINDEX)}},
    {TARNFWD_CMD_NBR_DEL_BY_VLAN_MAC, tarnfwd_nl_nbr_del_by_vlan_mac, {A(IFINDEX), A(MAC)}},
    {TARNFWD_CMD_ARP_MAC_DISPARITY, tarnfwd_nl_arp_mac_disparity, {A(IFINDEX), A(STATE)}},
    {TARNFWD_CMD_ARP_DEL_ALL_BY_MAC, tarnfwd_nl_arp_del_all_by_mac, {A(IFINDEX), A(ID), A(MAC)}},
    {TARNFWD_CMD_STP_ADD_VLAN_TO_INSTANCE,
     tarnfwd_nl_stp_add_vlan_to_instance,
     {A(VID), A(STP_INSTANCE)}},
    {TARNFWD_CMD_STP_DELETE_VLAN_FROM_INSTANCE, tarnfwd_nl_stp_delete_vlan_from_instance, {A(VID)}},
    {TARNFWD_CMD_STP_SET_PORT_STATE,
     tarnfwd_nl_stp_set_port_state,
     {A(IFINDEX), A(STP_INSTANCE), A(STP_STATE)}},
    {TARNFWD_CMD_PORT_SET_VLAN_INGRESS_FILTER,
     tarnfwd_nl_port_set_vlan_ingress_filter,
     {A(IFINDEX), A(STATE)}},
    {TARNFWD_CMD_VLAN_SET_DEFAULT_PVID, tarnfwd_nl_vlan_set_default_pvid, {A(IFINDEX), A(VID)}},
    {TARNFWD_CMD_VLAN_ADD_PORT_DYNAMIC,
     tarnfwd_nl_vlan_add_port_dynamic,
     {A(IFINDEX), A(TAGGED), A(VID)}},
    {TARNFWD_CMD_VLAN_ADD_VID_BMP_TO_PORT,
     tarnfwd_nl_vlan_add_vid_bmp_to_port,
     {A(IFINDEX), A(TAGGED), A(VID_BITMAP)}},
    {TARNFWD_CMD_VLAN_DELETE_PORT_DYNAMIC,
     tarnfwd_nl_vlan_delete_port_dynamic,
     {A(IFINDEX), A(VID)}},
    {TARNFWD_CMD_VLAN_DELETE_VID_BMP_FROM_PORT,
     tarnfwd_nl_vlan_delete_vid_bmp_from_port,
     {A(IFINDEX), A(VID_BITMAP)}},
    {TARNFWD_CMD_VLAN_CLASSIFIER_ADD,
     tarnfwd_nl_vlan_classifier_add,
     {A(IFINDEX), A(VID), A(IPV4_ADDR), A(PREFIX_LEN)}},
    {TARNFWD_CMD_VLAN_CLASSIFIER_DELETE,
     tarnfwd_nl_vlan_classifier_delete,
     {A(IFINDEX), A(VID), A(IPV4_ADDR), A(PREFIX_LEN)}},
    {TARNFWD_CMD_VLAN_XLATE_ADD_TO_PORT,
     tarnfwd_nl_vlan_xlate_add_to_port,
     {A(IFINDEX), A(XLATE_VID), A(XLATE_NEW_VID)}},
    {TARNFWD_CMD_VLAN_XLATE_DELETE_FROM_PORT,
     tarnfwd_nl_vlan_xlate_delete_from_port,
     {A(IFINDEX), A(XLATE_VID), A(XLATE_NEW_VID)}},
    {TARNFWD_CMD_VLAN_XLATE_SET_MISS_ACTION_TO_PORT,
     tarnfwd_nl_vlan_xlate_set_miss_action_to_port,
     {A(IFINDEX), A(XLATE_MISS_ACTION)}},
    {TARNFWD_CMD_VLAN_STACK_RULE_ADD,
     tarnfwd_nl_vlan_stack_rule_add,
     {A(IFINDEX), A(XLATE_MISS_ACTION), A(STACK_RULE_VID_A), A(STACK_RULE_VID_B)}},
    {TARNFWD_CMD_VLAN_STACK_RULE_DELETE,
     tarnfwd_nl_vlan_stack_rule_delete,
     {A(IFINDEX), A(XLATE_MISS_ACTION), A(STACK_RULE_VID_A), A(STACK_RULE_VID_B)}},
    {TARNFWD_CMD_IGMP_SNOOPING_ROUTERMODE,
     tarnfwd_nl_igmp_snooping_routermode,
     {A(ID), A(IPV4_ADDR), A(MC_ROUTER_OP), A(MC_ROUTER_VALUE)}},
    {TARNFWD_CMD_IGMP_SNOOPING_ROUTERMODE_DB,
     tarnfwd_nl_igmp_snooping_routermode_db,
     {A(ID), A(STATE)}},
    {TARNFWD_CMD_STOP_UNREG_MC_FLOODING, tarnfwd_nl_stop_unreg_mc_flooding, {A(STATE)}},
    {TARNFWD_CMD_MULTICAST_RATELIMIT, tarnfwd_nl_multicast_ratelimit, {A(MC_RATE_LIMIT)}},
    {TARNFWD_CMD_IPV4_MC_VIF_ADD, tarnfwd_nl_ipv4_mc_vif_add, {A(IFINDEX)}},
    {TARNFWD_CMD_IPV4_MC_VIF_DEL, tarnfwd_nl_ipv4_mc_vif_del, {A(IFINDEX)}},
    {TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_ADD,
     tarnfwd_nl_ipv4_mc_flooding_group_add,
     {A(ID), A(VID), A(IPV4_ADDR)}},
    {TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_REMOVE,
     tarnfwd_nl_ipv4_mc_flooding_group_remove,
     {A(ID), A(VID), A(IPV4_ADDR)}},
    {TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_FLUSH, tarnfwd_nl_ipv4_mc_flooding_group_flush, {}},
    {TARNFWD_CMD_IPV4_MC_SOFTWARE_ROUTING_SET, tarnfwd_nl_ipv4_mc_software_routing_set, {A(STATE)}},
    {TARNFWD_CMD_IPV6_MC_SOFTWARE_ROUTING_SET, tarnfwd_nl_ipv6_mc_software_routing_set, {A(STATE)}},
    {TARNFWD_CMD_LACP_DELETE_AGGREGATOR, tarnfwd_nl_lacp_delete_aggregator, {A(AGG_IFINDEX)}},
    {TARNFWD_CMD_LACP_ATTACH_MUX_TO_AGGREGATOR,
     tarnfwd_nl_lacp_attach_mux_to_aggregator,
     {A(IFINDEX), A(AGG_IFINDEX)}},
    {TARNFWD_CMD_LACP_DETACH_MUX_FROM_AGGREGATOR,
     tarnfwd_nl_lacp_detach_mux_from_aggregator,
     {A(IFINDEX), A(AGG_IFINDEX)}},
    {TARNFWD_CMD_PVLAN_SET_VLAN_TYPE, tarnfwd_nl_pvlan_set_vlan_type, {A(VID), A(PVLAN_TYPE)}},
    {TARNFWD_CMD_PVLAN_VLAN_ASSOCIATE,
     tarnfwd_nl_pvlan_vlan_associate,
     {A(PVLAN_PRIMARY_VID), A(PVLAN_SECONDARY_VID)}},
    {TARNFWD_CMD_PVLAN_VLAN_DISSOCIATE,
     tarnfwd_nl_pvlan_vlan_dissociate,
     {A(PVLAN_PRIMARY_VID), A(PVLAN_SECONDARY_VID)}},
    {TARNFWD_CMD_PVLAN_PORT_ADD,
     tarnfwd_nl_pvlan_port_add,
     {A(IFINDEX), A(PVLAN_PRIMARY_VID), A(PVLAN_SECONDARY_VID)}},
    {TARNFWD_CMD_PVLAN_PORT_DELETE,
     tarnfwd_nl_pvlan_port_delete,
     {A(IFINDEX), A(PVLAN_PRIMARY_VID), A(PVLAN_SECONDARY_VID)}},
    {TARNFWD_CMD_PVLAN_SET_PORT_MODE,
     tarnfwd_nl_pvlan_set_port_mode,
     {A(IFINDEX), A(PVLAN_PORT_MODE)}},
    {TARNFWD_CMD_PVLAN_SET_VLAN_FORWARDING,
     tarnfwd_nl_pvlan_set_vlan_forwarding,
     {A(VID), A(PVLAN_FORWARDING)}},
    {TARNFWD_CMD_PVLAN_UFO_UPSTREAM_IF_UPDATE,
     tarnfwd_nl_pvlan_ufo_upstream_if_update,
     {A(PVLAN_UPSTREAM_LIST)}},
    {TARNFWD_CMD_AUTH_SET_PORT_STATE,
     tarnfwd_nl_auth_set_port_state,
     {A(IFINDEX), A(AUTH_PORT_STATE), A(AUTH_METHOD)}},
    {TARNFWD_CMD_AUTH_WEB_CONFIG,
     tarnfwd_nl_auth_web_config,
     {A(IPV4_ADDR), A(AUTH_WEB_PORT), A(AUTH_WEB_PORT2), A(STATE), A(AUTH_HTTP_PORTS),
      A(AUTH_HTTPS_PORTS)}},
    {TARNFWD_CMD_AUTH_FWD_CONFIG,
     tarnfwd_nl_auth_fwd_config,
     {A(IFINDEX), A(VID), A(STATE), A(AUTH_GUEST_FWD_RULES), A(AUTH_FWD_RULES)}},
    {TARNFWD_CMD_AUTH_SET_SUPP_STATE,
     tarnfwd_nl_auth_set_supp_state,
     {A(IFINDEX), A(VID), A(STATE), A(MAC)}},
    {TARNFWD_CMD_AUTH_DEL_SUPP, tarnfwd_nl_auth_del_supp, {A(IFINDEX), A(MAC)}},
    {TARNFWD_CMD_AUTH_MAC_AGEOUT_INCOMPLETE,
     tarnfwd_nl_auth_mac_ageout_incomplete,
     {A(IFINDEX), A(STATE), A(MAC)}},
    {TARNFWD_CMD_RYKE_SET_CTRL_VLAN, tarnfwd_nl_ryke_set_ctrl_vlan, {A(VID), A(STATE)}},
    {TARNFWD_CMD_VLAN_PORT_STATE, tarnfwd_nl_vlan_port_state, {A(IFINDEX), A(VID), A(STATE)}},
    {TARNFWD_CMD_VLAN_PORT_STATE_BMP,
     tarnfwd_nl_vlan_port_state_bmp,
     {A(IFINDEX), A(VID_BITMAP), A(STATE)}},
    {TARNFWD_CMD_PMIRROR_SET,
     tarnfwd_nl_pmirror_set,
     {A(MIRROR_TARGET), A(MIRROR_SOURCE), A(VID), A(MIRROR_DIRECTION)}},
    {TARNFWD_CMD_PMIRROR_UNSET,
     tarnfwd_nl_pmirror_unset,
     {A(MIRROR_TARGET), A(MIRROR_SOURCE), A(VID), A(MIRROR_DIRECTION)}},
    {TARNFWD_CMD_DHCPSN_LEASE,
     tarnfwd_nl_dhcpsn_lease,
     {A(IFINDEX), A(VID), A(DHCPSN_LEASE_OP), A(IPV4_ADDR), A(MAC)}},
    {TARNFWD_CMD_DHCPSN_STATE,
     tarnfwd_nl_dhcpsn_state,
     {A(VID), A(DHCPSN_KIND), A(STATE), A(DHCPSN_GLOBAL)}},
    {TARNFWD_CMD_DHCPSN_TRUST, tarnfwd_nl_dhcpsn_trust, {A(IFINDEX), A(STATE)}},
    {TARNFWD_CMD_DHCPSN_ARPSEC_ACTION,
     tarnfwd_nl_dhcpsn_arpsec_action,
     {A(IFINDEX), A(ARPSEC_ACTION)}},
    {TARNFWD_CMD_DHCPSN_L2_FLOODING_STATE, tarnfwd_nl_dhcpsn_l2_flooding_state, {A(VID), A(STATE)}},
    {TARNFWD_CMD_UDLD_ENABLED, tarnfwd_nl_udld_enabled, {A(STATE)}},
    {TARNFWD_CMD_UDLD_SET_HW_FILTER, tarnfwd_nl_udld_set_hw_filter, {A(IFINDEX), A(STATE)}},
    {TARNFWD_CMD_VORNAPPSD_REDIRECT_ADD_IP_ADDRESS,
     tarnfwd_nl_vornappsd_redirect_add_ip_address,
     {A(IPV4_ADDR)}},
    {TARNFWD_CMD_VORNAPPSD_REDIRECT_REMOVE_IP_ADDRESS,
     tarnfwd_nl_vornappsd_redirect_remove_ip_address,
     {A(IPV4_ADDR)}},
    {TARNFWD_CMD_L2_FDB_SET, _l2_fdb_set, {}},
    {TARNFWD_CMD_STACK_MGMT_VLAN_CREATE, tarnfwd_nl_stack_mgmt_vlan_create, {A(VID), A(MAC)}},
    {TARNFWD_CMD_STACK_MGMT_VLAN_DESTROY, tarnfwd_nl_stack_mgmt_vlan_destroy, {}},
    {TARNFWD_CMD_STACK_MGMT_VLAN_SET_STATE, tarnfwd_nl_stack_mgmt_vlan_set_state, {A(STATE)}},
    {TARNFWD_CMD_IPV6_MC_VIF_ADD, tarnfwd_nl_ipv6_mc_vif_add, {A(IFINDEX)}},
    {TARNFWD_CMD_IPV6_MC_VIF_DEL, tarnfwd_nl_ipv6_mc_vif_del, {A(IFINDEX)}},
    {TARNFWD_CMD_PORT_SET_L3, tarnfwd_nl_port_set_l3, {A(IFINDEX), A(VID)}},
};
#undef A
constexpr u32 COMMAND_COUNT = sizeof(COMMANDS) / sizeof(COMMANDS[0]);

// What the home wants to know, made of the two tables.
struct _lists {
    nla_policy_row policy[TARNFWD_ATTR_MAX + 1];
    u8 commands[COMMAND_COUNT];
    u8 row_of[TARNFWD_CMD_MAX + 1];
};

constexpr _lists LISTS = [] {
    _lists lists{};
    for (const _attribute_row &row : ATTRIBUTES)
        lists.policy[row.number] = {row.type, row.length};
    for (u32 i = 0; i < COMMAND_COUNT; i++) {
        lists.commands[i] = static_cast<u8>(COMMANDS[i].number);
        lists.row_of[COMMANDS[i].number] = static_cast<u8>(i);
    }
    return lists;
}();

// The policy bounds bytes from above only. The bitmap may be short: its handler fills it up.
u32 _least_bytes(tarnfwd_attr number) {
    switch (number) {
    case TARNFWD_ATTR_MAC:
        return NETDEV_ADDRESS_SIZE;
    case TARNFWD_ATTR_IPV4_ADDR:
    case TARNFWD_ATTR_VXLAN_LOCAL_ADDR:
    case TARNFWD_ATTR_VXLAN_REMOTE_ADDR:
        return sizeof(u32);
    default:
        return 0;
    }
}

bool _is_complete(const nl_command &command, const nl_command_row &row) {
    for (tarnfwd_attr needed : row.needs) {
        if (needed == TARNFWD_ATTR_UNSPEC)
            return true;
        if (!command.has(needed) || command.length(needed) < _least_bytes(needed))
            return false;
    }
    return true;
}

i32 _doit(u8 number, nlattr_table attributes) {
    const nl_command_row &row = COMMANDS[LISTS.row_of[number]];
    nl_command command{attributes};
    return _is_complete(command, row) ? row.handler(command) : -EINVAL;
}

} // namespace

const genl_family_record tarnfwd_nl_family = {
    .name = TARNFWD_NL_FAMILY,
    .version = TARNFWD_NL_VERSION,
    .maxattr = TARNFWD_ATTR_MAX,
    .policy = LISTS.policy,
    .commands = LISTS.commands,
    .command_count = COMMAND_COUNT,
    .group = TARNFWD_NL_GROUP,
    .doit = _doit,
};

// A family that could not be registered leaves the switch without a control plane, not without
// frames.
i32 tarnfwd_nl_init() {
    genl_register_family(&tarnfwd_nl_family);
    return 0;
}
