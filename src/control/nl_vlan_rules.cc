// Commands on rules that move frames between VLANs, and on tunnels.
#include "control/nl_command.h"
#include "vlan/vlan.h"

namespace {

constexpr i32 UNKNOWN = -EINVAL;

} // namespace

// What the tunnels make of it is not told.
NL_HANDLER(if_set_vxlan_config) {
    auto change = command.on() ? tarn_vxlan_add : tarn_vxlan_del;
    change(command.vid(), command.word(TARNFWD_ATTR_VXLAN_LOCAL_ADDR),
           command.word(TARNFWD_ATTR_VXLAN_REMOTE_ADDR), command.word(TARNFWD_ATTR_VXLAN_VNI));
    return 0;
}

NL_HANDLER(vlan_classifier_add) {
    return nl_with_interface(command.ifindex(), UNKNOWN, [&](tarn_if *ifp) {
        return tarn_subnet_vlan_add(ifp, command.vid(), command.address(),
                                    command.byte(TARNFWD_ATTR_PREFIX_LEN));
    });
}

NL_HANDLER(vlan_classifier_delete) {
    return nl_with_interface(command.ifindex(), UNKNOWN, [&](tarn_if *ifp) {
        return tarn_subnet_vlan_delete(ifp, command.vid(), command.address(),
                                       command.byte(TARNFWD_ATTR_PREFIX_LEN));
    });
}

NL_HANDLER(vlan_xlate_add_to_port) {
    return nl_with_interface(command.ifindex(), UNKNOWN, [&](tarn_if *ifp) {
        return tarn_vlan_xlate_add(ifp, command.half(TARNFWD_ATTR_XLATE_VID),
                                   command.half(TARNFWD_ATTR_XLATE_NEW_VID));
    });
}

NL_HANDLER(vlan_xlate_delete_from_port) {
    return nl_with_interface(command.ifindex(), UNKNOWN, [&](tarn_if *ifp) {
        return tarn_vlan_xlate_delete(ifp, command.half(TARNFWD_ATTR_XLATE_VID),
                                      command.half(TARNFWD_ATTR_XLATE_NEW_VID));
    });
}

NL_HANDLER(vlan_xlate_set_miss_action_to_port) {
    return nl_with_interface(command.ifindex(), UNKNOWN, [&](tarn_if *ifp) {
        return tarn_vlan_xlate_default_action_set(ifp,
                                                  command.byte(TARNFWD_ATTR_XLATE_MISS_ACTION));
    });
}

NL_HANDLER(vlan_stack_rule_add) {
    return tarn_vlan_stack_rule_add(command.half(TARNFWD_ATTR_STACK_RULE_VID_A),
                                    command.half(TARNFWD_ATTR_STACK_RULE_VID_B));
}

NL_HANDLER(vlan_stack_rule_delete) {
    return tarn_vlan_stack_rule_delete(command.half(TARNFWD_ATTR_STACK_RULE_VID_A),
                                       command.half(TARNFWD_ATTR_STACK_RULE_VID_B));
}
