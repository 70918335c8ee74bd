#include "sockets/sockets.h"

// The socket family of ring protection: takes effect when it lands; nothing is registered until
// then.
i32 tarn_af_ryke_sock_init() {
    return 0;
}

// Control VLANs take effect with it.
i32 tarn_ryke_set_ctrl_vlan(u32, u8) {
    return 0;
}
