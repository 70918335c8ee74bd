#include "sockets/sockets.h"

// The socket family of raw frames; registers no redirect: takes effect when it lands; nothing is
// registered until then.
i32 tarn_af_frame_sock_init() {
    return 0;
}
