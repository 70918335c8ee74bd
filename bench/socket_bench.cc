// What a frame costs that is posted to daemons: with room, read between; and full, which is the
// cost of passing it over. A million frames each. It ends with 1 where a socket with room costs
// other than one clone, a full one any, or where more is alive at the end than was before.
#include "frame_classes.h"
#include "listeners.h"

#include "control.h"
#include "kernel/skb.h"

#include <benchmark/benchmark.h>
#include <cstdio>

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

bool failed = false;

void expect(bool holds, const char *otherwise) {
    if (holds)
        return;
    std::fprintf(stderr, "FAILED: %s\n", otherwise);
    failed = true;
}

constexpr u64 OF_THE_FRAME = 2; // its record and its bytes

void report(benchmark::State &state, u64 allocations, u64 clones,
            const userlevel::snapshot &before) {
    std::size_t alive = userlevel::leaked_since(before).size();
    expect(allocations == static_cast<u64>(state.iterations()) * (OF_THE_FRAME + clones),
           "not one clone for each socket with room, and none for a full one");
    expect(alive == 0, "memory has grown");
    auto frames = static_cast<double>(state.iterations());
    state.counters["allocations/frame"] = static_cast<double>(allocations) / frames;
    state.counters["alive"] = static_cast<double>(alive);
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
    report(state, made, static_cast<u64>(state.range(0)), before);
}

void post_to_full_ones(benchmark::State &state) {
    Listeners daemons = listeners(state.range(0));
    for (int i = 0; i < 1000; i++)
        deliver();
    userlevel::snapshot before = userlevel::take_snapshot();
    u64 made = userlevel::allocations_made();
    for (auto _ : state)
        deliver();
    report(state, userlevel::allocations_made() - made, 0, before);
}

BENCHMARK(post_and_read)->Arg(1)->Arg(10)->Arg(100)->Iterations(FRAMES);
BENCHMARK(post_to_full_ones)->Arg(1)->Arg(10)->Arg(100)->Iterations(FRAMES);

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return failed ? 1 : 0;
}
