#include "redirects/redirects.h"

// What becomes of RARP: takes effect when it lands; nothing is registered until then.
i32 tarn_rarp_init() {
    return 0;
}
