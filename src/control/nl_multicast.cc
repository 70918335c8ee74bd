// Commands on multicast.
#include "control/nl_command.h"
#include "pkt/pkt_flood.h"
#include "redirects/redirects.h"
#include "sockets/sockets.h"

// The group bit is told where others tell an address.
NL_HANDLER(igmp_snooping_routermode) {
    tarn_mc_router_mode_handler(
        command.word(TARNFWD_ATTR_ID), command.byte(TARNFWD_ATTR_MC_ROUTER_OP),
        command.byte(TARNFWD_ATTR_MC_ROUTER_VALUE), command.word(TARNFWD_ATTR_IPV4_ADDR));
    return 0;
}

NL_HANDLER(igmp_snooping_routermode_db) {
    tarn_mc_router_mode_db_handler(command.word(TARNFWD_ATTR_ID), command.on());
    return 0;
}

// The command says that floods stop.
NL_HANDLER(stop_unreg_mc_flooding) {
    tarn_pkt_unknown_multicast_flood_set(command.on() ? 0 : 1);
    return 0;
}

NL_HANDLER(multicast_ratelimit) {
    tarn_update_mcast_limits(command.word(TARNFWD_ATTR_MC_RATE_LIMIT));
    return 0;
}

NL_HANDLER(ipv4_mc_vif_add) {
    return tarn_af_igs_l3_multicast_enable(command.ifindex(), 1);
}

NL_HANDLER(ipv4_mc_vif_del) {
    return tarn_af_igs_l3_multicast_enable(command.ifindex(), 0);
}

NL_HANDLER(ipv4_mc_flooding_group_add) {
    return tarn_mcdrop_flooding_group_add(command.word(TARNFWD_ATTR_ID), command.vid(),
                                          command.address());
}

NL_HANDLER(ipv4_mc_flooding_group_remove) {
    return tarn_mcdrop_flooding_group_remove(command.word(TARNFWD_ATTR_ID), command.vid(),
                                             command.address());
}

NL_HANDLER(ipv4_mc_flooding_group_flush) {
    (void)command;
    return tarn_mcdrop_flooding_group_flush();
}

NL_HANDLER(ipv4_mc_software_routing_set) {
    tarn_ipv4_mc_software_routing_enabled_set(command.on());
    return 0;
}

NL_HANDLER(ipv6_mc_software_routing_set) {
    tarn_ipv6_mc_software_routing_enabled_set(command.on());
    return 0;
}

NL_HANDLER(ipv6_mc_vif_add) {
    tarn_af_mlds_l3_multicast_enable(command.ifindex(), 1);
    return 0;
}

NL_HANDLER(ipv6_mc_vif_del) {
    tarn_af_mlds_l3_multicast_enable(command.ifindex(), 0);
    return 0;
}
