#include "sockets/sockets.h"

// The socket family of PROFINET: takes effect when it lands; nothing is registered until then.
i32 tarn_af_profinet_sock_init() {
    return 0;
}
