// Link state: what the control daemon says of a port, and what follows for those above it.
//
// oper_count of an interface is the number of running leaves below it. Only its edges, from 0 and
// to 0, produce work: on a VLAN interface, deferred, RUNNING of its device is set or taken.
#pragma once

#include "ifmgr/tarn_if.h"

enum tarn_op : u32 {
    TARN_OP_RAISE = 1,
    TARN_OP_LOWER = 2,
};

// The port has gained link. Always 0.
i32 tarn_ifmgr_L2_link_up(tarn_if *ifp);
// Acts on a change of the flags, given whether the old ones had link.
void tarn_ifmgr_L2_link_state_check(tarn_if *ifp, u32 was_up);
// Adds to the flags, and does what that means for the type of interface. Always 0.
i32 _tarn_ifmgr_flags_set(tarn_if *ifp, u32 mask);

// Counts `delta` running leaves more or less on the interface and all above it, and queues what
// follows. 0 or a negative result.
i32 _tarn_ifmgr_op_count_post(tarn_if *ifp, u32 op, u32 delta);
