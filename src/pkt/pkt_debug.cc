#include "pkt/pkt_debug.h"

#include "kernel/bytes.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "pkt/frame.h"

constinit u32 tarn_pkt_debug = 0;
constinit u32 tarn_pkt_debug_vlan = 0;
constinit u16 tarn_pkt_debug_cnt = 0;
constinit ratelimit_state tarn_pkt_debug_ratelimit{};
constinit u32 tarn_packet_post_debug_enable = 0;
constinit tarn_ppdi tarn_ppdi_last{};

namespace {

constexpr int INTERVAL = 500; // jiffies
constexpr int BURST = 100;

constexpr u32 DUMP_BYTES = 64;
constexpr u32 GROUP = 4;
constexpr u32 GROUPS_A_LINE = 4;

bool _wanted(u32 direction, u32 vid) {
    u32 only = read_once(tarn_pkt_debug_vlan);
    return (read_once(tarn_pkt_debug) & direction) && (only == 0 || only == vid);
}

// The count of lines kept back is read outside the limiter's lock and may be off when two CPUs
// race: it is a log.
bool _may_print(const char *caller) {
    int missed = ratelimit_missed(&tarn_pkt_debug_ratelimit);
    if (!___ratelimit(&tarn_pkt_debug_ratelimit, caller))
        return false;
    if (missed != 0)
        pr_info("Packet debug rate limit skipped %d messages\n", missed);
    return true;
}

int _next_number() {
    return count_in(tarn_pkt_debug_cnt, 1);
}

char *_new_dump(gfp_t flags) {
    auto *text = static_cast<char *>(__kmalloc(TARN_LOG_DUMP_SIZE, flags));
    if (text)
        text[0] = '\0';
    return text;
}

void _log_rx(const tarn_if *ifp, const sk_buff *skb, u32 vid, const tarn_rx_meta *meta,
             char *text) {
    if (!_wanted(TARN_PKT_DEBUG_RX, vid) || !_may_print("tarn_pkt_debug_rx"))
        return;
    pr_info("RxPkt(%05d) Q:%u vid:%d %.16s cpuC:%u len:%u%s\n\t%s\n", _next_number(), meta->queue,
            static_cast<i32>(vid), ifp->name, meta->cpu_code, skb_len(skb),
            meta->replicated ? " (replicated)" : "", tarn_log_skb_to_str(skb, text));
}

void _log_tx(const char *port_name, const char *vlan_name, u32 vid, const sk_buff *skb, u32 queue,
             bool except, char *text) {
    if (!_wanted(TARN_PKT_DEBUG_TX, vid) || !_may_print("_tarn_pkt_debug_tx"))
        return;
    pr_info("TxPkt(%05d) Q:%u %.16s %s%.16s len:%u\n\t%s\n", _next_number(), queue, vlan_name,
            except ? "except " : "", port_name, skb_len(skb), tarn_log_skb_to_str(skb, text));
}

} // namespace

void tarn_pkt_debug_init() {
    ratelimit_state_init(&tarn_pkt_debug_ratelimit, INTERVAL, BURST);
}

char *tarn_log_skb_to_str(const sk_buff *skb, char *buffer) {
    frame_bytes frame(skb);
    u32 length = frame.length < DUMP_BYTES ? frame.length : DUMP_BYTES;
    char *at = buffer;
    char *end = buffer + TARN_LOG_DUMP_SIZE;

    u32 offset = 0;
    while (offset < length) {
        // A group is written whole; what it has past the end of the frame reads 00.
        at += snprintf(at, end - at, "%02x%02x%02x%02x ", frame.byte(offset),
                       frame.byte(offset + 1), frame.byte(offset + 2), frame.byte(offset + 3));
        offset += GROUP;
        if (offset % (GROUP * GROUPS_A_LINE) == 0 && offset < length)
            at += snprintf(at, end - at, "\n\t");
    }
    // Behind the last group, not in place of its surplus: kept, frames are long enough for it.
    if (frame.length < DUMP_BYTES)
        for (u32 rest = frame.length % GROUP; rest > 0; rest--)
            at += snprintf(at, end - at, "%02x", frame.byte(offset++));
    if (frame.length > DUMP_BYTES)
        snprintf(at, end - at, "\n\t(...)");
    return buffer;
}

void tarn_pkt_debug_rx(const tarn_if *ifp, const sk_buff *skb, u32 vid, const tarn_rx_meta *meta) {
    char *text = _new_dump(GFP_KERNEL);
    if (!text)
        return;
    _log_rx(ifp, skb, vid, meta, text);
    kfree(text);
}

void _tarn_pkt_debug_tx(const char *port_name, const char *vlan_name, u32 vid, const sk_buff *skb,
                        u32 queue, bool except) {
    char *text = _new_dump(gfp_here());
    if (!text)
        return;
    _log_tx(port_name, vlan_name, vid, skb, queue, except, text);
    kfree(text);
}

void tarn_pkt_debug_tx(const tarn_if *port, const tarn_if *vlan_if, const sk_buff *skb, u32 queue,
                       bool except) {
    u32 vid = vlan_if && vlan_if->type == TARN_IF_TYPE_VLAN ? vlan_if->vid : 0;
    _tarn_pkt_debug_tx(port ? port->name : "portUnknown", vlan_if ? vlan_if->name : "vid:0", vid,
                       skb, queue, except);
}
