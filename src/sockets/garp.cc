#include "sockets/sockets.h"

// The socket family of GARP: takes effect when it lands; nothing is registered until then.
i32 tarn_af_garp_sock_init() {
    return 0;
}
