#include "redirects/redirects.h"

// What becomes of ARP: takes effect when it lands; nothing is registered until then.
i32 tarn_arp_init() {
    return 0;
}
