// Commands on private VLANs.
#include "control/nl_command.h"
#include "vlan/vlan.h"

NL_HANDLER(pvlan_set_vlan_type) {
    return tarn_pvlan_set_vlan_type(command.vid(), command.byte(TARNFWD_ATTR_PVLAN_TYPE));
}

NL_HANDLER(pvlan_vlan_associate) {
    return tarn_pvlan_add_vlan_association(command.half(TARNFWD_ATTR_PVLAN_PRIMARY_VID),
                                           command.half(TARNFWD_ATTR_PVLAN_SECONDARY_VID));
}

NL_HANDLER(pvlan_vlan_dissociate) {
    return tarn_pvlan_remove_vlan_association(command.half(TARNFWD_ATTR_PVLAN_PRIMARY_VID),
                                              command.half(TARNFWD_ATTR_PVLAN_SECONDARY_VID));
}

NL_HANDLER(pvlan_port_add) {
    return tarn_pvlan_port_add_association(command.ifindex(),
                                           command.half(TARNFWD_ATTR_PVLAN_PRIMARY_VID),
                                           command.half(TARNFWD_ATTR_PVLAN_SECONDARY_VID));
}

NL_HANDLER(pvlan_port_delete) {
    return tarn_pvlan_port_delete_association(command.ifindex(),
                                              command.half(TARNFWD_ATTR_PVLAN_PRIMARY_VID),
                                              command.half(TARNFWD_ATTR_PVLAN_SECONDARY_VID));
}

NL_HANDLER(pvlan_set_port_mode) {
    return tarn_pvlan_set_port_mode(command.ifindex(), command.byte(TARNFWD_ATTR_PVLAN_PORT_MODE));
}

NL_HANDLER(pvlan_set_vlan_forwarding) {
    return tarn_pvlan_set_vlan_forwarding(command.byte(TARNFWD_ATTR_PVLAN_FORWARDING),
                                          command.vid());
}

NL_HANDLER(pvlan_ufo_upstream_if_update) {
    u32 count = command.length(TARNFWD_ATTR_PVLAN_UPSTREAM_LIST) / sizeof(tarnfwd_upstream);
    return tarn_pvlan_set_upstream_interface_forwarding(
        count, command.bytes(TARNFWD_ATTR_PVLAN_UPSTREAM_LIST));
}
