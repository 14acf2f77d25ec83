// The conversion of action trees of growing size: time per action has to stay the same.
#include "Support/ActionTree.h"

#include <benchmark/benchmark.h>

namespace moxel::benchmarks {
namespace {

void convertActions(benchmark::State &state) {
    const ActionTree tree(static_cast<size_t>(state.range(0)));
    const auto converter = MxlActionInterfaceDictConvert::sharedDefaultDictionaries();
    for ([[maybe_unused]] auto iteration : state) {
        const MutableDictionary target = MutableDictionary::withCapacity(1);
        if (!converter->genCommandsDict(target, tree.root()))
            state.SkipWithError("The tree is refused");
        benchmark::DoNotOptimize(target.node());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

BENCHMARK(convertActions)
    ->RangeMultiplier(10)
    ->Range(1'000, 100'000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

} // namespace
} // namespace moxel::benchmarks
