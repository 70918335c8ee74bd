// Commands on port authentication.
#include "control/nl_command.h"
#include "security/auth_state.h"
#include "security/security.h"

namespace {

constexpr i8 COUNTDOWN = 3;

u16 _port_count(const nl_command &command, tarnfwd_attr ports) {
    return static_cast<u16>(command.length(ports) / sizeof(u16));
}

// In 8 bits: 256 rules are none.
u8 _rule_count(const nl_command &command, tarnfwd_attr rules) {
    return static_cast<u8>(command.length(rules) / sizeof(tarnfwd_fwd_rule));
}

} // namespace

NL_HANDLER(auth_set_port_state) {
    return nl_with_interface(command.ifindex(), -ENODEV, [&](tarn_if *ifp) {
        return tarn_auth_set_port_state(ifp, command.byte(TARNFWD_ATTR_AUTH_PORT_STATE),
                                        command.byte(TARNFWD_ATTR_AUTH_METHOD));
    });
}

// The listener keeps its address in host order.
NL_HANDLER(auth_web_config) {
    return tarn_auth_web_set_config(be32_to_cpu(command.address()),
                                    command.half(TARNFWD_ATTR_AUTH_WEB_PORT),
                                    command.half(TARNFWD_ATTR_AUTH_WEB_PORT2), command.on(),
                                    _port_count(command, TARNFWD_ATTR_AUTH_HTTP_PORTS),
                                    command.bytes(TARNFWD_ATTR_AUTH_HTTP_PORTS),
                                    _port_count(command, TARNFWD_ATTR_AUTH_HTTPS_PORTS),
                                    command.bytes(TARNFWD_ATTR_AUTH_HTTPS_PORTS));
}

NL_HANDLER(auth_fwd_config) {
    return nl_with_interface(command.ifindex(), -1, [&](tarn_if *ifp) {
        tarn_auth_set_fwd_config_guest_vlan(
            ifp, command.vid(), command.bytes(TARNFWD_ATTR_AUTH_GUEST_FWD_RULES),
            _rule_count(command, TARNFWD_ATTR_AUTH_GUEST_FWD_RULES));
        tarn_auth_set_fwd_config(ifp, command.on(), command.bytes(TARNFWD_ATTR_AUTH_FWD_RULES),
                                 _rule_count(command, TARNFWD_ATTR_AUTH_FWD_RULES));
        return 0;
    });
}

NL_HANDLER(auth_set_supp_state) {
    return nl_with_interface(command.ifindex(), -1, [&](tarn_if *ifp) {
        return tarn_auth_supp_set_state(ifp, command.mac(), command.vid(), command.on());
    });
}

NL_HANDLER(auth_del_supp) {
    return nl_with_interface(command.ifindex(), -1, [&](tarn_if *ifp) {
        tarn_auth_remove_supp(ifp, command.mac());
        return 0;
    });
}

NL_HANDLER(auth_mac_ageout_incomplete) {
    return nl_with_interface(command.ifindex(), -1, [&](tarn_if *ifp) {
        tarn_auth_supp *supplicant = tarn_auth_find_supp(ifp, command.mac());
        if (!supplicant)
            return -1;
        u8 mark = command.on();
        if (read_once(supplicant->ageout_incomplete) != mark) {
            write_once(supplicant->ageout_incomplete, mark);
            write_once(supplicant->ageout_count, COUNTDOWN);
        }
        return 0;
    });
}
