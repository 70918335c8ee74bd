#include "redirects/redirects.h"

// Throttling of unregistered multicast: takes effect when it lands; nothing is registered until
// then.
i32 tarn_mcdrop_init() {
    return 0;
}

void tarn_update_mcast_limits(u32) {}

i32 tarn_mcdrop_flooding_group_add(u32, u16, u32) {
    return 0;
}

i32 tarn_mcdrop_flooding_group_remove(u32, u16, u32) {
    return 0;
}

i32 tarn_mcdrop_flooding_group_flush() {
    return 0;
}
