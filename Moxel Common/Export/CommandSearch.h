// The search for actions by their labels.
#pragma once

#include "Values/Value.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace moxel {

/// What an action set or a category says of itself, beside its members.
inline constexpr std::array<std::string_view, 4> containerAttributes = {"description", "type", "id", "label"};

/// One search, which lives for one call, on its thread. The stack stays constant at any depth.
class CommandSearch {
  public:
    CommandSearch(const String &text, bool exact, bool single, uint16_t &finds)
        : text_(text), exact_(exact), single_(single), finds_(finds) {}

    /// Null when nothing is found.
    [[nodiscard]] Dictionary run(const Dictionary &root);

  private:
    /// A container that is being searched.
    struct Level {
        Dictionary container;
        String key;
        size_t next = 0;
        MutableDictionary finds; ///< Null until there are any.
    };

    void enter(const Dictionary &container, const String &key);
    /// Hands the last level's finds to the level above it.
    void leave();
    void store(const String &key, const Value &find);
    [[nodiscard]] bool matches(const Dictionary &action) const;

    const String &text_;
    bool exact_;
    bool single_;
    uint16_t &finds_;
    std::vector<Level> levels_;
    std::unordered_set<const detail::Node *> entered_; ///< The containers of the levels.
};

} // namespace moxel
