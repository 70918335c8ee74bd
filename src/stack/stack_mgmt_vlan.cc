#include "pkt/pkt_calls.h"
#include "tarn/rxtx_hw.h"

// The management VLAN of the stack takes effect with the state of the stack; until then there is
// none, and a queue told for it is lost.
i32 tarn_stack_mgmt_vlan_get_vid(u32 *) {
    return -1;
}

u32 tarn_stacking_mgmt_queue(u32) {
    return 0;
}
