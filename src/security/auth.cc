#include "security/auth_state.h"
#include "security/security.h"

// What an unauthenticated port may pass: takes effect when it lands; nothing is registered until
// then.
i32 tarn_auth_init() {
    tarn_auth_state_init();
    return 0;
}

// Its tables take effect with it; until then every port is uncontrolled and knows no station.
tarn_auth_supp *tarn_auth_find_supp(tarn_if *, const u8 *) {
    return nullptr;
}

void tarn_auth_set_fwd_config(tarn_if *, bool, const u8 *, u8) {}

void tarn_auth_set_fwd_config_guest_vlan(tarn_if *, u16, const u8 *, u8) {}

i32 tarn_auth_web_set_config(u32, u16, u16, bool, u16, const u8 *, u16, const u8 *) {
    return 0;
}
