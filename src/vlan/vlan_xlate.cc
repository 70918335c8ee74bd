#include "vlan/vlan.h"

// VLAN translation: takes effect when it lands; nothing is registered until then.
i32 tarn_vlan_xlate_init() {
    return 0;
}

// Its rules take effect with it; until then none is kept.
i32 tarn_vlan_xlate_add(tarn_if *, u16, u16) {
    return 0;
}

i32 tarn_vlan_xlate_delete(tarn_if *, u16, u16) {
    return 0;
}

i32 tarn_vlan_xlate_default_action_set(tarn_if *, u32) {
    return 0;
}
