#include "sockets/sockets.h"

// The socket family of spanning tree BPDUs: takes effect when it lands; nothing is registered until
// then.
i32 tarn_af_stp_sock_init() {
    return 0;
}
