// The start of stacking.
#pragma once

#include "kernel/types.h"

i32 tarn_stack_init(); // stack.cc

// stack_mgmt_vlan.cc: the management VLAN, of which there is one or none. 0 or -1.
i32 tarn_stack_mgmt_vlan_create(u32 vid, const u8 *mac);
i32 tarn_stack_mgmt_vlan_destroy();
i32 tarn_stack_mgmt_vlan_set_state(bool up);
