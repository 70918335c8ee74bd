// The throttle of unregistered multicast. Its rate is set by the control daemon, for both families.
#include "kernel/time.h"
#include "pkt/fragment.h"
#include "pkt/pkt_explain.h"
#include "redirects/flow_table.h"
#include "redirects/redirects.h"
#include "redirects/throttle.h"

namespace {

constexpr u8 UDP = 17;
constexpr u32 SECOND = 100; // jiffies

struct alignas(u32) tarn_mc_entry {
    u8 dst_mac[ETH_ALEN];
    u8 src_mac[ETH_ALEN];
    u8 src_ip[16];
    u8 dst_ip[16];
    u32 code;
    u32 rx_vid;
    u32 last_sent; // jiffies
};

enum _family : u32 {
    IPV4 = 2,
    IPV6 = 10,
};

constinit u32 mc_limit = 10; // of the bucket, in tokens; 0: no throttle
constinit u32 mc_refill_interval = 10;
// Before the first setting a flow may pass every 20 jiffies, after any other than 0 every 50, on
// purpose.
constinit u32 mc_flow_gap = 20;
constexpr u32 FLOW_GAP_ONCE_SET = 50;

constinit u32 mc_tokens_v4 = 10;
constinit u32 mc_tokens_v6 = 10;
// The time of the last refill, less what its division left over.
constinit u32 mc_last_refill_v4 = 0;
constinit u32 mc_last_refill_v6 = 0;

// The tokens that there are now.
u32 _refill(u32 &tokens, u32 &last_refill, u32 limit, u32 now) {
    u32 since = now - read_once(last_refill);
    u32 interval = read_once(mc_refill_interval);
    u32 there = read_once(tokens) + since / interval;
    write_once(last_refill, now - since % interval);
    if (there > limit)
        there = limit;
    write_once(tokens, there);
    return there;
}

bool _tarn_mc_throttle_ok(const tarn_pkt_info *info, tarn_mc_entry &entry, const flow_macs &macs,
                          _family family, u32 &tokens, u32 &last_refill) {
    const u32 limit = read_once(mc_limit);
    if (limit == 0)
        return true;
    const u32 now = static_cast<u32>(get_jiffies());
    const u32 there = _refill(tokens, last_refill, limit, now);
    if (there == 0) {
        explain(info, "throttle: no token is left", "tokens", there, limit);
        return false;
    }
    const u32 address_bytes = family == IPV4 ? FLOW_IPV4_BYTES : FLOW_IPV6_BYTES;
    if (flow_is(entry, info, macs, address_bytes)) {
        u32 since = now - read_once(entry.last_sent);
        u32 gap = read_once(mc_flow_gap);
        if (since < gap) {
            explain(info, "throttle: the flow passed a moment ago", "jiffies since then", since,
                    gap);
            return false;
        }
    } else {
        flow_take_over(entry, info, macs, address_bytes);
    }
    write_once(entry.last_sent, now);
    write_once(tokens, there - 1);
    explain(info, "throttle: it may pass", "tokens left", there - 1, limit);
    return true;
}

// DHCPv6 (RFC 8415) and link-local multicast name resolution (RFC 4795).
bool _is_never_held_back(const tarn_pkt_info *info) {
    if (info->ipv6_next_header != UDP)
        return false;
    u16 port = be16_to_cpu(info->udp_dport);
    return port == 546 || port == 547 || port == 5355;
}

} // namespace

bool tarn_throttle_ipv4_unreg_mc(const tarn_pkt_info *info) {
    static constinit tarn_mc_entry last_mc[FLOW_SLOTS] = {};
    if (is_ipv4_fragment(info))
        return false;
    flow_macs macs(info->skb);
    return !_tarn_mc_throttle_ok(info, last_mc[flow_slot_ipv4(info, macs)], macs, IPV4,
                                 mc_tokens_v4, mc_last_refill_v4);
}

// Fragments are not asked for here.
bool tarn_throttle_ipv6_unreg_mc(const tarn_pkt_info *info, bool snooping) {
    static constinit tarn_mc_entry last_mc[FLOW_SLOTS] = {};
    if (!snooping && _is_never_held_back(info))
        return false;
    flow_macs macs(info->skb);
    return !_tarn_mc_throttle_ok(info, last_mc[flow_slot_ipv6(info, macs)], macs, IPV6,
                                 mc_tokens_v6, mc_last_refill_v6);
}

// The limit is a number of frames a second. Above 100 the buckets still fill once a jiffy, and the
// limit is their size alone. What they hold is cut down by the next frame.
void tarn_update_mcast_limits(u32 limit) {
    write_once(mc_limit, limit);
    if (limit == 0)
        return;
    write_once(mc_refill_interval, limit >= SECOND ? 1 : (limit + SECOND - 1) / limit);
    write_once(mc_flow_gap, FLOW_GAP_ONCE_SET);
}
