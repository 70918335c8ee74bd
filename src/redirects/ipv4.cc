#include "redirects/redirects.h"

// What becomes of IPv4: takes effect when it lands; nothing is registered until then.
i32 tarn_ipv4_init() {
    return 0;
}
