#include "pkt/pkt_calls.h"
#include "redirects/redirect_calls.h"

// The role of this unit takes effect with the state of the stack; until then it stands alone.
u8 tarn_stack_is_slave() {
    return 0;
}

bool tarn_stack_local_vlan_member_allowed(const tarn_if *) {
    return true;
}

bool tarn_stack_is_pending_master() {
    return false;
}
