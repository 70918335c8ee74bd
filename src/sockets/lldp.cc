#include "sockets/sockets.h"

// The socket family of LLDP: takes effect when it lands; nothing is registered until then.
i32 tarn_af_lldp_sock_init() {
    return 0;
}
