// The chain of redirects. Those that could want the frame are asked in turn and only decide; what
// they decided is carried out elsewhere (pkt_carry_out.cc).
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/percpu.h"
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_cpu.h"
#include "pkt/pkt_explain.h"
#include "pkt/pkt_rx.h"

namespace {

// One text for frames that are watched and for all others, who pay nothing for it.
template <bool Watched>
u32 _walk(tarn_pkt_info *info) {
    sk_buff *const given = info->skb;
    redirect_instruct instruct{};
    info->order = process_packet_rxs.data();
    info->result = 0;

    for (u64 left = pkt_candidates(info->facts); left != 0; left &= left - 1) {
        const u32 place = static_cast<u32>(__builtin_ctzll(left));
        const u8 slot = process_packet_rxs[place];
        packet_redirect *redirect = packet_redirects[slot];
        redirect->match(info, &instruct);
        if constexpr (Watched)
            pkt_explain_decision(info, slot, &instruct);
        u32 result;
        if (instruct.flags == 0 || !tarn_pkt_carry_out(redirect, info, &instruct, &result))
            continue;
        tarn_ifmgr_if_ref_put(info->vlan_if);
        return result;
    }

    if (pkt_cpu) [[likely]] // else there is nobody to ask
        this_cpu_inc(&pkt_cpu->passed[pkt_frame_row(info->facts)]);
    if constexpr (Watched)
        pkt_explain_end(info, "nobody stopped it");
    // The frame as the driver handed it in, on purpose: a post that does not stop never replaces
    // it.
    __dev_kfree_skb_irq(given, SKB_REASON_DROPPED);
    tarn_ifmgr_if_ref_put(info->vlan_if);
    return info->result;
}

} // namespace

u32 tarn_pkt_chain(tarn_pkt_info *info) {
    if (!trace_redirect_wanted()) [[likely]]
        return _walk<false>(info);
    redirect_why why{};
    info->why = &why;
    return _walk<true>(info);
}
