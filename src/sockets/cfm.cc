#include "sockets/sockets.h"

// The socket family of connectivity fault management: takes effect when it lands; nothing is
// registered until then.
i32 tarn_af_cfm_sock_init() {
    return 0;
}
