#include "redirects/redirect_calls.h"
#include "vlan/vlan.h"

// The subnet VLAN classifier takes effect when it lands; until then no frame is classified.
i32 tarn_subnet_vlan_add(tarn_if *, u16, u32, u8) {
    return 0;
}

i32 tarn_subnet_vlan_delete(tarn_if *, u16, u32, u8) {
    return 0;
}

bool tarn_subnet_vlan_wa_match(u32, u16 *, tarn_if *) {
    return false;
}
