#include "sockets/sockets.h"

// The socket family of UDLD: takes effect when it lands; nothing is registered until then.
i32 tarn_af_udld_sock_init() {
    return 0;
}
