#include "pkt/pkt_explain.h"

#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"

namespace {

redirect_event _event_of(const sk_buff *skb, const tarn_if *port, u32 vid) {
    frame_bytes frame(skb);
    redirect_event event{.frame = skb,
                         .port = port ? port->name : nullptr,
                         .ifindex = port ? port->ifindex : 0,
                         .vid = vid,
                         .ethertype = frame.inner_type(),
                         .length = frame.length,
                         .destination = {},
                         .source = {},
                         .redirect = nullptr,
                         .slot = 0,
                         .flags = 0,
                         .reason = 0,
                         .rule = nullptr,
                         .number = nullptr,
                         .measured = 0,
                         .limit = 0};
    frame.copy(ETH_DST_OFFSET, event.destination, ETH_ALEN);
    frame.copy(ETH_SRC_OFFSET, event.source, ETH_ALEN);
    return event;
}

} // namespace

void pkt_explain_decision(const tarn_pkt_info *info, u32 slot, const redirect_instruct *instruct) {
    redirect_why why = *info->why;
    *info->why = {};
    if (instruct->flags == 0 && !why.rule)
        return;
    redirect_event event = _event_of(info->skb, info->rx_port, info->vid);
    event.redirect = packet_redirects[slot]->name;
    event.slot = slot;
    event.flags = instruct->flags;
    event.reason = instruct->reason;
    event.rule = why.rule;
    event.number = why.number;
    event.measured = why.measured;
    event.limit = why.limit;
    trace_redirect(&event);
}

void pkt_explain_end(const tarn_pkt_info *info, const char *rule) {
    redirect_event event = _event_of(info->skb, info->rx_port, info->vid);
    event.rule = rule;
    trace_redirect(&event);
}

void pkt_explain_unclassified(const sk_buff *skb, const tarn_if *port, u32 vid, const char *rule) {
    if (!trace_redirect_wanted()) [[likely]]
        return;
    redirect_event event = _event_of(skb, port, vid);
    event.rule = rule;
    trace_redirect(&event);
}
