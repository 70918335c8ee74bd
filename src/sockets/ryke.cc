// "ryke", family 54: ring protection. Its daemon reads whole frames with their tag, and nothing
// else may be sent on its control VLANs.
#include "ifmgr/tarn_ifmgr_event.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 21;
constexpr u32 CODE_NOT_FOR_DAEMON = 1;
constexpr u8 ryke_addr[ETH_ALEN] = {0x00, 0xE0, 0x2B, 0x00, 0x00, 0x04};
constexpr u32 VLANS = 4095;
constexpr i32 MORE_ROOM = 64;

enum _reason : u32 {
    FILTERED = 1,
    CODE = 3,
    POSTED = 4,
};

constinit u8 ryke_control_vlans[VLANS] = {};

// In bytes of its own, for others may read the frame through a clone.
bool _make_room(sk_buff *skb) {
    i32 more = skb_headroom(skb) < VLAN_HLEN ? MORE_ROOM : 0;
    return (more == 0 && !skb_cloned(skb)) || pskb_expand_head(skb, more, 0, GFP_ATOMIC) == 0;
}

sk_buff *_tag(sk_buff *skb, const tarn_post_info *info) {
    if (!_make_room(skb))
        return nullptr;
    frame_insert_tag(skb, static_cast<u16>(info->rx_vid));
    return skb;
}

constexpr socket_family _ryke{
    .number = TARN_AF_RYKE,
    .name = "RYKE",
    .lock_name = "ryke_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_HEADER, .port = SOCKET_L2_IFINDEX, .prepare = _tag},
    .send = {.function = "_ryke_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = KERN_INFO "vlan_skaddr is null",
             .short_message = KERN_INFO "%s namelen %d",
             .vlan_by_vid = true},
};

i32 tarn_ryke_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!frame_is_to(info, ryke_addr))
        return 0;
    if (redirect_filtered(info))
        redirect_decide(instruct, REDIRECT_STOP, FILTERED);
    else if (info->code == CODE_NOT_FOR_DAEMON)
        redirect_decide(instruct, REDIRECT_STOP, CODE);
    else
        redirect_decide(instruct, REDIRECT_TO_DAEMON, POSTED);
    return 0;
}

sk_buff *tarn_ryke_modify_tx_packet(tarn_if *ifp, sk_buff *skb) {
    if (ifp->type != TARN_IF_TYPE_VLAN || !tarn_ryke_is_ctrl_vlan(ifp->vid) ||
        frame_bytes(skb).equals(ETH_DST_OFFSET, ryke_addr, ETH_ALEN))
        return skb;
    kfree_skb(skb);
    return nullptr;
}

} // namespace

i32 tarn_ryke_set_ctrl_vlan(u32 vid, u8 on) {
    if (vid >= VLANS)
        return -EINVAL;
    write_once(ryke_control_vlans[vid], on);
    return 0;
}

u8 tarn_ryke_is_ctrl_vlan(u32 vid) {
    return vid < VLANS ? read_once(ryke_control_vlans[vid]) : u8{0};
}

void tarn_ryek_vlan_created(u32 vid) {
    tarn_ryke_set_ctrl_vlan(vid, 0);
}

i32 tarn_af_ryke_sock_init() {
    packet_redirect record{.name = "ryke",
                           .match = tarn_ryke_redirect_instruct_get,
                           .post = family_sockets<_ryke>::post,
                           .modify_tx = tarn_ryke_modify_tx_packet,
                           .stack_repl_type = STACK_REPL_RYKE,
                           .skip_protocols = SKIP_ARP,
                           .concerns = FRAME_TO_PROTOCOL};
    i32 result = family_sockets<_ryke>::start(&record, SLOT);
    if (result == 0)
        tarn_ifmgr_notifications_register(tarn_ryek_vlan_created);
    return result;
}
