// Commands on DHCP snooping and ARP security.
#include "control/nl_command.h"
#include "security/security.h"

NL_HANDLER(dhcpsn_lease) {
    switch (command.byte(TARNFWD_ATTR_DHCPSN_LEASE_OP)) {
    case TARNFWD_LEASE_ADD:
        return dhcpsn_db_lease_add(command.address(), command.mac(), command.vid(),
                                   command.ifindex());
    case TARNFWD_LEASE_DELETE:
        return dhcpsn_db_lease_delete(command.address());
    case TARNFWD_LEASE_FLUSH:
        return dhcpsn_db_lease_flush_all();
    default:
        return -1;
    }
}

// Snooping itself is switched VLAN by VLAN, unless it is asked for as a whole.
NL_HANDLER(dhcpsn_state) {
    u8 kind = command.byte(TARNFWD_ATTR_DHCPSN_KIND);
    if (kind != 0 || command.byte(TARNFWD_ATTR_DHCPSN_GLOBAL) != 0)
        return dhcpsn_snooping_set(kind, command.on(), command.vid());
    dhcpsn_snooping_per_vlan_set(command.on(), command.vid());
    return 0;
}

NL_HANDLER(dhcpsn_trust) {
    return dhcpsn_trust_port_set(command.ifindex(), command.on());
}

NL_HANDLER(dhcpsn_arpsec_action) {
    return dhcpsn_arpsec_action_set(command.ifindex(), command.byte(TARNFWD_ATTR_ARPSEC_ACTION));
}

NL_HANDLER(dhcpsn_l2_flooding_state) {
    return dhcpsn_snooping_l2_flooding_set(command.on(), command.vid());
}
