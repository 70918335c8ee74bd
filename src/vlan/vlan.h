// The starts of the VLAN services that are redirects, each in the file named after it.
#pragma once

#include "kernel/types.h"

i32 tarn_l2_drop_init();     // l2_drop.cc
i32 tarn_l2_fdb_drop_init(); // l2_fdb_drop.cc
i32 tarn_vlan_xlate_init();  // vlan_xlate.cc
i32 tarn_vlan_stack_init();  // vlan_stack.cc
i32 tarn_vxlan_sock_init();  // vxlan.cc
