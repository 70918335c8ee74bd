// Time of one frame on its way out, its making included.
#include "transmit_classes.h"

#include <benchmark/benchmark.h>

namespace {

const bool registered = [] {
    for (const auto &one : transmit_classes::all())
        benchmark::RegisterBenchmark(("transmit/" + one.name).c_str(),
                                     [one](benchmark::State &state) {
                                         transmit_classes::load();
                                         one.prepare();
                                         for (auto _ : state)
                                             one.send();
                                     });
    return true;
}();

} // namespace
