// Lookups in the database of interfaces, by how many there are.
#include "frame_classes.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_create.h"

#include <benchmark/benchmark.h>

namespace {

constexpr u32 FIRST = 100000; // beyond the ports and VLANs of the switch

// Records without a device.
void install_up_to(u32 count) {
    static u32 installed = 0;
    for (; installed < count; installed++) {
        tarn_if *record = _tarn_ifmgr_if_alloc();
        record->ifindex = FIRST + installed;
        record->type = TARN_IF_TYPE_SWITCHPORT;
        tarn_if *out = nullptr;
        if (_tarn_ifmgr_if_install(record, &out, true) != 0)
            std::abort();
    }
}

void lookup(benchmark::State &state) {
    frame_classes::load();
    const auto count = static_cast<u32>(state.range(0));
    install_up_to(count);
    u32 n = 0;
    for (auto _ : state) {
        tarn_if *found = tarn_ifmgr_lookup_by_index(FIRST + n * 7919 % count);
        benchmark::DoNotOptimize(found);
        tarn_ifmgr_if_ref_put(found);
        n = n + 1 == count ? 0 : n + 1;
    }
}

BENCHMARK(lookup)->Name("lookup/interfaces")->RangeMultiplier(10)->Range(10, 100000);

} // namespace
