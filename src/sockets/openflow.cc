// "openflow", family 63: a daemon that takes over whole ports.
// Its sockets open, wait and close; what reaches them and how they send takes effect when it lands.
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr socket_family _openflowd{
    .number = TARN_AF_OPENFLOW,
    .name = "OFP",
    .lock_name = "openflowd_sock_list_lock",
    .address_size = sizeof(openflow_skaddr),
    .receive = {},
    .send = {},
    .sends = false,
};

} // namespace

i32 tarn_af_openflowd_sock_init() {
    family_sockets<_openflowd>::open();
    return 0;
}
