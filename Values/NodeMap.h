// Numbers filed under the identity of nodes.
#pragma once

#include "Node.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace moxel::detail {

/// An open-addressing map from nodes to numbers. Does not keep the nodes alive. One thread at a time.
class NodeMap {
  public:
    struct Place {
        uint64_t &number; ///< Valid until the next insertion.
        bool isNew;       ///< The node was not in the map; its number is 0.
    };

    Place insert(const Node *node) {
        if (2 * (count_ + 1) > slots_.size())
            grow();
        Slot &slot = slots_[slotOf(node)];
        const bool isNew = slot.node == nullptr;
        slot.node = node;
        count_ += isNew ? 1 : 0;
        return {slot.number, isNew};
    }

  private:
    struct Slot {
        const Node *node = nullptr;
        uint64_t number = 0;
    };

    /// The slot that holds the node, or the free one where it belongs.
    [[nodiscard]] size_t slotOf(const Node *node) const noexcept {
        // Multiplying by 2^64 / golden ratio spreads addresses, which differ in few bits, over the top ones.
        const uint64_t hash = reinterpret_cast<uintptr_t>(node) * uint64_t{0x9E3779B97F4A7C15};
        size_t slot = static_cast<size_t>(hash >> shift_);
        while (slots_[slot].node != nullptr && slots_[slot].node != node)
            slot = (slot + 1) & (slots_.size() - 1);
        return slot;
    }

    void grow() {
        std::vector<Slot> old(slots_.empty() ? 16 : 2 * slots_.size());
        old.swap(slots_);
        shift_ = 64 - static_cast<unsigned>(std::countr_zero(slots_.size()));
        for (const Slot &slot : old)
            if (slot.node)
                slots_[slotOf(slot.node)] = slot;
    }

    std::vector<Slot> slots_; ///< A power of two in size, at most half full.
    size_t count_ = 0;
    unsigned shift_ = 64;
};

} // namespace moxel::detail
