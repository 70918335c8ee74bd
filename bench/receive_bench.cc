// Time of one frame on the receive path, without the making of its buffer and without the daemons'
// reads; and beside it, what it takes to find out its protocol by filters (protocol_filters.h).
#include "frame_classes.h"
#include "listeners.h"
#include "protocol_filters.h"

#include "control.h"
#include "kernel/skb.h"

#include <array>
#include <benchmark/benchmark.h>

namespace {

constexpr int BATCH = Listeners::ROOM;

struct Made {
    u64 allocations = userlevel::allocations_made();
    u64 copies = userlevel::frame_blocks_made();

    void add_since(const Made &then) {
        allocations += userlevel::allocations_made() - then.allocations;
        copies += userlevel::frame_blocks_made() - then.copies;
    }
};

void offer(const std::array<sk_buff *, BATCH> &frames, u32 port, const tarn_rx_meta &meta) {
    for (sk_buff *skb : frames)
        if (rxtx_hw_packet_recv(skb, port, 1, &meta) != 0)
            kfree_skb(skb);
}

void receive(benchmark::State &state, const frame_classes::Class &one) {
    frame_classes::load();
    Listeners listeners(one.family, one.sockets);
    const tarn_rx_meta meta = frame_classes::meta();
    const u32 port = 5001 + static_cast<u32>(state.thread_index());
    std::array<sk_buff *, BATCH> frames;
    Made made{.allocations = 0, .copies = 0};
    for (auto _ : state) {
        state.PauseTiming();
        for (sk_buff *&skb : frames)
            skb = userlevel::frame_make(one.frame);
        Made before;
        state.ResumeTiming();
        offer(frames, port, meta);
        state.PauseTiming();
        made.add_since(before);
        listeners.read_all();
        state.ResumeTiming();
    }
    const auto count = static_cast<double>(state.iterations() * BATCH);
    state.SetItemsProcessed(state.iterations() * BATCH);
    state.counters["allocations"] = static_cast<double>(made.allocations) / count;
    state.counters["copies"] = static_cast<double>(made.copies) / count;
}

// Threads at once, each with a port of its own, and all that a frame takes: its buffer, too. In a
// kernel each CPU has its own, here all share the list of what is alive.
void receive_at_once(benchmark::State &state) {
    if (state.thread_index() == 0)
        frame_classes::load();
    const tarn_rx_meta meta = frame_classes::meta();
    const u32 port = 5001 + static_cast<u32>(state.thread_index());
    const Bytes bytes = Frame().ipv4({}).padded();
    for (auto _ : state) {
        sk_buff *skb = userlevel::frame_make(bytes);
        if (rxtx_hw_packet_recv(skb, port, 1, &meta) != 0)
            kfree_skb(skb);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(receive_at_once)->Name("threads/ipv4")->Threads(1)->Threads(2)->UseRealTime();

void filter(benchmark::State &state, const Bytes &frame) {
    ProtocolFilters filters;
    i64 asked = 0;
    for (auto _ : state)
        asked += filters.ask(frame);
    state.SetItemsProcessed(state.iterations());
    state.counters["asked"] = static_cast<double>(asked) / static_cast<double>(state.iterations());
}

const bool registered = [] {
    for (const auto &one : frame_classes::all()) {
        benchmark::RegisterBenchmark(("receive/" + one.name).c_str(),
                                     [one](benchmark::State &state) { receive(state, one); });
        benchmark::RegisterBenchmark(
            ("filters/" + one.name).c_str(),
            [frame = one.frame](benchmark::State &state) { filter(state, frame); });
    }
    return true;
}();

} // namespace
