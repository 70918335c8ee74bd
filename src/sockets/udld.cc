#include "sockets/sockets.h"

// The socket family of UDLD: takes effect when it lands; nothing is registered until then.
i32 tarn_af_udld_sock_init() {
    return 0;
}

// Its switches take effect with it.
void tarn_udld_enable(u8) {}

i32 tarn_udld_set_hw_filter(u32, u8) {
    return 0;
}
