#include "client/attributes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <tarn/tarnfwd_nl.h>

namespace client {

namespace {

#define ATTRIBUTE(name, type)                                                                      \
    {                                                                                              \
        TARNFWD_ATTR_##name, {                                                                     \
#name, Type::type                                                                      \
        }                                                                                          \
    }
struct AttributeRow {
    std::uint16_t number;
    AttributeInfo info;
};
constexpr AttributeRow ATTRIBUTES[] = {
    ATTRIBUTE(IFINDEX, u32),
    ATTRIBUTE(AGG_IFINDEX, u32),
    ATTRIBUTE(PORT_IFINDEX, u32),
    ATTRIBUTE(VID, u16),
    ATTRIBUTE(ID, u32),
    ATTRIBUTE(STATE, u8),
    ATTRIBUTE(TAGGED, u8),
    ATTRIBUTE(VID_BITMAP, bytes),
    ATTRIBUTE(MAC, bytes),
    ATTRIBUTE(FAMILY, u8),
    ATTRIBUTE(IPV4_ADDR, bytes),
    ATTRIBUTE(PREFIX_LEN, u8),
    ATTRIBUTE(XLATE_VID, u16),
    ATTRIBUTE(XLATE_NEW_VID, u16),
    ATTRIBUTE(XLATE_MISS_ACTION, u8),
    ATTRIBUTE(STACK_RULE_VID_A, u16),
    ATTRIBUTE(STACK_RULE_VID_B, u16),
    ATTRIBUTE(PVLAN_TYPE, u8),
    ATTRIBUTE(PVLAN_PRIMARY_VID, u16),
    ATTRIBUTE(PVLAN_SECONDARY_VID, u16),
    ATTRIBUTE(PVLAN_PORT_MODE, u8),
    ATTRIBUTE(PVLAN_FORWARDING, u8),
    ATTRIBUTE(PVLAN_UPSTREAM_LIST, bytes),
    ATTRIBUTE(DHCPSN_LEASE_OP, u8),
    ATTRIBUTE(DHCPSN_KIND, u8),
    ATTRIBUTE(DHCPSN_GLOBAL, u8),
    ATTRIBUTE(ARPSEC_ACTION, u8),
    ATTRIBUTE(ARPSEC_REASON, u8),
    ATTRIBUTE(MIRROR_TARGET, u32),
    ATTRIBUTE(MIRROR_SOURCE, u32),
    ATTRIBUTE(MIRROR_DIRECTION, u8),
    ATTRIBUTE(STP_INSTANCE, u32),
    ATTRIBUTE(STP_STATE, u8),
    ATTRIBUTE(AUTH_PORT_STATE, u8),
    ATTRIBUTE(AUTH_METHOD, u8),
    ATTRIBUTE(AUTH_WEB_PORT, u16),
    ATTRIBUTE(AUTH_WEB_PORT2, u16),
    ATTRIBUTE(AUTH_HTTP_PORTS, bytes),
    ATTRIBUTE(AUTH_HTTPS_PORTS, bytes),
    ATTRIBUTE(AUTH_GUEST_FWD_RULES, bytes),
    ATTRIBUTE(AUTH_FWD_RULES, bytes),
    ATTRIBUTE(MC_RATE_LIMIT, u32),
    ATTRIBUTE(MC_ROUTER_OP, u8),
    ATTRIBUTE(MC_ROUTER_VALUE, u8),
    ATTRIBUTE(FLAGS, u32),
    ATTRIBUTE(SPEED, u32),
    ATTRIBUTE(DUPLEX, u8),
    ATTRIBUTE(VID_START, u16),
    ATTRIBUTE(VID_END, u16),
    ATTRIBUTE(VLAN_OPTIONS, u32),
    ATTRIBUTE(VXLAN_LOCAL_ADDR, bytes),
    ATTRIBUTE(VXLAN_REMOTE_ADDR, bytes),
    ATTRIBUTE(VXLAN_VNI, u32),
    ATTRIBUTE(RESERVED, u32),
    ATTRIBUTE(IF_NAME, text),
    ATTRIBUTE(IF_KIND, u8),
    ATTRIBUTE(PORT_KIND, u8),
    ATTRIBUTE(STACK_MEMBER, u32),
    ATTRIBUTE(DOS_REASON, u8),
    ATTRIBUTE(ETHERTYPE, u16),
    ATTRIBUTE(DOS_HEADER, bytes),
    ATTRIBUTE(FDB_EVENT, u8),
};
#undef ATTRIBUTE

#define COMMAND(name)                                                                              \
    { TARNFWD_CMD_##name, #name }
struct CommandRow {
    std::uint8_t number;
    std::string_view name;
};
constexpr CommandRow COMMANDS[] = {
    COMMAND(IF_NEWLINK),
    COMMAND(IF_UPDATE),
    COMMAND(IF_DELLINK),
    COMMAND(IF_SET_HWADDR),
    COMMAND(IF_BIND_FIB),
    COMMAND(IF_UNBIND_FIB),
    COMMAND(IF_DELETE_SVI),
    COMMAND(IF_CREATE_SVI_RANGE),
    COMMAND(IF_SET_VLAN_OPTIONS),
    COMMAND(IF_SET_VXLAN_CONFIG),
    COMMAND(NBR_DEL_BY_VLAN_AND_PORT),
    COMMAND(NBR_DEL_BY_VLAN_MAC),
    COMMAND(ARP_MAC_DISPARITY),
    COMMAND(ARP_DEL_ALL_BY_MAC),
    COMMAND(STP_ADD_VLAN_TO_INSTANCE),
    COMMAND(STP_DELETE_VLAN_FROM_INSTANCE),
    COMMAND(STP_SET_PORT_STATE),
    COMMAND(PORT_SET_VLAN_INGRESS_FILTER),
    COMMAND(VLAN_SET_DEFAULT_PVID),
    COMMAND(VLAN_ADD_PORT_DYNAMIC),
    COMMAND(VLAN_ADD_VID_BMP_TO_PORT),
    COMMAND(VLAN_DELETE_PORT_DYNAMIC),
    COMMAND(VLAN_DELETE_VID_BMP_FROM_PORT),
    COMMAND(VLAN_CLASSIFIER_ADD),
    COMMAND(VLAN_CLASSIFIER_DELETE),
    COMMAND(VLAN_XLATE_ADD_TO_PORT),
    COMMAND(VLAN_XLATE_DELETE_FROM_PORT),
    COMMAND(VLAN_XLATE_SET_MISS_ACTION_TO_PORT),
    COMMAND(VLAN_STACK_RULE_ADD),
    COMMAND(VLAN_STACK_RULE_DELETE),
    COMMAND(IGMP_SNOOPING_ROUTERMODE),
    COMMAND(IGMP_SNOOPING_ROUTERMODE_DB),
    COMMAND(STOP_UNREG_MC_FLOODING),
    COMMAND(MULTICAST_RATELIMIT),
    COMMAND(IPV4_MC_VIF_ADD),
    COMMAND(IPV4_MC_VIF_DEL),
    COMMAND(IPV4_MC_FLOODING_GROUP_ADD),
    COMMAND(IPV4_MC_FLOODING_GROUP_REMOVE),
    COMMAND(IPV4_MC_FLOODING_GROUP_FLUSH),
    COMMAND(IPV4_MC_SOFTWARE_ROUTING_SET),
    COMMAND(IPV6_MC_SOFTWARE_ROUTING_SET),
    COMMAND(LACP_DELETE_AGGREGATOR),
    COMMAND(LACP_ATTACH_MUX_TO_AGGREGATOR),
    COMMAND(LACP_DETACH_MUX_FROM_AGGREGATOR),
    COMMAND(PVLAN_SET_VLAN_TYPE),
    COMMAND(PVLAN_VLAN_ASSOCIATE),
    COMMAND(PVLAN_VLAN_DISSOCIATE),
    COMMAND(PVLAN_PORT_ADD),
    COMMAND(PVLAN_PORT_DELETE),
    COMMAND(PVLAN_SET_PORT_MODE),
    COMMAND(PVLAN_SET_VLAN_FORWARDING),
    COMMAND(PVLAN_UFO_UPSTREAM_IF_UPDATE),
    COMMAND(AUTH_SET_PORT_STATE),
    COMMAND(AUTH_WEB_CONFIG),
    COMMAND(AUTH_FWD_CONFIG),
    COMMAND(AUTH_SET_SUPP_STATE),
    COMMAND(AUTH_DEL_SUPP),
    COMMAND(AUTH_MAC_AGEOUT_INCOMPLETE),
    COMMAND(RYKE_SET_CTRL_VLAN),
    COMMAND(VLAN_PORT_STATE),
    COMMAND(VLAN_PORT_STATE_BMP),
    COMMAND(PMIRROR_SET),
    COMMAND(PMIRROR_UNSET),
    COMMAND(DHCPSN_LEASE),
    COMMAND(DHCPSN_STATE),
    COMMAND(DHCPSN_TRUST),
    COMMAND(DHCPSN_ARPSEC_ACTION),
    COMMAND(DHCPSN_L2_FLOODING_STATE),
    COMMAND(UDLD_ENABLED),
    COMMAND(UDLD_SET_HW_FILTER),
    COMMAND(VORNAPPSD_REDIRECT_ADD_IP_ADDRESS),
    COMMAND(VORNAPPSD_REDIRECT_REMOVE_IP_ADDRESS),
    COMMAND(L2_FDB_ADD),
    COMMAND(L2_FDB_SET),
    COMMAND(DOS_MATCH),
    COMMAND(DHCPSN_ARPSEC_VIOLATION),
    COMMAND(STACK_MGMT_VLAN_CREATE),
    COMMAND(STACK_MGMT_VLAN_DESTROY),
    COMMAND(STACK_MGMT_VLAN_SET_STATE),
    COMMAND(IPV6_MC_VIF_ADD),
    COMMAND(IPV6_MC_VIF_DEL),
    COMMAND(PORT_SET_L3),
};
#undef COMMAND

struct ErrorRow {
    int number;
    std::string_view name, meaning;
};
constexpr ErrorRow ERRORS[] = {
    {-1, "", "the interface is unknown or of the wrong type, or there is nothing like it"},
    {TARNFWD_ERR_BAD_ARG, "TARNFWD_ERR_BAD_ARG", "no MAC address, or no such kind of aggregator"},
    {TARNFWD_ERR_NO_INTERFACE, "TARNFWD_ERR_NO_INTERFACE", "there is no interface of that ifindex"},
    {TARNFWD_ERR_WRONG_TYPE, "TARNFWD_ERR_WRONG_TYPE",
     "the interface is of a type that this does not go with, or was not bound"},
    {TARNFWD_ERR_NO_MEMORY, "TARNFWD_ERR_NO_MEMORY", "the switch is out of memory"},
    {TARNFWD_ERR_TREE_INSERT, "TARNFWD_ERR_TREE_INSERT",
     "the interface database did not take the record"},
    {TARNFWD_ERR_NETDEV, "TARNFWD_ERR_NETDEV",
     "its network device could not be made: is there one of that name already?"},
    {TARNFWD_ERR_INIT, "TARNFWD_ERR_INIT", "the interface database could not be made"},
    {TARNFWD_ERR_TYPE_MISMATCH, "TARNFWD_ERR_TYPE_MISMATCH",
     "port and aggregator are of different types"},
    {TARNFWD_ERR_EXISTS, "TARNFWD_ERR_EXISTS", "that ifindex was taken meanwhile"},
    {-22, "EINVAL", "refused as invalid: something named is not there, or does not fit"},
    {-19, "ENODEV", "there is no such interface"},
    {-95, "EOPNOTSUPP", "the switch does not know this command, or this kind"},
};

constexpr int FIRST_OWN = -201, LAST_OWN = -226;

std::string with_number(std::string_view meaning, std::string_view name, int error) {
    std::string text(meaning);
    text += " (";
    if (!name.empty())
        text.append(name) += ", ";
    return text + std::to_string(error) + ")";
}

} // namespace

AttributeInfo attribute_info(std::uint16_t number) {
    auto row = std::find_if(std::begin(ATTRIBUTES), std::end(ATTRIBUTES),
                            [=](const AttributeRow &one) { return one.number == number; });
    return row == std::end(ATTRIBUTES) ? AttributeInfo{"", Type::none} : row->info;
}

std::string_view command_name(std::uint8_t number) {
    auto row = std::find_if(std::begin(COMMANDS), std::end(COMMANDS),
                            [=](const CommandRow &one) { return one.number == number; });
    return row == std::end(COMMANDS) ? "" : row->name;
}

std::string error_words(int error) {
    if (error == 0)
        return "";
    auto row = std::find_if(std::begin(ERRORS), std::end(ERRORS),
                            [=](const ErrorRow &one) { return one.number == error; });
    if (row != std::end(ERRORS))
        return with_number(row->meaning, row->name, error);
    if (error <= FIRST_OWN && error >= LAST_OWN)
        return with_number("the interface manager refused it", "", error);
    const char *name = strerrorname_np(-error);
    return with_number(std::strerror(-error), name ? name : "", error);
}

} // namespace client
