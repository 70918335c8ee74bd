#include "pkt/pkt_calls.h"
#include "stack/stack.h"
#include "tarn/rxtx_hw.h"

// The management VLAN of the stack takes effect with the state of the stack; until then there is
// none, and a queue told for it is lost.
i32 tarn_stack_mgmt_vlan_get_vid(u32 *) {
    return -1;
}

u32 tarn_stacking_mgmt_queue(u32) {
    return 0;
}

i32 tarn_stack_mgmt_vlan_create(u32, const u8 *) {
    return -1;
}

i32 tarn_stack_mgmt_vlan_destroy() {
    return -1;
}

i32 tarn_stack_mgmt_vlan_set_state(bool) {
    return -1;
}
