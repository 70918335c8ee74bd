#include "sockets/sockets.h"

// The socket family of IGMP snooping: takes effect when it lands; nothing is registered until then.
i32 tarn_af_igs_sock_init() {
    return 0;
}
