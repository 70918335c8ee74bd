// Time of one frame on the receive path, without the making of its buffer.
#include "frame_classes.h"

#include "kernel/skb.h"

#include <benchmark/benchmark.h>

namespace {

void receive(benchmark::State &state, const Bytes &bytes) {
    static const bool loaded = (frame_classes::load(), true);
    (void)loaded;
    constexpr int BATCH = 64;
    const tarn_rx_meta meta = frame_classes::meta();
    std::array<sk_buff *, BATCH> frames;
    u64 allocations = 0;
    for (auto _ : state) {
        state.PauseTiming();
        for (sk_buff *&skb : frames)
            skb = userlevel::frame_make(bytes);
        u64 before = userlevel::allocations_made();
        state.ResumeTiming();
        for (sk_buff *skb : frames)
            if (rxtx_hw_packet_recv(skb, 5001, 1, &meta) != 0)
                kfree_skb(skb);
        state.PauseTiming();
        allocations += userlevel::allocations_made() - before;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * BATCH);
    state.counters["allocations/frame"] =
        static_cast<double>(allocations) / static_cast<double>(state.iterations() * BATCH);
}

const bool registered = [] {
    for (const auto &one : frame_classes::all())
        benchmark::RegisterBenchmark(
            ("receive/" + one.name).c_str(),
            [frame = one.frame](benchmark::State &state) { receive(state, frame); });
    return true;
}();

} // namespace
