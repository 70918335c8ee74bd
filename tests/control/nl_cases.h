/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Every command of the control family, asked in every wrong way: the one list of cases that the
 * tests of both homes send, with the answer that each must get.
 *
 * A case is a command with all the attributes that it needs, naming interfaces and VLANs that are
 * not there; variations of it leave one out, or make one too short, too long, or of a wrong kind.
 * Plain C: the lab's test includes it too.
 */
#ifndef TARN_TESTS_NL_CASES_H
#define TARN_TESTS_NL_CASES_H

#include <errno.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <tarn/tarnfwd_nl.h>

#define NL_CASE_NEEDS 8
#define NL_CASE_BYTES 4096

struct nl_case {
    uint8_t command;
    const char *name;
    uint8_t needs[NL_CASE_NEEDS]; /* attribute numbers, in the order in which they are asked for */
    int answer;                   /* when all are there and the interface is not */
    const char *calls; /* of the core's functions, in the words of nl_steps.h; null: it depends */
};

// clang-format off
static const struct nl_case nl_cases[] = {
    {0, "if_newlink", {1, 55, 56, 45}, 0, NULL},
    {1, "if_update", {1, 45}, -1, NULL},
    {2, "if_dellink", {1}, 0, NULL},
    {3, "if_set_hwaddr", {1, 9}, -203, "= tarn_ifmgr_set_hwaddr ifindex 6 mac"},
    {4, "if_bind_fib", {1, 5}, -203, "= tarn_ifmgr_if_bind_fib ifindex id"},
    {5, "if_unbind_fib", {1, 5}, -203, "= tarn_ifmgr_if_unbind_fib ifindex id"},
    {6, "if_delete_svi", {1}, -1, NULL},
    {7, "if_create_svi_range", {48, 49, 50, 9}, 0, NULL},
    {8, "if_set_vlan_options", {1, 50}, -1, "tarn_ifmgr_set_vlan_options @ifindex vlan_options"},
    {9, "if_set_vxlan_config", {6, 4, 53, 52, 51}, 0, NULL},
    {10, "nbr_del_by_vlan_and_port", {10, 5, 3, 1}, -1, NULL},
    {11, "nbr_del_by_vlan_mac", {1, 9}, -EINVAL, NULL},
    {12, "arp_mac_disparity", {1, 6}, -1, NULL},
    {13, "arp_del_all_by_mac", {1, 5, 9}, -1, NULL},
    {14, "stp_add_vlan_to_instance", {4, 32}, -EINVAL,
     "= tarn_ifmgr_stp_vlan_inst_add stp_instance vid"},
    {15, "stp_delete_vlan_from_instance", {4}, -EINVAL, "= tarn_ifmgr_stp_vlan_inst_delete vid"},
    {16, "stp_set_port_state", {1, 32, 33}, -EINVAL,
     "= tarn_ifmgr_stp_port_state_set ifindex stp_instance stp_state"},
    {17, "port_set_vlan_ingress_filter", {1, 6}, -EINVAL,
     "= tarn_vlan_set_ingress_filter ifindex !!state"},
    {18, "vlan_set_default_pvid", {1, 4}, -EINVAL, "= tarn_vlan_set_default_pvid ifindex vid"},
    {19, "vlan_add_port_dynamic", {1, 7, 4}, -EINVAL,
     "= tarn_vlan_add_vlan_to_port ifindex vid tagged"},
    {20, "vlan_add_vid_bmp_to_port", {1, 7, 8}, -EINVAL,
     "= tarn_vlan_add_vlan_to_port_bulk ifindex vid_bitmap tagged"},
    {21, "vlan_delete_port_dynamic", {1, 4}, -EINVAL,
     "= tarn_vlan_delete_vlan_from_port ifindex vid"},
    {22, "vlan_delete_vid_bmp_from_port", {1, 8}, 0,
     "= tarn_vlan_delete_vlan_from_port_bulk ifindex vid_bitmap"},
    {23, "vlan_classifier_add", {1, 4, 11, 12}, -EINVAL,
     "= tarn_subnet_vlan_add @ifindex vid ipv4_addr prefix_len"},
    {24, "vlan_classifier_delete", {1, 4, 11, 12}, -EINVAL,
     "= tarn_subnet_vlan_delete @ifindex vid ipv4_addr prefix_len"},
    {25, "vlan_xlate_add_to_port", {1, 13, 14}, -EINVAL,
     "= tarn_vlan_xlate_add @ifindex xlate_vid xlate_new_vid"},
    {26, "vlan_xlate_delete_from_port", {1, 13, 14}, -EINVAL,
     "= tarn_vlan_xlate_delete @ifindex xlate_vid xlate_new_vid"},
    {27, "vlan_xlate_set_miss_action_to_port", {1, 15}, -EINVAL,
     "= tarn_vlan_xlate_default_action_set @ifindex xlate_miss_action"},
    {28, "vlan_stack_rule_add", {1, 15, 16, 17}, 0,
     "= tarn_vlan_stack_rule_add stack_rule_vid_a stack_rule_vid_b"},
    {29, "vlan_stack_rule_delete", {1, 15, 16, 17}, 0,
     "= tarn_vlan_stack_rule_delete stack_rule_vid_a stack_rule_vid_b"},
    {30, "igmp_snooping_routermode", {5, 11, 43, 44}, 0,
     "tarn_mc_router_mode_handler id mc_router_op mc_router_value ipv4_addr"},
    {31, "igmp_snooping_routermode_db", {5, 6}, 0, "tarn_mc_router_mode_db_handler id !!state"},
    {32, "stop_unreg_mc_flooding", {6}, 0, "tarn_pkt_unknown_multicast_flood_set !state"},
    {33, "multicast_ratelimit", {42}, 0, "tarn_update_mcast_limits mc_rate_limit"},
    {34, "ipv4_mc_vif_add", {1}, 0, "= tarn_af_igs_l3_multicast_enable ifindex 1"},
    {35, "ipv4_mc_vif_del", {1}, 0, "= tarn_af_igs_l3_multicast_enable ifindex 0"},
    {36, "ipv4_mc_flooding_group_add", {5, 4, 11}, 0,
     "= tarn_mcdrop_flooding_group_add id vid ipv4_addr"},
    {37, "ipv4_mc_flooding_group_remove", {5, 4, 11}, 0,
     "= tarn_mcdrop_flooding_group_remove id vid ipv4_addr"},
    {38, "ipv4_mc_flooding_group_flush", {}, 0, "= tarn_mcdrop_flooding_group_flush"},
    {39, "ipv4_mc_software_routing_set", {6}, 0,
     "tarn_ipv4_mc_software_routing_enabled_set !!state"},
    {40, "ipv6_mc_software_routing_set", {6}, 0,
     "tarn_ipv6_mc_software_routing_enabled_set !!state"},
    {41, "lacp_delete_aggregator", {2}, -EINVAL, NULL},
    {42, "lacp_attach_mux_to_aggregator", {1, 2}, -EINVAL,
     "= tarn_ifmgr_aggregator_port_attach agg_ifindex ifindex"},
    {43, "lacp_detach_mux_from_aggregator", {1, 2}, -EINVAL,
     "= tarn_ifmgr_aggregator_port_detach @agg_ifindex @ifindex"},
    {44, "pvlan_set_vlan_type", {4, 18}, 0, "= tarn_pvlan_set_vlan_type vid pvlan_type"},
    {45, "pvlan_vlan_associate", {19, 20}, 0,
     "= tarn_pvlan_add_vlan_association pvlan_primary_vid pvlan_secondary_vid"},
    {46, "pvlan_vlan_dissociate", {19, 20}, 0,
     "= tarn_pvlan_remove_vlan_association pvlan_primary_vid pvlan_secondary_vid"},
    {47, "pvlan_port_add", {1, 19, 20}, 0,
     "= tarn_pvlan_port_add_association ifindex pvlan_primary_vid pvlan_secondary_vid"},
    {48, "pvlan_port_delete", {1, 19, 20}, 0,
     "= tarn_pvlan_port_delete_association ifindex pvlan_primary_vid pvlan_secondary_vid"},
    {49, "pvlan_set_port_mode", {1, 21}, 0, "= tarn_pvlan_set_port_mode ifindex pvlan_port_mode"},
    {50, "pvlan_set_vlan_forwarding", {4, 22}, 0,
     "= tarn_pvlan_set_vlan_forwarding pvlan_forwarding vid"},
    {51, "pvlan_ufo_upstream_if_update", {23}, 0,
     "= tarn_pvlan_set_upstream_interface_forwarding pvlan_upstream_list/12 pvlan_upstream_list"},
    {52, "auth_set_port_state", {1, 34, 35}, -ENODEV,
     "= tarn_auth_set_port_state @ifindex auth_port_state auth_method"},
    {53, "auth_web_config", {11, 36, 37, 6, 38, 39}, 0,
     "= tarn_auth_web_set_config ipv4_addr auth_web_port auth_web_port2 !!state "
     "auth_http_ports/2 auth_http_ports auth_https_ports/2 auth_https_ports"},
    {54, "auth_fwd_config", {1, 4, 6, 40, 41}, -1,
     "tarn_auth_set_fwd_config_guest_vlan @ifindex vid auth_guest_fwd_rules "
     "auth_guest_fwd_rules/32; tarn_auth_set_fwd_config @ifindex !!state auth_fwd_rules "
     "auth_fwd_rules/32"},
    {55, "auth_set_supp_state", {1, 4, 6, 9}, -1,
     "= tarn_auth_supp_set_state @ifindex mac vid !!state"},
    {56, "auth_del_supp", {1, 9}, -1, "tarn_auth_remove_supp @ifindex mac"},
    {57, "auth_mac_ageout_incomplete", {1, 6, 9}, -1, NULL},
    {58, "ryke_set_ctrl_vlan", {4, 6}, 0, "= tarn_ryke_set_ctrl_vlan vid state"},
    {59, "vlan_port_state", {1, 4, 6}, -EINVAL,
     "= tarn_vlan_set_vlan_port_disabled ifindex vid !state"},
    {60, "vlan_port_state_bmp", {1, 8, 6}, -EINVAL,
     "= tarn_vlan_set_vlan_port_disabled_bmp ifindex vid_bitmap !state"},
    {61, "pmirror_set", {29, 30, 4, 31}, 0,
     "= tarn_ifmgr_set_portmirror mirror_target mirror_source mirror_direction vid"},
    {62, "pmirror_unset", {29, 30, 4, 31}, 0,
     "= tarn_ifmgr_unset_portmirror mirror_target mirror_source mirror_direction vid"},
    {63, "dhcpsn_lease", {1, 4, 24, 11, 9}, -1, NULL},
    {64, "dhcpsn_state", {4, 25, 6, 26}, 0, NULL},
    {65, "dhcpsn_trust", {1, 6}, 0, "= dhcpsn_trust_port_set ifindex !!state"},
    {66, "dhcpsn_arpsec_action", {1, 27}, 0, "= dhcpsn_arpsec_action_set ifindex arpsec_action"},
    {67, "dhcpsn_l2_flooding_state", {4, 6}, 0, "= dhcpsn_snooping_l2_flooding_set !!state vid"},
    {68, "udld_enabled", {6}, 0, "tarn_udld_enable !!state"},
    {69, "udld_set_hw_filter", {1, 6}, -EINVAL, "= tarn_udld_set_hw_filter ifindex !!state"},
    {70, "vornappsd_redirect_add_ip_address", {11}, 0, "= tarn_vornappsd_add_ip_address ipv4_addr"},
    {71, "vornappsd_redirect_remove_ip_address", {11}, 0,
     "= tarn_vornappsd_remove_ip_address ipv4_addr"},
    {73, "l2_fdb_set", {}, -EINVAL, ""},
    {76, "stack_mgmt_vlan_create", {4, 9}, -1, "= tarn_stack_mgmt_vlan_create vid mac"},
    {77, "stack_mgmt_vlan_destroy", {}, -1, "= tarn_stack_mgmt_vlan_destroy"},
    {78, "stack_mgmt_vlan_set_state", {6}, -1, "= tarn_stack_mgmt_vlan_set_state !!state"},
    {79, "ipv6_mc_vif_add", {1}, 0, "tarn_af_mlds_l3_multicast_enable ifindex 1"},
    {80, "ipv6_mc_vif_del", {1}, 0, "tarn_af_mlds_l3_multicast_enable ifindex 0"},
    {81, "port_set_l3", {1, 4}, -203, "= tarn_ifmgr_l3_switchport_set ifindex vid"},
};
// clang-format on
#define NL_CASES (sizeof(nl_cases) / sizeof(nl_cases[0]))

enum nl_kind { NL_INTEGER, NL_BYTES, NL_BITMAP, NL_ARRAY, NL_TEXT };

struct nl_attribute {
    enum nl_kind kind;
    uint16_t length;   /* as it is sent; of NL_BYTES and NL_BITMAP also the most */
    const void *value; /* null: zeros */
};

/* What is sent for an attribute: of things that are not there. */
static inline struct nl_attribute nl_attribute_of(unsigned number) {
    static const uint8_t mac[6] = {2, 0, 0, 0, 9, 9};
    static const uint8_t zeros[512] = {0};
    static const uint32_t nobody = 9999;
    static const uint16_t no_vlan = 4000;
    static const uint16_t ten = 10;
    static const uint8_t family = 7, kind = 4, operation = 9;
    const struct nl_attribute u8 = {NL_INTEGER, 1, zeros}, u16 = {NL_INTEGER, 2, zeros},
                              u32 = {NL_INTEGER, 4, zeros};
    switch (number) {
    case TARNFWD_ATTR_IFINDEX:
    case TARNFWD_ATTR_AGG_IFINDEX:
    case TARNFWD_ATTR_PORT_IFINDEX:
    case TARNFWD_ATTR_MIRROR_TARGET:
    case TARNFWD_ATTR_MIRROR_SOURCE:
        return (struct nl_attribute){NL_INTEGER, 4, &nobody};
    case TARNFWD_ATTR_VID:
        return (struct nl_attribute){NL_INTEGER, 2, &no_vlan};
    case TARNFWD_ATTR_VID_START: /* an empty range */
    case TARNFWD_ATTR_VID_END:
        return (struct nl_attribute){NL_INTEGER, 2, &ten};
    case TARNFWD_ATTR_FAMILY: /* none, so that nothing is flushed */
        return (struct nl_attribute){NL_INTEGER, 1, &family};
    case TARNFWD_ATTR_IF_KIND: /* one that makes nothing */
        return (struct nl_attribute){NL_INTEGER, 1, &kind};
    case TARNFWD_ATTR_DHCPSN_LEASE_OP:
        return (struct nl_attribute){NL_INTEGER, 1, &operation};
    case TARNFWD_ATTR_MAC:
        return (struct nl_attribute){NL_BYTES, 6, mac};
    case TARNFWD_ATTR_IPV4_ADDR:
    case TARNFWD_ATTR_VXLAN_LOCAL_ADDR:
    case TARNFWD_ATTR_VXLAN_REMOTE_ADDR:
        return (struct nl_attribute){NL_BYTES, 4, zeros};
    case TARNFWD_ATTR_VID_BITMAP:
        return (struct nl_attribute){NL_BITMAP, 512, zeros};
    case TARNFWD_ATTR_DOS_HEADER:
        return (struct nl_attribute){NL_BYTES, 20, zeros};
    case TARNFWD_ATTR_PVLAN_UPSTREAM_LIST:
        return (struct nl_attribute){NL_ARRAY, 24, zeros};
    case TARNFWD_ATTR_AUTH_HTTP_PORTS:
    case TARNFWD_ATTR_AUTH_HTTPS_PORTS:
        return (struct nl_attribute){NL_ARRAY, 4, zeros};
    case TARNFWD_ATTR_AUTH_GUEST_FWD_RULES:
    case TARNFWD_ATTR_AUTH_FWD_RULES:
        return (struct nl_attribute){NL_ARRAY, 64, zeros};
    case TARNFWD_ATTR_IF_NAME:
        return (struct nl_attribute){NL_TEXT, 7, "nobody"};
    case TARNFWD_ATTR_STATE:
    case TARNFWD_ATTR_TAGGED:
    case TARNFWD_ATTR_PREFIX_LEN:
    case TARNFWD_ATTR_XLATE_MISS_ACTION:
    case TARNFWD_ATTR_PVLAN_TYPE:
    case TARNFWD_ATTR_PVLAN_PORT_MODE:
    case TARNFWD_ATTR_PVLAN_FORWARDING:
    case TARNFWD_ATTR_DHCPSN_KIND:
    case TARNFWD_ATTR_DHCPSN_GLOBAL:
    case TARNFWD_ATTR_ARPSEC_ACTION:
    case TARNFWD_ATTR_ARPSEC_REASON:
    case TARNFWD_ATTR_MIRROR_DIRECTION:
    case TARNFWD_ATTR_STP_STATE:
    case TARNFWD_ATTR_AUTH_PORT_STATE:
    case TARNFWD_ATTR_AUTH_METHOD:
    case TARNFWD_ATTR_MC_ROUTER_OP:
    case TARNFWD_ATTR_MC_ROUTER_VALUE:
    case TARNFWD_ATTR_DUPLEX:
    case TARNFWD_ATTR_PORT_KIND:
    case TARNFWD_ATTR_DOS_REASON:
    case TARNFWD_ATTR_FDB_EVENT:
        return u8;
    case TARNFWD_ATTR_XLATE_VID:
    case TARNFWD_ATTR_XLATE_NEW_VID:
    case TARNFWD_ATTR_STACK_RULE_VID_A:
    case TARNFWD_ATTR_STACK_RULE_VID_B:
    case TARNFWD_ATTR_PVLAN_PRIMARY_VID:
    case TARNFWD_ATTR_PVLAN_SECONDARY_VID:
    case TARNFWD_ATTR_AUTH_WEB_PORT:
    case TARNFWD_ATTR_AUTH_WEB_PORT2:
    case TARNFWD_ATTR_ETHERTYPE:
        return u16;
    default:
        return u32;
    }
}

enum nl_variation {
    NL_COMPLETE,
    NL_BACKWARDS,               /* the attributes in the other order */
    NL_RESERVED,                /* and attribute 54 with them */
    NL_BEYOND,                  /* and one above the last number */
    NL_NUMBER_0,                /* and one without a number */
    NL_LEFTOVER,                /* and three bytes that are no attribute */
    NL_AS_A_DUMP,               /* asked as a dump */
    NL_ECHO,                    /* with flags that nobody looks at */
    NL_LAST_WHOLE,              /* the variations above touch no single attribute */
    NL_WITHOUT = NL_LAST_WHOLE, /* those below touch the one of an index */
    NL_TWICE,                   /* a wrong value first: the last counts */
    NL_SHORT,                   /* a byte short */
    NL_EMPTY,
    NL_LONG,       /* a byte too long */
    NL_NESTED,     /* marked as a nest */
    NL_BYTE_ORDER, /* marked as of the network's byte order */
    NL_VARIATIONS
};

static inline const char *nl_variation_name(enum nl_variation variation) {
    static const char *const names[] = {"complete",     "backwards", "and reserved", "and beyond",
                                        "and number 0", "leftover",  "as a dump",    "echo",
                                        "without",      "twice",     "short",        "empty",
                                        "long",         "nested",    "byte order"};
    return names[variation];
}

struct nl_expected {
    int error;
    const char *text;   /* of the extended acknowledgement; null: none */
    unsigned attribute; /* index of the attribute that it points at */
    int points;         /* whether it points at one */
    int with_policy;
};

static inline struct nl_expected nl_expect(const struct nl_case *c, enum nl_variation variation,
                                           unsigned index) {
    static const char invalid[] = "invalid attribute length";
    static const char failed[] = "Attribute failed policy validation";
    const struct nl_expected as_complete = {c->answer, NULL, 0, 0, 0};
    const struct nl_expected missing = {-EINVAL, NULL, 0, 0, 0};
    struct nl_expected refused = {-EINVAL, invalid, index, 1, 1};
    struct nl_attribute attribute = {NL_INTEGER, 0, NULL};
    unsigned count = 0;

    while (count < NL_CASE_NEEDS && c->needs[count])
        count++;
    if (variation >= NL_LAST_WHOLE)
        attribute = nl_attribute_of(c->needs[index]);
    switch (variation) {
    case NL_BEYOND:
    case NL_NUMBER_0:
        return (struct nl_expected){-EINVAL, "Unknown attribute type", count, 1, 0};
    case NL_LEFTOVER:
        return (struct nl_expected){-EINVAL, "bytes leftover after parsing attributes", 0, 0, 0};
    case NL_AS_A_DUMP:
        return (struct nl_expected){-EOPNOTSUPP, NULL, 0, 0, 0};
    case NL_WITHOUT:
        return missing;
    case NL_NESTED:
        refused.text = "NLA_F_NESTED not expected";
        return refused;
    case NL_SHORT:
    case NL_EMPTY:
        if (attribute.kind == NL_INTEGER)
            return refused;
        if (attribute.kind == NL_BYTES)
            return missing;
        if (attribute.kind != NL_TEXT || variation == NL_SHORT)
            return as_complete;
        refused.error = -ERANGE;
        refused.text = failed;
        return refused;
    case NL_LONG:
        if (attribute.kind == NL_INTEGER)
            return refused;
        if (attribute.kind == NL_TEXT || attribute.kind == NL_ARRAY)
            return as_complete;
        refused.error = -ERANGE;
        refused.text = failed;
        return refused;
    default:
        return as_complete;
    }
}

/* A message as it is built; offsets of attributes for what points at them. */
struct nl_message {
    unsigned length;
    unsigned count;
    unsigned offsets[2 * NL_CASE_NEEDS];
    union {
        struct nlmsghdr header;
        uint8_t bytes[NL_CASE_BYTES];
    } u;
};

static inline void nl_message_put(struct nl_message *message, unsigned type, const void *value,
                                  unsigned length) {
    struct nlattr header = {(uint16_t)(NLA_HDRLEN + length), (uint16_t)type};
    uint8_t *at = message->u.bytes + message->length;

    message->offsets[message->count++] = message->length;
    memset(at, 0, NLA_ALIGN(header.nla_len));
    memcpy(at, &header, sizeof(header));
    if (length)
        memcpy(at + NLA_HDRLEN, value, length);
    message->length += NLA_ALIGN(header.nla_len);
}

static inline void nl_message_start(struct nl_message *message, uint16_t family, uint8_t command,
                                    uint16_t flags, uint32_t sequence) {
    struct genlmsghdr generic = {command, TARNFWD_NL_VERSION, 0};

    memset(message, 0, sizeof(*message));
    message->u.header.nlmsg_type = family;
    message->u.header.nlmsg_flags = (uint16_t)(NLM_F_REQUEST | flags);
    message->u.header.nlmsg_seq = sequence;
    memcpy(message->u.bytes + NLMSG_HDRLEN, &generic, sizeof(generic));
    message->length = NLMSG_HDRLEN + GENL_HDRLEN;
}

static inline void nl_case_put(struct nl_message *message, const struct nl_case *c, unsigned index,
                               enum nl_variation variation) {
    static uint8_t room[1024];
    unsigned type = c->needs[index];
    struct nl_attribute attribute = nl_attribute_of(type);
    unsigned length = attribute.length;

    memset(room, 0, sizeof(room));
    memcpy(room, attribute.value, length);
    if (variation == NL_WITHOUT)
        return;
    if (variation == NL_TWICE) {
        uint8_t wrong[512];
        memset(wrong, 1, sizeof(wrong));
        nl_message_put(message, type, wrong, length);
    }
    if (variation == NL_SHORT)
        length--;
    if (variation == NL_EMPTY)
        length = 0;
    if (variation == NL_LONG)
        length++;
    if (variation == NL_NESTED)
        type |= NLA_F_NESTED;
    if (variation == NL_BYTE_ORDER)
        type |= NLA_F_NET_BYTEORDER;
    nl_message_put(message, type, room, length);
}

static inline void nl_case_build(struct nl_message *message, const struct nl_case *c,
                                 enum nl_variation variation, unsigned index, uint16_t family,
                                 uint32_t sequence) {
    static const uint8_t zeros[4] = {0};
    uint16_t flags = NLM_F_ACK;
    unsigned count = 0, i;

    if (variation == NL_AS_A_DUMP)
        flags |= NLM_F_DUMP;
    if (variation == NL_ECHO)
        flags |= NLM_F_ECHO | 0x400;
    nl_message_start(message, family, c->command, flags, sequence);
    while (count < NL_CASE_NEEDS && c->needs[count])
        count++;
    for (i = 0; i < count; i++) {
        unsigned at = variation == NL_BACKWARDS ? count - 1 - i : i;
        nl_case_put(message, c, at,
                    variation >= NL_LAST_WHOLE && at == index ? variation : NL_COMPLETE);
    }
    if (variation == NL_RESERVED)
        nl_message_put(message, TARNFWD_ATTR_RESERVED, zeros, 4);
    if (variation == NL_BEYOND)
        nl_message_put(message, TARNFWD_ATTR_MAX + 1, zeros, 4);
    if (variation == NL_NUMBER_0)
        nl_message_put(message, 0, zeros, 4);
    if (variation == NL_LEFTOVER)
        message->length += 3;
    message->u.header.nlmsg_len = message->length;
}

/* How many indices a variation has for this case. */
static inline unsigned nl_case_indices(const struct nl_case *c, enum nl_variation variation) {
    unsigned count = 0;

    if (variation < NL_LAST_WHOLE)
        return 1;
    while (count < NL_CASE_NEEDS && c->needs[count])
        count++;
    return count;
}

/*
 * What is wrong with an acknowledgement of the message, in words; null when it is as expected. For
 * sockets with extended acknowledgements on.
 */
static inline const char *nl_case_judge(const struct nl_message *message,
                                        const struct nl_expected *expected, const void *answer,
                                        size_t length) {
    static char words[256];
    const uint8_t *bytes = (const uint8_t *)answer;
    const char *text = NULL;
    struct nlmsghdr header;
    int32_t error, offset = -1;
    size_t at = NLMSG_HDRLEN + 4 + NLMSG_HDRLEN;
    int policy = 0;

    if (length < at)
        return "it is too short";
    memcpy(&header, bytes, sizeof(header));
    memcpy(&error, bytes + NLMSG_HDRLEN, sizeof(error));
    if (header.nlmsg_type != NLMSG_ERROR || header.nlmsg_len != length)
        return "it is no acknowledgement of that length";
    if (header.nlmsg_seq != message->u.header.nlmsg_seq)
        return "it answers another message";
    if (error != expected->error) {
        snprintf(words, sizeof(words), "it says %d instead of %d", error, expected->error);
        return words;
    }
    if (memcmp(bytes + NLMSG_HDRLEN + 4, message->u.bytes, NLMSG_HDRLEN) != 0)
        return "it does not repeat the header";
    if (!(header.nlmsg_flags & NLM_F_CAPPED)) {
        size_t rest = message->length - NLMSG_HDRLEN;
        if (!error || length < at + rest ||
            memcmp(bytes + at, message->u.bytes + NLMSG_HDRLEN, rest) != 0)
            return "it does not repeat the message, or should not";
        at += NLMSG_ALIGN(rest);
    } else if (error) {
        return "it is cut and nobody asked";
    }
    if (!(header.nlmsg_flags & NLM_F_ACK_TLVS) && at != length)
        return "it has bytes at its end";
    while (at + NLA_HDRLEN <= length) {
        struct nlattr tlv;
        memcpy(&tlv, bytes + at, sizeof(tlv));
        if (tlv.nla_len < NLA_HDRLEN || at + tlv.nla_len > length)
            return "its last attribute is cut";
        if (tlv.nla_type == NLMSGERR_ATTR_MSG)
            text = (const char *)bytes + at + NLA_HDRLEN;
        if (tlv.nla_type == NLMSGERR_ATTR_OFFS)
            memcpy(&offset, bytes + at + NLA_HDRLEN, sizeof(offset));
        if (tlv.nla_type == (NLMSGERR_ATTR_POLICY | NLA_F_NESTED))
            policy = 1;
        at += NLA_ALIGN(tlv.nla_len);
    }
    if (!text != !expected->text || (text && strcmp(text, expected->text) != 0)) {
        snprintf(words, sizeof(words), "its text is '%s' instead of '%s'", text ? text : "",
                 expected->text ? expected->text : "");
        return words;
    }
    if (expected->points ? offset != (int32_t)message->offsets[expected->attribute]
                         : offset != -1) {
        snprintf(words, sizeof(words), "it points at byte %d", offset);
        return words;
    }
    if (policy != expected->with_policy)
        return "it tells a policy, or should";
    return NULL;
}

#endif
