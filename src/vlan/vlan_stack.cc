#include "vlan/vlan.h"

// VLAN stacking: takes effect when it lands; nothing is registered until then.
i32 tarn_vlan_stack_init() {
    return 0;
}
