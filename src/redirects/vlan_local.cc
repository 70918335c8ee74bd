// "vlan_local": frames that belong to a VLAN and to no port end here, first of all.
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 49;
constexpr u32 NO_PORT = 1;

bool _may_go_to_kernel(const tarn_pkt_info *info) {
    return info->local_post_kernel && info->vlan_if &&
           (read_once(info->vlan_if->if_flags) & TARN_IF_F_VLAN_LOCAL);
}

i32 tarn_vlan_local_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!info->local && info->rx_port)
        return 0;
    instruct->flags |= REDIRECT_STOP;
    instruct->reason = NO_PORT;
    if (_may_go_to_kernel(info))
        instruct->flags |= REDIRECT_POST_KERNEL;
    return 0;
}

} // namespace

i32 tarn_vlan_local_init() {
    packet_redirect record{.name = "vlan_local",
                           .match = tarn_vlan_local_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .concerns = FRAME_WITHOUT_PORT};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
