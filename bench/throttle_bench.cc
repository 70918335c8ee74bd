// Time of one frame in the throttles, with more and more flows: it must not grow.
#include "control.h"
#include "kernel/skb.h"
#include "redirects/redirects.h"
#include "redirects/throttle.h"
#include "support/frame_builder.h"

#include <benchmark/benchmark.h>
#include <cstring>

namespace {

tarn_pkt_info udp(sk_buff *skb, u32 ethertype) {
    tarn_pkt_info info{};
    info.skb = skb;
    info.ethertype = ethertype;
    info.ttl = info.hop_limit = 1;
    info.ip_proto = info.ipv6_next_header = 17;
    return info;
}

template <typename Ask>
void flows(benchmark::State &state, u32 ethertype, Ask ask) {
    const auto count = static_cast<u32>(state.range(0));
    sk_buff *skb = userlevel::frame_make(Frame().padded().build());
    tarn_pkt_info info = udp(skb, ethertype);
    tarn_update_mcast_limits(1000);
    u64 before = userlevel::allocations_made();
    u32 n = 0, jiffies = 1000000;
    for (auto _ : state) {
        u32 source = n * 2654435761u;
        std::memcpy(info.src_ip, &source, sizeof(source));
        userlevel::clock_stop(jiffies++); // so that there is always a token
        benchmark::DoNotOptimize(ask(info));
        n = n + 1 == count ? 0 : n + 1;
    }
    state.counters["allocations"] = static_cast<double>(userlevel::allocations_made() - before);
    kfree_skb(skb);
}

void unicast_ipv4(benchmark::State &state) {
    flows(state, 0x0800, [](tarn_pkt_info &info) { return tarn_ucdrop_throttle_ok(&info); });
}
void unicast_ipv6(benchmark::State &state) {
    flows(state, 0x86DD, [](tarn_pkt_info &info) { return tarn_ucdrop_throttle_ok(&info); });
}
void multicast_ipv4(benchmark::State &state) {
    flows(state, 0x0800, [](tarn_pkt_info &info) { return tarn_throttle_ipv4_unreg_mc(&info); });
}
void multicast_ipv6(benchmark::State &state) {
    flows(state, 0x86DD,
          [](tarn_pkt_info &info) { return tarn_throttle_ipv6_unreg_mc(&info, true); });
}

BENCHMARK(unicast_ipv4)->Name("throttle/unicast-ipv4")->RangeMultiplier(1000)->Range(1, 1000000);
BENCHMARK(unicast_ipv6)->Name("throttle/unicast-ipv6")->RangeMultiplier(1000)->Range(1, 1000000);
BENCHMARK(multicast_ipv4)
    ->Name("throttle/multicast-ipv4")
    ->RangeMultiplier(1000)
    ->Range(1, 1000000);
BENCHMARK(multicast_ipv6)
    ->Name("throttle/multicast-ipv6")
    ->RangeMultiplier(1000)
    ->Range(1, 1000000);

} // namespace
