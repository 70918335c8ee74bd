// "sflow": frames that the chip has sampled go to the sFlow daemon, through a raw netlink group.
// The sample is all that remains of such a frame.
#include "events/tarnfwd_netlink.h"
#include "kernel/bytes.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/skb.h"
#include "kernel/work.h"
#include "pkt/pkt_explain.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"
#include "redirects/tap.h"

namespace {

constexpr u32 SLOT = 5;
constexpr u32 GROUP = 1;
constexpr u32 GROUP_MASK = 1;

enum _reason : u32 {
    NO_PORT = 1,
    SAMPLE = 3,
};

enum _code : u32 {
    SAMPLED = 8,
    SAMPLED_OTHERWISE = 9, // such a sample of a multicast frame is not posted
};

struct _message {
    tap_header header;
    u32 ifindex;
    u32 kind; // 0 for SAMPLED, else 1
    u32 length;
};
static_assert(sizeof(_message) == 28);

// One sample is put together at a time.
constinit mutex _mutex{};

i32 tarn_sflow_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->code != SAMPLED && info->code != SAMPLED_OTHERWISE)
        return 0;
    instruct->flags |= REDIRECT_STOP;
    if (!info->rx_port) {
        instruct->reason = NO_PORT;
        return 0;
    }
    instruct->reason = SAMPLE;
    if (info->mac_multicast && info->code == SAMPLED_OTHERWISE)
        explain(info, "a sample of multicast with this trap code is not handed over", "trap code",
                info->code, SAMPLED);
    else
        instruct->flags |= REDIRECT_POST_USERSPACE;
    return 0;
}

sk_buff *_post(sk_buff *skb, const tarn_post_info *info) {
    if (tap_restore_tag(skb, info->tag) != 0)
        return skb; // alive: the chain frees it
    u32 length = skb_len(skb);
    skb = tap_make_room(skb, sizeof(_message));
    if (!skb)
        return nullptr;
    const _message message{.header = {.length = length - u32{sizeof(tap_header)}, .unused = {}},
                           .ifindex = info->rx_port->ifindex,
                           .kind = info->code != SAMPLED,
                           .length = length};
    memcpy(skb_push(skb, sizeof(message)), &message, sizeof(message));
    if (sk_buff *clone = skb_clone(skb, GFP_ATOMIC))
        tarnfwd_netlink_broadcast(clone, GROUP);
    return skb; // with the message before it: it goes no further
}

sk_buff *tarn_netlink_sflow_post_packet(sk_buff *skb, tarn_post_info *info) {
    mutex_lock(&_mutex);
    sk_buff *posted = _post(skb, info);
    mutex_unlock(&_mutex);
    return posted;
}

} // namespace

i32 tarn_netlink_sflow_sock_init() {
    mutex_init(&_mutex, "sflow_mutex");
    packet_redirect record{.name = "sflow",
                           .match = tarn_sflow_redirect_instruct_get,
                           .post = tarn_netlink_sflow_post_packet,
                           .stack_repl_type = STACK_REPL_SFLOW,
                           .concerns = FRAME_TRAP_CODE};
    i32 result = tarn_pkt_register_packet_redirection(&record, SLOT);
    if (result != 0)
        return result;
    result = tarnfwd_netlink_reserve(GROUP_MASK);
    if (result != 0)
        pr_err("Error reserving sflow netlink group\n");
    return result;
}
