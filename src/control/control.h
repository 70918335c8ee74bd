// The starts of the control plane.
#pragma once

#include "kernel/types.h"

// tarn_proc.cc: the tree "tarn" with its entries and the stack's. -1 fails the load.
i32 _module_create_proc();

// tarnfwd_nl.cc: the generic netlink family.
i32 tarnfwd_nl_init();
