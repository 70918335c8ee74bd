#include "vlan/vlan.h"

// VLAN translation: takes effect when it lands; nothing is registered until then.
i32 tarn_vlan_xlate_init() {
    return 0;
}
