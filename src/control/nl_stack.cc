// Commands on the stack.
#include "control/nl_command.h"
#include "stack/stack.h"

NL_HANDLER(stack_mgmt_vlan_create) {
    return tarn_stack_mgmt_vlan_create(command.vid(), command.mac());
}

NL_HANDLER(stack_mgmt_vlan_destroy) {
    (void)command;
    return tarn_stack_mgmt_vlan_destroy();
}

NL_HANDLER(stack_mgmt_vlan_set_state) {
    return tarn_stack_mgmt_vlan_set_state(command.on());
}
