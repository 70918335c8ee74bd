#include "security/security.h"

// What an unauthenticated port may pass: takes effect when it lands; nothing is registered until
// then.
i32 tarn_auth_init() {
    return 0;
}
