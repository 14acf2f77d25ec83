// Builds nested containers from the sequence in which a document names their parts.
#pragma once

#include "PropertyList.h"

#include <array>
#include <string_view>
#include <vector>

namespace moxel::detail {

/// Keeps the parts of all containers that are open on two stacks, whatever their depth. Of two values under
/// one key the later counts. One thread at a time.
class ContainerBuilder {
  public:
    explicit ContainerBuilder(Mutability mutability) noexcept : mutability_(mutability) {}

    void openArray() { open_.push_back({Kind::array, false, parts_.size()}); }
    void openDictionary() { open_.push_back({Kind::dictionary, false, parts_.size()}); }

    [[nodiscard]] size_t depth() const noexcept { return open_.size(); }
    [[nodiscard]] bool isInArray() const noexcept {
        return !open_.empty() && open_.back().kind == Kind::array;
    }
    [[nodiscard]] bool isInDictionary() const noexcept {
        return !open_.empty() && open_.back().kind == Kind::dictionary;
    }
    /// Whether the innermost container is a dictionary with a key that has no value yet.
    [[nodiscard]] bool awaitsValue() const noexcept { return !open_.empty() && open_.back().awaitsValue; }

    /// Names the next value; only in a dictionary that awaits none.
    void setKey(String key);
    /// The same for UTF-8 text. Keys that recur, as they do in lists of records, become one String.
    void setKey(std::string_view utf8);
    /// Adds a value to the innermost container; to a dictionary only when it awaits one.
    void add(Value value);
    /// Makes the innermost container, which does not await a value. It belongs to nothing yet.
    [[nodiscard]] Value close();

  private:
    struct OpenContainer {
        Kind kind;
        bool awaitsValue;
        size_t firstPart;
    };

    [[nodiscard]] Value makeArray(size_t firstPart);
    [[nodiscard]] Value makeDictionary(size_t firstPart);

    const Mutability mutability_;
    std::vector<OpenContainer> open_;
    std::array<String, 64> recentKeys_;
    std::vector<Dictionary::Entry> parts_; ///< Values of arrays have no key.
};

} // namespace moxel::detail
