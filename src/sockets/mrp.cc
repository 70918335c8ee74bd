#include "sockets/sockets.h"

// The socket family of MRP rings: takes effect when it lands; nothing is registered until then.
i32 tarn_mrp_sock_init() {
    return 0;
}
