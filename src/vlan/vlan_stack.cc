#include "pkt/pkt_calls.h"
#include "vlan/vlan.h"

// VLAN stacking: takes effect when it lands; nothing is registered until then.
i32 tarn_vlan_stack_init() {
    return 0;
}

u32 tarn_vlan_stack_outer_vlan_get(u32) {
    return 0;
}

// Its rules take effect with it; until then none is kept.
i32 tarn_vlan_stack_rule_add(u16, u16) {
    return 0;
}

i32 tarn_vlan_stack_rule_delete(u16, u16) {
    return 0;
}
