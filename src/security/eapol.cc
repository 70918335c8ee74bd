// "eapol", family 47: port authentication (IEEE 802.1X).
// Its sockets open, wait and close; what reaches them and how they send takes effect when it lands.
#include "security/security.h"
#include "sockets/socket_family.h"

namespace {

constexpr socket_family _eapol{
    .number = TARN_AF_EAPOL,
    .name = "EAPOL",
    .lock_name = "eapol_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {},
    .send = {},
    .sends = false,
};

} // namespace

i32 tarn_af_eapol_sock_init() {
    family_sockets<_eapol>::open();
    return 0;
}
