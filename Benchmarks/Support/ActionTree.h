// Trees of actions as applications export them.
#pragma once

#include <Moxel/MxlActionInterfaceDictConvert.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace moxel::benchmarks {

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

    /// As it stands in an exported file.
    [[nodiscard]] MutableDictionary dictionary() const {
        MutableDictionary target = MutableDictionary::withCapacity(1);
        (void)MxlActionInterfaceDictConvert::sharedDefaultDictionaries()->genCommandsDict(target, root());
        return target;
    }

  private:
    /// In front of the other children.
    MoxelCommandSyncNode_s *addChild(MoxelCommandSyncNode_s &parent, int32_t type, const std::string &id) {
        const char *identifier = texts_.emplace_back(id).c_str();
        const char *label = texts_.emplace_back("Label of " + id).c_str();
        nodes_.push_back({0, type, parent.children, nullptr, identifier, label, "What the tool tip says"});
        return parent.children = &nodes_.back();
    }

    MoxelCommandSyncNode_s set_{0, kMoxelNodeActionSet, nullptr, nullptr, "set", "Set", nullptr};
    std::deque<MoxelCommandSyncNode_s> nodes_; // The addresses of its members do not change.
    std::deque<std::string> texts_;
};

} // namespace moxel::benchmarks
