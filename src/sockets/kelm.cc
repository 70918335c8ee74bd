// "kelm", family 62: the management framework.
// Its sockets open, wait and close; what reaches them and how they send takes effect when it lands.
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr socket_family _kelm{
    .number = TARN_AF_KELM,
    .name = "KELM",
    .lock_name = "kelm_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {},
    .send = {},
    .sends = false,
};

} // namespace

i32 tarn_af_kelm_sock_init() {
    family_sockets<_kelm>::open();
    return 0;
}
