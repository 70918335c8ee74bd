// "mlds", family 52: MLD snooping.
// Its sockets open, wait and close; what reaches them and how they send takes effect when it lands.
#include "pkt/pkt_calls.h"
#include "redirects/redirect_calls.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr socket_family _mld_snoop{
    .number = TARN_AF_MLD_SNOOP,
    .name = "MLD",
    .lock_name = "mld_snoop_sock_list_lock",
    .address_size = sizeof(mld_skaddr),
    .receive = {},
    .send = {},
    .sends = false,
};

// Options of a hop-by-hop header (RFC 8200, section 4.2; router alert: RFC 2711).
constexpr u8 OPTION_PAD1 = 0;
constexpr u8 OPTION_PADN = 1;
constexpr u8 OPTION_ROUTER_ALERT = 5;
constexpr u8 ROUTER_ALERT_LENGTH = 2;

} // namespace

i32 tarn_af_mlds_sock_init() {
    family_sockets<_mld_snoop>::open();
    return 0;
}

// Looks at the first option behind at most one run of padding, which is where senders put it.
bool tarn_ipv6_mc_is_rtr_alert_present(const frame_bytes &frame, u32 offset) {
    u32 end = offset + (frame.byte(offset + 1) + 1u) * 8;
    u32 at = offset + 2;
    u8 option = frame.byte(at);
    if (option == OPTION_PADN)
        at += 2 + frame.byte(at + 1);
    else if (option == OPTION_PAD1)
        while (at < end && at < frame.length && frame.byte(at) == OPTION_PAD1)
            at++;
    return at + 1 < end && frame.byte(at) == OPTION_ROUTER_ALERT &&
           frame.byte(at + 1) == ROUTER_ALERT_LENGTH;
}

// The settings of MLD snooping take effect with it.
i32 tarn_af_mlds_l3_multicast_enable(u32, u32) {
    return 0;
}

void tarn_ipv6_mc_software_routing_enabled_set(u8) {}

u8 tarn_ipv6_mc_software_routing_enabled_get() {
    return 0;
}
