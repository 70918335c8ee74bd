// "frame", family 56: tools send whole frames through it, and receive nothing.
#include "kernel/log.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr socket_family _frame{
    .number = TARN_AF_FRAME,
    .name = "FRAME",
    .lock_name = "frame_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {},
    .send = {.function = "_frame_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = VLAN_SKADDR_IS_NULL,
             .short_message = KERN_WARNING "%s namelen %d",
             .short_first = true,
             .up = SOCKET_UP,
             .vlan_by_vid = true,
             .by_flag = true,
             .cos = 0,
             .queue = 0},
    .reads = false,
};

} // namespace

i32 tarn_af_frame_sock_init() {
    family_sockets<_frame>::open();
    return 0;
}
