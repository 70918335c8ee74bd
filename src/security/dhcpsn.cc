// "dhcpsn", family 60: DHCP snooping.
// Its sockets open, wait and close; what reaches them and how they send takes effect when it lands.
#include "redirects/redirect_calls.h"
#include "security/security.h"
#include "sockets/socket_family.h"

namespace {

constexpr socket_family _dhcpsn{
    .number = TARN_AF_DHCPSN,
    .name = "DHCPSN",
    .lock_name = "dhcpsn_sock_list_lock",
    .address_size = sizeof(dhcpsn_skaddr),
    .receive = {},
    .send = {},
    .sends = false,
};

} // namespace

i32 tarn_af_dhcpsn_sock_init() {
    family_sockets<_dhcpsn>::open();
    return 0;
}

// The database takes effect with it; until then no lease is known.
i32 dhcpsn_db_lease_add(u32, const u8 *, u32, u32) {
    return 0;
}

i32 dhcpsn_db_lease_delete(u32) {
    return 0;
}

i32 dhcpsn_db_lease_flush_all() {
    return 0;
}

i32 dhcpsn_snooping_set(u32, bool, u32) {
    return 0;
}

void dhcpsn_snooping_per_vlan_set(bool, u32) {}

i32 dhcpsn_snooping_l2_flooding_set(bool, u32) {
    return 0;
}

i32 dhcpsn_trust_port_set(u32, bool) {
    return 0;
}

i32 dhcpsn_arpsec_action_set(u32, u32) {
    return 0;
}

// Until then nothing is checked against the leases.
bool dhcpsn_arpsec_enabled() {
    return false;
}
