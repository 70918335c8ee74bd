#include "support/redirect_seams.h"

#include "redirects/redirect_calls.h"

namespace redirect_seams {

Answers &answers() {
    static Answers the_answers;
    return the_answers;
}

} // namespace redirect_seams

using redirect_seams::answers;

// The linker leads each call to its __wrap_ form, and __real_ to the core's own (wrapped.txt).
#define WRAPPED(result, name, symbol, ...)                                                         \
    result name(__VA_ARGS__) asm("__wrap_" symbol);                                                \
    result real##name(__VA_ARGS__) asm("__real_" symbol);                                          \
    result name(__VA_ARGS__)

WRAPPED(i32, _ipv4_type, "_Z20tarn_igs_get_mc_typePK13tarn_pkt_info", const tarn_pkt_info *info) {
    return answers().ipv4_type ? *answers().ipv4_type : real_ipv4_type(info);
}

WRAPPED(u8, _ipv4_routing, "_Z41tarn_ipv4_mc_software_routing_enabled_getv") {
    return answers().ipv4_routing || real_ipv4_routing();
}

WRAPPED(i32, _ipv6_type, "_Z21tarn_mlds_get_mc_typePK13tarn_pkt_info", const tarn_pkt_info *info) {
    return answers().ipv6_type ? *answers().ipv6_type : real_ipv6_type(info);
}

WRAPPED(u8, _ipv6_routing, "_Z41tarn_ipv6_mc_software_routing_enabled_getv") {
    return answers().ipv6_routing || real_ipv6_routing();
}

WRAPPED(bool, _arpsec, "_Z21dhcpsn_arpsec_enabledv") {
    return answers().arp_check || real_arpsec();
}

WRAPPED(i32, _arp_check, "_Z33dhcpsn_arpsec_check_arp_violationP7tarn_ifP7sk_buffjj", tarn_if *port,
        sk_buff *skb, u32 arp_offset, u32 vid) {
    if (!answers().arp_check)
        return real_arp_check(port, skb, arp_offset, vid);
    answers().arp_checks.push_back({port, arp_offset, vid});
    return *answers().arp_check;
}

WRAPPED(bool, _pending, "_Z28tarn_stack_is_pending_masterv") {
    return answers().master_pending || real_pending();
}

WRAPPED(bool, _subnet, "_Z25tarn_subnet_vlan_wa_matchjPtP7tarn_if", u32 address, u16 *vid,
        tarn_if *port) {
    if (answers().subnet_vlans.empty())
        return real_subnet(address, vid, port);
    auto found = answers().subnet_vlans.find(address);
    if (found == answers().subnet_vlans.end())
        return false;
    *vid = found->second;
    return true;
}

WRAPPED(u32, _bucket, "_Z23_tarn_l2_fdb_block_hashPKht", const u8 *mac, u16 vid) {
    return answers().block_bucket && mac && vid != 0 ? *answers().block_bucket
                                                     : real_bucket(mac, vid);
}

WRAPPED(i32, _fdb_add, "_Z26tarnfwd_nl_send_l2_fdb_addPKhjhthjj", const u8 *mac, u32 ifindex,
        u8 event, u16 vid, u8 state, u32 vni, u32 remote) {
    if (!answers().fdb_events)
        return real_fdb_add(mac, ifindex, event, vid, state, vni, remote);
    answers().fdb_events->push_back({Bytes(mac, mac + 6), ifindex, event, vid, state, vni, remote});
    return 0;
}

WRAPPED(i32, _broadcast, "_Z25tarnfwd_netlink_broadcastP7sk_buffj", sk_buff *skb, u32 group) {
    if (answers().on_broadcast)
        answers().on_broadcast();
    return real_broadcast(skb, group);
}
