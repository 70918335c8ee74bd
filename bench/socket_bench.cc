// What a frame costs that is posted to daemons: with room, read between; and full, which is the
// cost of passing it over. A million frames each; what is alive at the end is what was before.
#include "frame_classes.h"
#include "listeners.h"

#include "control.h"
#include "kernel/skb.h"

#include <benchmark/benchmark.h>

namespace {

constexpr i64 FRAMES = 1'000'000;

const Bytes LACPDU = frame_classes::detail::lacpdu();

Listeners listeners(i64 count) {
    static const bool loaded = (frame_classes::load(), true);
    (void)loaded;
    return {TARN_AF_LACP, static_cast<std::size_t>(count)};
}

void deliver() {
    const tarn_rx_meta meta = frame_classes::meta();
    sk_buff *skb = userlevel::frame_make(LACPDU);
    if (rxtx_hw_packet_recv(skb, 5001, 1, &meta) != 0)
        kfree_skb(skb);
}

void report(benchmark::State &state, u64 allocations, const userlevel::snapshot &before) {
    auto frames = static_cast<double>(state.iterations());
    state.counters["allocations/frame"] = static_cast<double>(allocations) / frames;
    state.counters["alive"] = static_cast<double>(userlevel::leaked_since(before).size());
    state.counters["per_socket"] =
        benchmark::Counter(frames * static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void post_and_read(benchmark::State &state) {
    Listeners daemons = listeners(state.range(0));
    userlevel::snapshot before = userlevel::take_snapshot();
    u64 made = userlevel::allocations_made();
    int waiting = 0;
    for (auto _ : state) {
        deliver();
        if (++waiting == Listeners::ROOM) {
            daemons.read_all();
            waiting = 0;
        }
    }
    made = userlevel::allocations_made() - made;
    daemons.read_all();
    report(state, made, before);
}

void post_to_full_ones(benchmark::State &state) {
    Listeners daemons = listeners(state.range(0));
    for (int i = 0; i < 1000; i++)
        deliver();
    userlevel::snapshot before = userlevel::take_snapshot();
    u64 made = userlevel::allocations_made();
    for (auto _ : state)
        deliver();
    report(state, userlevel::allocations_made() - made, before);
}

BENCHMARK(post_and_read)->Arg(1)->Arg(10)->Arg(100)->Iterations(FRAMES);
BENCHMARK(post_to_full_ones)->Arg(1)->Arg(10)->Arg(100)->Iterations(FRAMES);

} // namespace
