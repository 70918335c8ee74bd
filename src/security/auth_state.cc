#include "security/auth_state.h"

#include "kernel/errno.h"

constinit tarn_auth_web am{};
constinit rwlock_t _auth_supp_list_lock{};
constinit rwlock_t _auth_fwd_lock{};
constinit rwlock_t _auth_pkt_config_lock{};

namespace {

constinit u8 _started = 0;

} // namespace

void tarn_auth_state_init() {
    rwlock_init(&_auth_supp_list_lock, "_auth_supp_list_lock");
    rwlock_init(&_auth_fwd_lock, "_auth_fwd_lock");
    rwlock_init(&_auth_pkt_config_lock, "_auth_pkt_config_lock");
    __atomic_store_n(&_started, 1, __ATOMIC_RELEASE);
}

bool tarn_auth_state_started() {
    return __atomic_load_n(&_started, __ATOMIC_ACQUIRE);
}

// A change of the state takes effect with port authentication; until then every port is
// uncontrolled and has no table.
i32 tarn_auth_set_port_state(tarn_if *, u32, u32) {
    return 0;
}

i32 tarn_auth_supp_set_state(tarn_if *, const u8 *, u16, u8) {
    return -EINVAL;
}

void tarn_auth_remove_supp(tarn_if *, const u8 *) {}
