#include "security/security.h"

// EAPOL frames to the authenticator: takes effect when it lands; nothing is registered until then.
i32 tarn_af_eapol_sock_init() {
    return 0;
}
