// Numbers filed under integers.
#pragma once

#include "SipHash.h"

#include <cstdint>
#include <vector>

namespace moxel::detail {

/// An open-addressing map that takes constant time whatever integers a hostile peer has chosen. One thread at
/// a time.
class IntegerMap {
  public:
    /// The number under an integer, which is 0 until it is set. Valid until the next call.
    uint64_t &operator[](uint64_t integer) {
        if (2 * (count_ + 1) > slots_.size())
            grow();
        Slot &slot = slots_[slotOf(integer)];
        count_ += slot.isUsed ? 0 : 1;
        slot.isUsed = true;
        slot.integer = integer;
        return slot.number;
    }

  private:
    struct Slot {
        uint64_t integer = 0;
        uint64_t number = 0;
        bool isUsed = false;
    };

    /// The slot that holds the integer, or the free one where it belongs.
    [[nodiscard]] size_t slotOf(uint64_t integer) const noexcept {
        const std::string_view bytes(reinterpret_cast<const char *>(&integer), sizeof integer);
        const size_t mask = slots_.size() - 1;
        size_t slot = sipHash13(bytes, key_) & mask;
        while (slots_[slot].isUsed && slots_[slot].integer != integer)
            slot = (slot + 1) & mask;
        return slot;
    }

    void grow() {
        std::vector<Slot> old(slots_.empty() ? 16 : 2 * slots_.size());
        old.swap(slots_);
        for (const Slot &slot : old)
            if (slot.isUsed)
                slots_[slotOf(slot.integer)] = slot;
    }

    const SipHashKey key_ = SipHashKey::ofProcess();
    std::vector<Slot> slots_; ///< A power of two in size, at most half full.
    size_t count_ = 0;
};

} // namespace moxel::detail
