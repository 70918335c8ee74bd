// The start of stacking.
#pragma once

#include "kernel/types.h"

struct proc_dir_entry;

i32 tarn_stack_init(); // stack.cc

// stack_mgmt_vlan.cc: the management VLAN, of which there is one or none. 0 or -1.
i32 tarn_stack_mgmt_vlan_create(u32 vid, const u8 *mac);
i32 tarn_stack_mgmt_vlan_destroy();
i32 tarn_stack_mgmt_vlan_set_state(bool up);
// stack_proc.cc: the stack's own file in "tarn". 0, or -1, which fails the load.
i32 tarn_stack_init_proc_entry(proc_dir_entry *directory);
