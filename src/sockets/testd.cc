#include "sockets/sockets.h"

// The socket family of the test daemon: takes effect when it lands; nothing is registered until
// then.
i32 tarn_af_testd_sock_init() {
    return 0;
}
