#include "control/nl_callees.h"

#include "ifmgr/tarn_if.h"
#include "kernel/bytes.h"
#include "kernel/netdev.h"

#include <algorithm>
#include <cstdio>
#include <type_traits>

NlCallees &nl_callees() {
    static NlCallees the_callees;
    return the_callees;
}

namespace callee {

// An argument of the same shape as the callee's own, that is told in another way.
struct Mac {
    const u8 *at;
};
struct Bitmap { // of VLANs
    const u32 *at;
};
struct Bytes4 { // a word, as it lies in memory
    u32 value;
};
struct Address {
    const u32 *at;
};

} // namespace callee

namespace {

using namespace callee;

// "-" for no bytes.
std::string hex(const u8 *bytes, u32 count) {
    std::string text = count == 0 ? "-" : "";
    for (u32 i = 0; i < count; i++) {
        char two[3];
        std::snprintf(two, sizeof(two), "%02x", bytes[i]);
        text += two;
    }
    return text;
}

std::string word(const std::string &text) {
    return text;
}
std::string word(Mac mac) {
    return mac.at ? hex(mac.at, NETDEV_ADDRESS_SIZE) : "none";
}
std::string word(Bytes4 bytes) {
    return hex(reinterpret_cast<const u8 *>(&bytes.value), sizeof(bytes.value));
}
std::string word(Address address) {
    return word(Bytes4{*address.at});
}
// Without the zeros at its end.
std::string word(Bitmap bitmap) {
    const auto *first = reinterpret_cast<const u8 *>(bitmap.at);
    u32 count = TARN_VLAN_COUNT / 8;
    while (count > 0 && first[count - 1] == 0)
        count--;
    return hex(first, count);
}
std::string word(const tarn_if *ifp) {
    return ifp ? "@" + std::to_string(ifp->ifindex) : "none";
}
std::string word(const net_device *device) {
    return device ? netdev_name(device) : "none";
}
template <typename Integer>
requires std::is_integral_v<Integer> std::string word(Integer number) {
    return std::to_string(number);
}

template <typename... Arguments>
std::string words(const char *name, const Arguments &...arguments) {
    return (std::string(name) + ... + (" " + word(arguments)));
}

template <typename Result>
Result answer() {
    NlCallees &all = nl_callees();
    std::size_t at = std::min(all.answered++, all.results.size() - 1);
    if constexpr (std::is_pointer_v<Result>)
        return all.supplicant;
    else if constexpr (!std::is_void_v<Result>)
        return all.results[at];
}

template <typename Result, typename Real>
Result call(const std::string &told, Real real) {
    NlCallees &all = nl_callees();
    if (!all.traced || all.depth > 0)
        return real();
    all.calls.push_back(told);
    if (!all.results.empty())
        return answer<Result>();
    struct Within {
        Within() { nl_callees().depth++; }
        ~Within() { nl_callees().depth--; }
    } within;
    return real();
}

} // namespace

// The linker leads each call to its __wrap_ form, and __real_ to the core's own: of which
// functions, tests/CMakeLists.txt reads from here.
#define CALLEE_TOLD(result, name, symbol, parameters, arguments, ...)                              \
    result call_##name parameters asm("__wrap_" symbol);                                           \
    result real_##name parameters asm("__real_" symbol);                                           \
    result call_##name parameters {                                                                \
        return call<result>(words(#name __VA_OPT__(, ) __VA_ARGS__),                               \
                            [&] { return real_##name arguments; });                                \
    }
#define CALLEE0(result, name, symbol) CALLEE_TOLD(result, name, symbol, (), ())
#define CALLEE1(result, name, symbol, A) CALLEE_TOLD(result, name, symbol, (A a), (a), a)
#define CALLEE2(result, name, symbol, A, B)                                                        \
    CALLEE_TOLD(result, name, symbol, (A a, B b), (a, b), a, b)
#define CALLEE3(result, name, symbol, A, B, C)                                                     \
    CALLEE_TOLD(result, name, symbol, (A a, B b, C c), (a, b, c), a, b, c)
#define CALLEE4(result, name, symbol, A, B, C, D)                                                  \
    CALLEE_TOLD(result, name, symbol, (A a, B b, C c, D d), (a, b, c, d), a, b, c, d)
#define CALLEE5(result, name, symbol, A, B, C, D, E)                                               \
    CALLEE_TOLD(result, name, symbol, (A a, B b, C c, D d, E e), (a, b, c, d, e), a, b, c, d, e)
#define CALLEE6(result, name, symbol, A, B, C, D, E, F)                                            \
    CALLEE_TOLD(result, name, symbol, (A a, B b, C c, D d, E e, F f), (a, b, c, d, e, f), a, b, c, \
                d, e, f)

// Interfaces.
CALLEE6(i32, tarn_ifmgr_switchport_create, "_Z28tarn_ifmgr_switchport_createPKcPKhjjjh",
        const char *, Mac, u32, u32, u32, u8)
CALLEE5(i32, tarn_ifmgr_ethernet_create, "_Z26tarn_ifmgr_ethernet_createPKcPKhjjj", const char *,
        Mac, u32, u32, u32)
CALLEE4(i32, tarn_ifmgr_aggregator_add, "_Z25tarn_ifmgr_aggregator_addPKcPKhjj", const char *, Mac,
        u32, u32)
CALLEE_TOLD(i32, tarn_ifmgr_vlan_create, "_Z22tarn_ifmgr_vlan_createPKhjPP7tarn_iftj",
            (const u8 *mac, u32 length, tarn_if **out, u16 vid, u32 options),
            (mac, length, out, vid, options), Mac{mac}, length, vid, options)
CALLEE_TOLD(void, tarn_ifmgr_delete_interface, "_Z27tarn_ifmgr_delete_interfaceP7tarn_if",
            (tarn_if * ifp), (ifp), ifp, refcount_read(&ifp->refcnt))
CALLEE2(void, tarn_ifmgr_L2_link_state_check, "_Z30tarn_ifmgr_L2_link_state_checkP7tarn_ifj",
        tarn_if *, u32)
CALLEE3(i32, tarn_ifmgr_set_hwaddr, "_Z21tarn_ifmgr_set_hwaddrjjPKh", u32, u32, Mac)
CALLEE2(i32, tarn_ifmgr_if_bind_fib, "_Z22tarn_ifmgr_if_bind_fibjj", u32, u32)
CALLEE2(i32, tarn_ifmgr_if_unbind_fib, "_Z24tarn_ifmgr_if_unbind_fibjj", u32, u32)
CALLEE2(i32, tarn_ifmgr_set_vlan_options, "_Z27tarn_ifmgr_set_vlan_optionsP7tarn_ifj", tarn_if *,
        u32)
CALLEE4(i32, tarn_ifmgr_set_portmirror, "_Z25tarn_ifmgr_set_portmirrorjjjj", u32, u32, u32, u32)
CALLEE4(i32, tarn_ifmgr_unset_portmirror, "_Z27tarn_ifmgr_unset_portmirrorjjjj", u32, u32, u32, u32)
CALLEE2(i32, tarn_ifmgr_l3_switchport_set, "_Z28tarn_ifmgr_l3_switchport_setjt", u32, u16)
CALLEE2(i32, tarn_ifmgr_aggregator_port_attach, "_Z33tarn_ifmgr_aggregator_port_attachjj", u32, u32)
CALLEE2(i32, tarn_ifmgr_aggregator_port_detach, "_Z33tarn_ifmgr_aggregator_port_detachP7tarn_ifS0_",
        tarn_if *, tarn_if *)
CALLEE2(i32, tarn_ifmgr_stp_vlan_inst_add, "_Z28tarn_ifmgr_stp_vlan_inst_addjj", u32, u32)
CALLEE1(i32, tarn_ifmgr_stp_vlan_inst_delete, "_Z31tarn_ifmgr_stp_vlan_inst_deletej", u32)
CALLEE3(i32, tarn_ifmgr_stp_port_state_set, "_Z29tarn_ifmgr_stp_port_state_setjjj", u32, u32, u32)

// Neighbours.
CALLEE3(void, arp_flush_dev_and_port, "_Z22arp_flush_dev_and_portiP10net_devicej", i32,
        net_device *, u32)
CALLEE3(void, ndisc_flush_dev_and_port, "_Z24ndisc_flush_dev_and_portiP10net_devicej", i32,
        net_device *, u32)
CALLEE3(i32, arp_flush_vlan_and_mac, "_Z22arp_flush_vlan_and_maciP10net_devicePKh", i32,
        net_device *, Mac)
CALLEE2(void, neigh_moved, "_Z11neigh_movedP10net_devicePKh", net_device *, Mac)

// VLANs.
CALLEE2(i32, tarn_vlan_set_ingress_filter, "_Z28tarn_vlan_set_ingress_filterjh", u32, u8)
CALLEE2(i32, tarn_vlan_set_default_pvid, "_Z26tarn_vlan_set_default_pvidjt", u32, u16)
CALLEE3(i32, tarn_vlan_add_vlan_to_port, "_Z26tarn_vlan_add_vlan_to_portjjj", u32, u32, u32)
CALLEE3(i32, tarn_vlan_add_vlan_to_port_bulk, "_Z31tarn_vlan_add_vlan_to_port_bulkjPKjj", u32,
        Bitmap, u32)
CALLEE2(i32, tarn_vlan_delete_vlan_from_port, "_Z31tarn_vlan_delete_vlan_from_portjj", u32, u32)
CALLEE2(i32, tarn_vlan_delete_vlan_from_port_bulk, "_Z36tarn_vlan_delete_vlan_from_port_bulkjPKj",
        u32, Bitmap)
CALLEE3(i32, tarn_vlan_set_vlan_port_disabled, "_Z32tarn_vlan_set_vlan_port_disabledjjj", u32, u32,
        u32)
CALLEE3(i32, tarn_vlan_set_vlan_port_disabled_bmp, "_Z36tarn_vlan_set_vlan_port_disabled_bmpjPKjj",
        u32, Bitmap, u32)
CALLEE4(i32, tarn_vxlan_add, "_Z14tarn_vxlan_addjjjj", u32, Bytes4, Bytes4, u32)
CALLEE4(i32, tarn_vxlan_del, "_Z14tarn_vxlan_deljjjj", u32, Bytes4, Bytes4, u32)
CALLEE4(i32, tarn_subnet_vlan_add, "_Z20tarn_subnet_vlan_addP7tarn_iftjh", tarn_if *, u16, Bytes4,
        u8)
CALLEE4(i32, tarn_subnet_vlan_delete, "_Z23tarn_subnet_vlan_deleteP7tarn_iftjh", tarn_if *, u16,
        Bytes4, u8)
CALLEE3(i32, tarn_vlan_xlate_add, "_Z19tarn_vlan_xlate_addP7tarn_iftt", tarn_if *, u16, u16)
CALLEE3(i32, tarn_vlan_xlate_delete, "_Z22tarn_vlan_xlate_deleteP7tarn_iftt", tarn_if *, u16, u16)
CALLEE2(i32, tarn_vlan_xlate_default_action_set, "_Z34tarn_vlan_xlate_default_action_setP7tarn_ifj",
        tarn_if *, u32)
CALLEE2(i32, tarn_vlan_stack_rule_add, "_Z24tarn_vlan_stack_rule_addtt", u16, u16)
CALLEE2(i32, tarn_vlan_stack_rule_delete, "_Z27tarn_vlan_stack_rule_deletett", u16, u16)

// Private VLANs.
CALLEE2(i32, tarn_pvlan_set_vlan_type, "_Z24tarn_pvlan_set_vlan_typejj", u32, u32)
CALLEE2(i32, tarn_pvlan_add_vlan_association, "_Z31tarn_pvlan_add_vlan_associationjj", u32, u32)
CALLEE2(i32, tarn_pvlan_remove_vlan_association, "_Z34tarn_pvlan_remove_vlan_associationjj", u32,
        u32)
CALLEE3(i32, tarn_pvlan_port_add_association, "_Z31tarn_pvlan_port_add_associationjjj", u32, u32,
        u32)
CALLEE3(i32, tarn_pvlan_port_delete_association, "_Z34tarn_pvlan_port_delete_associationjjj", u32,
        u32, u32)
CALLEE2(i32, tarn_pvlan_set_port_mode, "_Z24tarn_pvlan_set_port_modejj", u32, u32)
CALLEE2(i32, tarn_pvlan_set_vlan_forwarding, "_Z30tarn_pvlan_set_vlan_forwardingjj", u32, u32)
CALLEE_TOLD(i32, tarn_pvlan_set_upstream_interface_forwarding,
            "_Z44tarn_pvlan_set_upstream_interface_forwardingjPKh", (u32 count, const u8 *records),
            (count, records), count, hex(records, count * 12))

// Multicast.
CALLEE4(void, tarn_mc_router_mode_handler, "_Z27tarn_mc_router_mode_handlerjjjj", u32, u32, u32,
        Bytes4)
CALLEE2(void, tarn_mc_router_mode_db_handler, "_Z30tarn_mc_router_mode_db_handlerjb", u32, bool)
CALLEE1(void, tarn_pkt_unknown_multicast_flood_set, "_Z36tarn_pkt_unknown_multicast_flood_seth", u8)
CALLEE1(void, tarn_update_mcast_limits, "_Z24tarn_update_mcast_limitsj", u32)
CALLEE2(i32, tarn_af_igs_l3_multicast_enable, "_Z31tarn_af_igs_l3_multicast_enablejj", u32, u32)
CALLEE2(i32, tarn_af_mlds_l3_multicast_enable, "_Z32tarn_af_mlds_l3_multicast_enablejj", u32, u32)
CALLEE3(i32, tarn_mcdrop_flooding_group_add, "_Z30tarn_mcdrop_flooding_group_addjtj", u32, u16,
        Bytes4)
CALLEE3(i32, tarn_mcdrop_flooding_group_remove, "_Z33tarn_mcdrop_flooding_group_removejtj", u32,
        u16, Bytes4)
CALLEE0(i32, tarn_mcdrop_flooding_group_flush, "_Z32tarn_mcdrop_flooding_group_flushv")
CALLEE1(void, tarn_ipv4_mc_software_routing_enabled_set,
        "_Z41tarn_ipv4_mc_software_routing_enabled_seth", u8)
CALLEE1(void, tarn_ipv6_mc_software_routing_enabled_set,
        "_Z41tarn_ipv6_mc_software_routing_enabled_seth", u8)

// Security.
CALLEE3(i32, tarn_auth_set_port_state, "_Z24tarn_auth_set_port_stateP7tarn_ifjj", tarn_if *, u32,
        u32)
CALLEE_TOLD(i32, tarn_auth_web_set_config, "_Z24tarn_auth_web_set_configjttbtPKhtS0_",
            (u32 ip, u16 port, u16 port2, bool with_dhcpd, u16 http_count, const u8 *http,
             u16 https_count, const u8 *https),
            (ip, port, port2, with_dhcpd, http_count, http, https_count, https),
            Bytes4{cpu_to_be32(ip)}, port, port2, with_dhcpd, http_count, hex(http, http_count * 2),
            https_count, hex(https, https_count * 2))
CALLEE_TOLD(void, tarn_auth_set_fwd_config, "_Z24tarn_auth_set_fwd_configP7tarn_ifbPKhh",
            (tarn_if * port, bool arp, const u8 *rules, u8 count), (port, arp, rules, count), port,
            arp, hex(rules, count * 32u), count)
CALLEE_TOLD(void, tarn_auth_set_fwd_config_guest_vlan,
            "_Z35tarn_auth_set_fwd_config_guest_vlanP7tarn_iftPKhh",
            (tarn_if * port, u16 vid, const u8 *rules, u8 count), (port, vid, rules, count), port,
            vid, hex(rules, count * 32u), count)
CALLEE4(i32, tarn_auth_supp_set_state, "_Z24tarn_auth_supp_set_stateP7tarn_ifPKhth", tarn_if *, Mac,
        u16, u8)
CALLEE2(void, tarn_auth_remove_supp, "_Z21tarn_auth_remove_suppP7tarn_ifPKh", tarn_if *, Mac)
CALLEE2(tarn_auth_supp *, tarn_auth_find_supp, "_Z19tarn_auth_find_suppP7tarn_ifPKh", tarn_if *,
        Mac)
CALLEE4(i32, dhcpsn_db_lease_add, "_Z19dhcpsn_db_lease_addjPKhjj", Bytes4, Mac, u32, u32)
CALLEE1(i32, dhcpsn_db_lease_delete, "_Z22dhcpsn_db_lease_deletej", Bytes4)
CALLEE0(i32, dhcpsn_db_lease_flush_all, "_Z25dhcpsn_db_lease_flush_allv")
CALLEE3(i32, dhcpsn_snooping_set, "_Z19dhcpsn_snooping_setjbj", u32, bool, u32)
CALLEE2(void, dhcpsn_snooping_per_vlan_set, "_Z28dhcpsn_snooping_per_vlan_setbj", bool, u32)
CALLEE2(i32, dhcpsn_snooping_l2_flooding_set, "_Z31dhcpsn_snooping_l2_flooding_setbj", bool, u32)
CALLEE2(i32, dhcpsn_trust_port_set, "_Z21dhcpsn_trust_port_setjb", u32, bool)
CALLEE2(i32, dhcpsn_arpsec_action_set, "_Z24dhcpsn_arpsec_action_setjj", u32, u32)

// Protocols and the stack.
CALLEE2(i32, tarn_ryke_set_ctrl_vlan, "_Z23tarn_ryke_set_ctrl_vlanjh", u32, u8)
CALLEE1(void, tarn_udld_enable, "_Z16tarn_udld_enableh", u8)
CALLEE2(i32, tarn_udld_set_hw_filter, "_Z23tarn_udld_set_hw_filterjh", u32, u8)
CALLEE1(i32, tarn_vornappsd_add_ip_address, "_Z29tarn_vornappsd_add_ip_addressPKj", Address)
CALLEE1(i32, tarn_vornappsd_remove_ip_address, "_Z32tarn_vornappsd_remove_ip_addressPKj", Address)
CALLEE2(i32, tarn_stack_mgmt_vlan_create, "_Z27tarn_stack_mgmt_vlan_createjPKh", u32, Mac)
CALLEE0(i32, tarn_stack_mgmt_vlan_destroy, "_Z28tarn_stack_mgmt_vlan_destroyv")
CALLEE1(i32, tarn_stack_mgmt_vlan_set_state, "_Z30tarn_stack_mgmt_vlan_set_stateb", bool)
