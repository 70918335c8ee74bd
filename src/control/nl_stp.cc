// Commands on spanning tree.
#include "control/nl_command.h"
#include "ifmgr/tarn_ifmgr_settings.h"

NL_HANDLER(stp_add_vlan_to_instance) {
    return tarn_ifmgr_stp_vlan_inst_add(command.word(TARNFWD_ATTR_STP_INSTANCE), command.vid());
}

NL_HANDLER(stp_delete_vlan_from_instance) {
    return tarn_ifmgr_stp_vlan_inst_delete(command.vid());
}

NL_HANDLER(stp_set_port_state) {
    return tarn_ifmgr_stp_port_state_set(command.ifindex(), command.word(TARNFWD_ATTR_STP_INSTANCE),
                                         command.byte(TARNFWD_ATTR_STP_STATE));
}
