// "igmp", family 51: IGMP snooping.
// Its sockets open, wait and close; what reaches them and how they send takes effect when it lands.
#include "redirects/redirect_calls.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr socket_family _igmp_snoop{
    .number = TARN_AF_IGMP_SNOOP,
    .name = "IGMP",
    .lock_name = "igmp_snoop_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {},
    .send = {},
    .sends = false,
};

} // namespace

i32 tarn_af_igs_sock_init() {
    family_sockets<_igmp_snoop>::open();
    return 0;
}

// Its settings take effect with it.
void tarn_mc_router_mode_handler(u32, u32, u32, u32) {}

void tarn_mc_router_mode_db_handler(u32, bool) {}

i32 tarn_af_igs_l3_multicast_enable(u32, u32) {
    return 0;
}

void tarn_ipv4_mc_software_routing_enabled_set(u8) {}

u8 tarn_ipv4_mc_software_routing_enabled_get() {
    return 0;
}
