#include "sockets/sockets.h"

// The socket family of IS-IS: takes effect when it lands; nothing is registered until then.
i32 tarn_af_isis_sock_init() {
    return 0;
}
