#include "redirects/redirects.h"

// Frames to the flow daemon: takes effect when it lands; nothing is registered until then.
i32 tarn_netlink_flowd_init() {
    return 0;
}
