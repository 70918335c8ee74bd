// "flowd": frames that the chip has marked for flow tracking go to the flow daemon, through a raw
// netlink group.
#include "events/tarnfwd_netlink.h"
#include "kernel/bytes.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/skb.h"
#include "pkt/pkt_redirect.h"
#include "redirects/ingress.h"
#include "redirects/redirects.h"
#include "redirects/tap.h"

namespace {

constexpr u32 SLOT = 6;
constexpr u32 GROUP = 2;
constexpr u32 GROUP_MASK = 2;

enum _reason : u32 {
    NO_PORT = 1,
    POSTED = 2,
};

struct _message {
    tap_header header;
    u32 ifindex;
    u32 length;
};
static_assert(sizeof(_message) == 24);

i32 flowd_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (!(info->flags & TARN_RX_FLOW_SAMPLE))
        return 0;
    instruct->flags |= REDIRECT_STOP;
    if (!info->rx_port) {
        instruct->reason = NO_PORT;
        return 0;
    }
    instruct->flags |= REDIRECT_POST_USERSPACE;
    instruct->reason = POSTED;
    return 0;
}

// The frame to send, or null.
sk_buff *_with_tag(sk_buff *skb, u32 tag) {
    sk_buff *clone = skb_clone(skb, GFP_ATOMIC);
    if (!clone || tap_restore_tag(clone, tag) == 0)
        return clone;
    kfree_skb(clone);
    return nullptr;
}

sk_buff *flowd_netlink_post_packet(sk_buff *skb, tarn_post_info *info) {
    sk_buff *tagged = _with_tag(skb, info->tag);
    if (!tagged)
        return skb;
    u32 length = skb_len(tagged);
    sk_buff *sent = tap_make_room(tagged, sizeof(_message));
    if (!sent) {
        kfree_skb(tagged);
        return nullptr;
    }
    const _message message{.header = {.length = length + 8, .unused = {}},
                           .ifindex = ingress_ifindex(info->rx_port),
                           .length = length};
    memcpy(skb_push(sent, sizeof(message)), &message, sizeof(message));
    tarnfwd_netlink_broadcast(sent, GROUP);
    return skb;
}

} // namespace

i32 tarn_netlink_flowd_init() {
    i32 result = tarnfwd_netlink_reserve(GROUP_MASK);
    if (result != 0) {
        pr_err("Error reserving FLOWD netlink group\n");
        return result;
    }
    packet_redirect record{.name = "flowd",
                           .match = flowd_redirect_instruct_get,
                           .post = flowd_netlink_post_packet,
                           .concerns = FRAME_TRAP_FLAGS};
    result = tarn_pkt_register_packet_redirection(&record, SLOT);
    if (result != 0)
        pr_err("Error registering FLOWD redirection\n");
    else
        enable_redirect(SLOT, 0);
    return result;
}
