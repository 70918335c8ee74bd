#include "sockets/sockets.h"

// The socket family of OpenFlow: takes effect when it lands; nothing is registered until then.
i32 tarn_af_openflowd_sock_init() {
    return 0;
}
