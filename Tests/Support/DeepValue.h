// Values that try the limits of walks: deep ones, and ones whose shared parts expand without measure.
#pragma once

#include "Values/Value.h"

namespace moxel::test {

// Dictionary{} would be null.
inline Dictionary emptyDictionary() { return Dictionary(std::vector<Dictionary::Entry>()); }

/// Arrays within each other.
inline Value nestedArrays(size_t depth) {
    Value value = Array::of();
    for (size_t i = 1; i < depth; ++i)
        value = Array{value};
    return value;
}

/// Dictionaries within each other, each under the key "a".
inline Value nestedDictionaries(size_t depth) {
    Value value = emptyDictionary();
    for (size_t i = 1; i < depth; ++i)
        value = Dictionary{{"a", value}};
    return value;
}

/// Arrays each of which holds the next one twice: 2^levels leaves when they are expanded.
inline Value doublingArrays(size_t levels, Value leaf = "leaf") {
    Value value = std::move(leaf);
    for (size_t i = 0; i < levels; ++i)
        value = Array{value, value};
    return value;
}

/// The same of dictionaries.
inline Value doublingDictionaries(size_t levels) {
    Value value = "leaf";
    for (size_t i = 0; i < levels; ++i)
        value = Dictionary{{"a", value}, {"b", value}};
    return value;
}

/// A mutable array whose only member is itself, freed of it at the end of its life.
class SelfHoldingArray {
  public:
    SelfHoldingArray() : array_(MutableArray::withCapacity(1)) { array_.append(array_); }
    ~SelfHoldingArray() { array_.clear(); }
    SelfHoldingArray(const SelfHoldingArray &) = delete;
    SelfHoldingArray &operator=(const SelfHoldingArray &) = delete;

    [[nodiscard]] Value value() const { return array_; }

  private:
    MutableArray array_;
};

} // namespace moxel::test
