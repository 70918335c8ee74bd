#include "sockets/sockets.h"

// The socket family of ring protection: takes effect when it lands; nothing is registered until
// then.
i32 tarn_af_ryke_sock_init() {
    return 0;
}
