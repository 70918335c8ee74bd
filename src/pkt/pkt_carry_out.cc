// What a redirect decided is carried out in one fixed order: pre-post hook, flood, replication,
// post to the IP stack, resend, post to user space, stop. The IP stack takes the frame, so whatever
// else wants it comes before.
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "kernel/percpu.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_explain.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_post.h"
#include "pkt/pkt_redirect.h"
#include "pkt/pkt_rx.h"
#include "pkt/pkt_tx.h"

namespace {

constexpr u32 KERNEL_FLAGS = REDIRECT_POST_KERNEL | REDIRECT_POST_KERNEL_PORT;

constexpr u32 RESEND_FLOOD_COS = 0;
constexpr u32 RESEND_FLOOD_QUEUE = 4;
constexpr u32 RESEND_COS = 6;
constexpr u32 RESEND_QUEUE = 6;

// A post to the IP stack consumes the frame: nobody may want it afterwards.
bool _refused(const packet_redirect *redirect, u32 flags) {
    if (!(flags & KERNEL_FLAGS))
        return false;
    if ((flags & KERNEL_FLAGS) == KERNEL_FLAGS)
        pr_crit("Post kernel (%.20s) not allowed with post kernel port\n", redirect->name);
    else if (flags & REDIRECT_POST_USERSPACE)
        pr_crit("Post kernel (%.20s) not allowed with post userspace\n", redirect->name);
    else if (flags & REDIRECT_RESEND_L2)
        pr_crit("Post kernel (%.20s) not allowed with resend l2\n", redirect->name);
    else if (!(flags & REDIRECT_STOP))
        pr_crit("Post kernel (%.20s) not allowed without stop\n", redirect->name);
    else
        return false;
    return true;
}

void _pre_post(const packet_redirect *redirect, sk_buff *skb, redirect_instruct *instruct) {
    if (redirect->pre_post_modify)
        redirect->pre_post_modify(skb, &instruct->pre_post_arg);
}

void _flood(const tarn_pkt_info *info, const redirect_instruct *instruct) {
    sk_buff *copy = skb_copy(info->skb, GFP_ATOMIC);
    if (!copy)
        return;
    const u32 *except = info->flood_except[0] == FLOOD_NO_EXCEPTION ? nullptr : info->flood_except;
    if (_tarn_flood(info->l2_port, info->rx_vid, except, copy, instruct->flood_cos,
                    instruct->flood_queue, 1, 0) != 0)
        __dev_kfree_skb_irq(copy, SKB_REASON_DROPPED);
}

bool _is_vlan_ifindex(u32 ifindex) {
    return ifindex > TARN_IF_VLAN_BASE && ifindex < TARN_IF_VLAN_BASE + TARN_VLAN_COUNT - 1;
}

// Sends a copy to the port that the frame names, or floods it. A copy that nobody took is freed.
u32 _resend_copy(const tarn_pkt_info *info, tarn_if *port, sk_buff *copy) {
    if (!port)
        return static_cast<u32>(_tarn_flood(info->l2_port, read_once(info->vlan_if->vid), nullptr,
                                            copy, RESEND_FLOOD_COS, RESEND_FLOOD_QUEUE, 1, 0));
    bool bypass = read_once(info->vlan_if->if_flags) & TARN_IF_F_VLAN_LOCAL;
    return _tarn_start_xmit(port, info->vlan_if, copy, RESEND_COS, RESEND_QUEUE, 1, bypass, false);
}

void _resend_to(const tarn_pkt_info *info, tarn_if *port) {
    sk_buff *copy = skb_copy(info->skb, GFP_ATOMIC);
    if (!copy)
        return;
    bool allowed =
        !port || tarn_ifmgr_vlan_inter_if_forwarding_allowed(info->vlan_if, info->l2_port, port);
    if (!allowed || _resend_copy(info, port, copy) != 0)
        __dev_kfree_skb_irq(copy, SKB_REASON_DROPPED);
}

void _resend(const tarn_pkt_info *info) {
    u32 ifindex = frame_port_word(info->skb);
    if (!info->vlan_if || _is_vlan_ifindex(ifindex))
        return;
    tarn_if *port = ifindex != 0 ? tarn_ifmgr_lookup_by_index(ifindex) : nullptr;
    _resend_to(info, port);
    tarn_ifmgr_if_ref_put(port);
}

void _post_userspace(const packet_redirect *redirect, tarn_pkt_info *info, u32 flags) {
    tarn_post_info post{
        .rx_port = info->rx_port,
        .vlan_if = info->vlan_if,
        .l2_ifindex = info->l2_ifindex,
        .rx_vid = info->rx_vid,
        .vid = info->vid,
        .flood_except = {info->flood_except[0], info->flood_except[1]},
        .code = info->code,
        .tag = info->tag,
        .ipv6_next_header = info->ipv6_next_header,
        .ip_proto = info->ip_proto,
        .flags = info->flags,
        .extra = info->extra,
    };
    u32 length = skb_len(info->skb);
    sk_buff *posted = redirect->post(info->skb, &post);
    if (!posted) {
        pr_crit("Reallocation of skb has failed for protocol %.20s\n", redirect->name);
        return;
    }
    if (!(flags & REDIRECT_STOP) && skb_len(posted) != length)
        pr_crit("Protocol %.20s changed length of data in skb\n", redirect->name);
    info->skb = posted;
}

// What has to be done before the IP stack may take the frame.
void _copies(packet_redirect *redirect, tarn_pkt_info *info, redirect_instruct *instruct) {
    if (instruct->pre_post_arg)
        _pre_post(redirect, info->skb, instruct);
    if (instruct->flags & REDIRECT_FLOOD_L2) {
        _flood(info, instruct);
        this_cpu_inc(&redirect->counts->flood_l2);
    }
    if (instruct->flags & REDIRECT_STACK_REPLICATE) {
        tarn_pkt_stack_replicate(info->skb, info->rx_port, info->rx_vid, info->tag, info->code,
                                 info->flags, info->extra, redirect->stack_repl_type,
                                 &info->replicated);
        this_cpu_inc(&redirect->counts->stack_rep);
    }
}

// The result of a post to the IP stack, 0 without one.
u32 _actions(packet_redirect *redirect, tarn_pkt_info *info, redirect_instruct *instruct) {
    _copies(redirect, info, instruct);

    if (instruct->flags & REDIRECT_POST_KERNEL) {
        u32 result = tarn_pkt_post_to_kernel(info->rx_port, info->l2_port, info->l3_if, info->skb,
                                             info->rx_vid);
        this_cpu_inc(&redirect->counts->kernel);
        return result;
    }
    if (instruct->flags & REDIRECT_POST_KERNEL_PORT) {
        u32 result = tarn_pkt_post_to_kernel(info->rx_port, info->l2_port, info->rx_port, info->skb,
                                             info->rx_vid);
        this_cpu_inc(&redirect->counts->kernel_port);
        return result;
    }
    if (instruct->flags & REDIRECT_RESEND_L2) {
        _resend(info);
        this_cpu_inc(&redirect->counts->resend_l2);
    }
    if (instruct->flags & REDIRECT_POST_USERSPACE) {
        _post_userspace(redirect, info, instruct->flags);
        this_cpu_inc(&redirect->counts->userspace);
    }
    return 0;
}

void _stop(packet_redirect *redirect, tarn_pkt_info *info, const redirect_instruct *instruct) {
    if (!(instruct->flags & KERNEL_FLAGS))
        __dev_kfree_skb_irq(info->skb, SKB_REASON_DROPPED);
    u32 reason = static_cast<u8>(instruct->reason);
    if (reason >= REDIRECT_REASONS) [[unlikely]] {
        pr_crit("Reason code too high %d\n", static_cast<i32>(reason));
        reason = STOP_REASON_TOO_HIGH;
    }
    this_cpu_inc(&redirect->counts->ended[pkt_frame_row(info->facts)][reason]);
}

// Refused: an instruct that does not stop is forgotten; one that does leaves the frame with the
// driver.
bool _end_refused(const packet_redirect *redirect, const tarn_pkt_info *info,
                  redirect_instruct *instruct) {
    if (instruct->pre_post_arg)
        _pre_post(redirect, nullptr, instruct);
    bool stops = instruct->flags & REDIRECT_STOP;
    if (stops)
        this_cpu_inc(&redirect->counts->ended[pkt_frame_row(info->facts)][STOP_REFUSED]);
    *instruct = {};
    return stops;
}

} // namespace

bool tarn_pkt_carry_out(packet_redirect *redirect, tarn_pkt_info *info, redirect_instruct *instruct,
                        u32 *result) {
    if (_refused(redirect, instruct->flags)) {
        if (info->why)
            pkt_explain_end(info, "refused: what was asked for cannot be done together");
        *result = 1;
        return _end_refused(redirect, info, instruct);
    }
    *result = _actions(redirect, info, instruct);
    if (instruct->flags & REDIRECT_STOP) {
        _stop(redirect, info, instruct);
        return true;
    }
    *instruct = {};
    return false;
}
