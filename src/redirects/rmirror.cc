// "remote-mirror": frames on a mirror VLAN are carried on, not handled.
//
// Enabled while there is a mirror VLAN. The flags are read on the packet path without the lock,
// which only the writer takes.
#include "kernel/errno.h"
#include "kernel/locks.h"
#include "kernel/once.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 3;
constexpr u32 ON_MIRROR_VLAN = 1;
constexpr u32 VIDS = 4095;
// Destinations that no bridge forwards (IEEE 802.1Q, table 8-1) stay here too.
constexpr u8 RESERVED[] = {0x01, 0x80, 0xC2};

constinit std::array<u8, VIDS> mirror_vlans{};
constinit u32 mirror_vlan_count = 0;
constinit rwlock_t mirror_vlan_lock{};

i32 tarn_rmirror_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    u32 vid = info->rx_vid & 0xFFFF;
    if (vid >= VIDS || !read_once(mirror_vlans[vid]))
        return 0;
    instruct->flags |= REDIRECT_STOP;
    instruct->reason = ON_MIRROR_VLAN;
    if (!frame_bytes(info->skb).equals(ETH_DST_OFFSET, RESERVED, sizeof(RESERVED)))
        instruct->flags |= REDIRECT_FLOOD_L2;
    return 0;
}

// The first mirror VLAN turns the redirect on, the last one turns it off.
void _count(bool mirror) {
    if (mirror) {
        if (mirror_vlan_count++ == 0)
            enable_redirect(SLOT, 1);
        return;
    }
    if (--mirror_vlan_count == 0)
        enable_redirect(SLOT, 0);
}

} // namespace

i32 tarn_rmirror_set_mirror_vlan(u32 vid, bool mirror) {
    if (vid >= VIDS)
        return -EINVAL;
    write_lock_bh(&mirror_vlan_lock);
    if (mirror_vlans[vid] != mirror) {
        write_once(mirror_vlans[vid], mirror);
        _count(mirror);
    }
    write_unlock_bh(&mirror_vlan_lock);
    return 0;
}

i32 tarn_rmirror_init() {
    rwlock_init(&mirror_vlan_lock, "mirror_vlan_lock");
    packet_redirect record{.name = "remote-mirror",
                           .match = tarn_rmirror_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy};
    i32 result = tarn_pkt_register_packet_redirection(&record, SLOT);
    if (result == 0)
        enable_redirect(SLOT, 0);
    return result;
}
