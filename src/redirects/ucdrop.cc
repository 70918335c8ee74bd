// The unicast throttle. Its limits are fixed, and it cannot be switched off.
#include "kernel/time.h"
#include "pkt/fragment.h"
#include "pkt/pkt_explain.h"
#include "redirects/flow_table.h"
#include "redirects/throttle.h"

namespace {

constexpr u32 BUCKET = 100;   // tokens; one comes with each jiffy
constexpr u32 FLOW_GAP = 100; // jiffies between two frames of a flow
constexpr u8 UDP = 17;

struct alignas(u32) tarn_ucdrop_entry {
    u8 dst_mac[ETH_ALEN];
    u8 src_mac[ETH_ALEN];
    u8 src_ip[16];
    u8 dst_ip[16];
    u32 rx_vid;
    u32 code;
    u32 ethertype;
    u32 last_sent; // jiffies
};

struct tarn_ucdrop_control {
    tarn_ucdrop_entry entries[FLOW_SLOTS];
    u32 tokens;
    u32 last_update; // jiffies
};

constinit tarn_ucdrop_control unicast_v4_control{.entries = {}, .tokens = BUCKET, .last_update = 0};
constinit tarn_ucdrop_control unicast_v6_control{.entries = {}, .tokens = BUCKET, .last_update = 0};

bool _is_expired_ipv4_udp(const tarn_pkt_info *info) {
    return info->ethertype == ETH_P_IP && info->ttl <= 1 && !is_ipv4_fragment(info) &&
           info->ip_proto == UDP;
}

bool _is_expired_ipv6_udp(const tarn_pkt_info *info) {
    return info->ethertype == ETH_P_IPV6 && info->hop_limit <= 1 && info->ipv6_next_header == UDP;
}

// The tokens that there are now.
u32 _refill(tarn_ucdrop_control &control, u32 now) {
    u32 tokens = read_once(control.tokens) + (now - read_once(control.last_update));
    write_once(control.last_update, now);
    if (tokens > BUCKET)
        tokens = BUCKET;
    write_once(control.tokens, tokens);
    return tokens;
}

bool _is_flow(const tarn_ucdrop_entry &entry, const tarn_pkt_info *info, const flow_macs &macs,
              u32 address_bytes) {
    return read_once(entry.ethertype) == info->ethertype &&
           flow_is(entry, info, macs, address_bytes);
}

bool _may_pass(tarn_ucdrop_control &control, tarn_ucdrop_entry &entry, const tarn_pkt_info *info,
               const flow_macs &macs, u32 address_bytes) {
    const u32 now = static_cast<u32>(get_jiffies());
    const u32 tokens = _refill(control, now);
    if (tokens == 0) {
        explain(info, "throttle: no token is left", "tokens", tokens, BUCKET);
        return false;
    }
    if (_is_flow(entry, info, macs, address_bytes)) {
        u32 since = now - read_once(entry.last_sent);
        if (since < FLOW_GAP) {
            explain(info, "throttle: the flow passed a moment ago", "jiffies since then", since,
                    FLOW_GAP);
            return false;
        }
    } else {
        flow_take_over(entry, info, macs, address_bytes);
        write_once(entry.ethertype, info->ethertype);
    }
    write_once(entry.last_sent, now);
    write_once(control.tokens, tokens - 1);
    explain(info, "throttle: it may pass", "tokens left", tokens - 1, BUCKET);
    return true;
}

} // namespace

bool tarn_ucdrop_throttle_ok(const tarn_pkt_info *info) {
    if (_is_expired_ipv4_udp(info)) {
        flow_macs macs(info->skb);
        tarn_ucdrop_entry &entry = unicast_v4_control.entries[flow_slot_ipv4(info, macs)];
        return _may_pass(unicast_v4_control, entry, info, macs, FLOW_IPV4_BYTES);
    }
    if (_is_expired_ipv6_udp(info)) {
        flow_macs macs(info->skb);
        tarn_ucdrop_entry &entry = unicast_v6_control.entries[flow_slot_ipv6(info, macs)];
        return _may_pass(unicast_v6_control, entry, info, macs, FLOW_IPV6_BYTES);
    }
    return true;
}
