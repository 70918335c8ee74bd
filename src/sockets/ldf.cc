#include "sockets/sockets.h"

// The socket family of loop detection frames: takes effect when it lands; nothing is registered
// until then.
i32 tarn_af_ldf_sock_init() {
    return 0;
}
