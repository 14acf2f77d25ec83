// The heap forms of arrays and dictionaries.
#pragma once

#include "Value.h"

#include <vector>

namespace moxel::detail {

class ArrayNode final : public Node {
  public:
    explicit ArrayNode(std::vector<Value> content, bool isMutable = false) noexcept
        : Node(Kind::array, isMutable), values(std::move(content)) {}

    std::vector<Value> values;
};

/// Entries in the order in which their keys came, found by a hash index once there are more than a few.
class DictionaryNode final : public Node {
  public:
    using Entry = Dictionary::Entry;

    explicit DictionaryNode(bool isMutable = false) noexcept : Node(Kind::dictionary, isMutable) {}
    /// A later entry replaces an earlier one of the same key; entries without a key are dropped.
    explicit DictionaryNode(std::vector<Entry> entries, bool isMutable = false);

    [[nodiscard]] const std::vector<Entry> &entries() const noexcept { return entries_; }
    /// Null when there is none.
    [[nodiscard]] const Entry *find(std::string_view key) const noexcept;

    void reserve(size_t count);
    void set(String key, Value value);
    void remove(std::string_view key);
    void clear() noexcept;

  private:
    /// A place of the open-addressing index.
    struct Slot {
        uint32_t hash = 0;
        uint32_t position = 0; ///< Of the entry, counted from 1; 0 when the place is free.
    };

    static constexpr size_t linearSearchLimit = 8;

    [[nodiscard]] size_t slotOf(std::string_view key, uint32_t hash) const noexcept;
    void growIndex(size_t count);
    void freeSlot(size_t slot) noexcept;

    std::vector<Entry> entries_;
    std::vector<Slot> index_; ///< Empty or a power of two in size, at most three quarters full.
};

/// The members of an array, without a handle of their own.
[[nodiscard]] inline const std::vector<Value> &valuesOf(const Value &array) noexcept {
    return static_cast<const ArrayNode *>(array.node())->values;
}

/// The entries of a dictionary, without a handle of their own.
[[nodiscard]] inline const std::vector<Dictionary::Entry> &entriesOf(const Value &dictionary) noexcept {
    return static_cast<const DictionaryNode *>(dictionary.node())->entries();
}

[[nodiscard]] inline bool isContainer(const Value &value) noexcept {
    return value.kind() == Kind::array || value.kind() == Kind::dictionary;
}

} // namespace moxel::detail
