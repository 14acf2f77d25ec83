// The conversion of action trees of growing size: time per action has to stay the same.
#include <Moxel/MxlActionInterfaceDictConvert.h>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace moxel {
namespace {

/// One action set whose categories hold a hundred actions each.
class ActionTree {
  public:
    explicit ActionTree(size_t actions) {
        MoxelCommandSyncNode_s *category = nullptr;
        for (size_t i = 0; i < actions; ++i) {
            if (i % 100 == 0)
                category = addChild(set_, kMoxelNodeActionCategory, "category " + std::to_string(i));
            addChild(*category, kMoxelNodeAction, "action " + std::to_string(i));
        }
    }

    [[nodiscard]] const MoxelCommandSyncNode_s *root() const { return &set_; }

  private:
    /// In front of the other children.
    MoxelCommandSyncNode_s *addChild(MoxelCommandSyncNode_s &parent, int32_t type, const std::string &id) {
        const char *text = texts_.emplace_back(id).c_str();
        nodes_.push_back({0, type, parent.children, nullptr, text, text, "What the tool tip says"});
        return parent.children = &nodes_.back();
    }

    MoxelCommandSyncNode_s set_{0, kMoxelNodeActionSet, nullptr, nullptr, "set", "Set", nullptr};
    std::deque<MoxelCommandSyncNode_s> nodes_; // The addresses of its members do not change.
    std::deque<std::string> texts_;
};

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
} // namespace moxel
