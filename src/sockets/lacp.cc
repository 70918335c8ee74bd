#include "sockets/sockets.h"

// The socket family of LACP: takes effect when it lands; nothing is registered until then.
i32 tarn_af_lacp_sock_init() {
    return 0;
}
