#include "redirects/redirects.h"

// Management application addresses: takes effect when it lands; nothing is registered until then.
i32 tarn_vornappsd_init() {
    return 0;
}

i32 tarn_vornappsd_add_ip_address(const u32 *) {
    return 0;
}

i32 tarn_vornappsd_remove_ip_address(const u32 *) {
    return 0;
}
