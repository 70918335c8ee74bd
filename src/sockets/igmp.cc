#include "redirects/redirect_calls.h"
#include "sockets/sockets.h"

// The socket family of IGMP snooping: takes effect when it lands; nothing is registered until then.
i32 tarn_af_igs_sock_init() {
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
