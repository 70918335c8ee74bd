// Lookups in the tree and in the skip list, by the number of entries.
#include "containers/tarn_avl.h"
#include "containers/tarn_skip_list.h"

#include <benchmark/benchmark.h>
#include <vector>

namespace {

int compare(const void *left, const void *right) {
    u32 a = *static_cast<const u32 *>(left);
    u32 b = *static_cast<const u32 *>(right);
    return a < b ? -1 : a > b;
}

std::vector<u32> shuffled(u32 count) {
    std::vector<u32> keys(count);
    for (u32 i = 0; i < count; i++)
        keys[i] = static_cast<u32>(u64{i} * 7919 % count);
    return keys;
}

void tree_lookup(benchmark::State &state) {
    static const bool started = (tarn_avl_cache_init(), true);
    (void)started;
    auto keys = shuffled(static_cast<u32>(state.range(0)));
    tarn_avl_tree *tree = nullptr;
    tarn_avl_create(&tree, 0, compare);
    for (u32 &key : keys)
        tarn_avl_insert(tree, &key);
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tarn_avl_lookup(tree, &keys[at]));
        at = at + 1 == keys.size() ? 0 : at + 1;
    }
    tarn_avl_tree_free(&tree, nullptr);
}

void skip_list_search(benchmark::State &state) {
    auto keys = shuffled(static_cast<u32>(state.range(0)));
    tarn_skip_list *list = nullptr;
    tarn_init_skip_list(&list, compare, static_cast<i32>(state.range(0)));
    for (u32 &key : keys)
        tarn_add_skip_node(list, &key);
    std::size_t at = 0;
    for (auto _ : state) {
        void *found = nullptr;
        benchmark::DoNotOptimize(tarn_search_skip_list(list, &keys[at], TARN_SKIP_EQUAL, &found));
        at = at + 1 == keys.size() ? 0 : at + 1;
    }
    tarn_flush_skip_list(list, false);
}

BENCHMARK(tree_lookup)->RangeMultiplier(10)->Range(100, 100000);
BENCHMARK(skip_list_search)->RangeMultiplier(10)->Range(100, 100000);

} // namespace
