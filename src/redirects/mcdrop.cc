#include "redirects/redirects.h"

// Throttling of unregistered multicast: takes effect when it lands; nothing is registered until
// then.
i32 tarn_mcdrop_init() {
    return 0;
}
