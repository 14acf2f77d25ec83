// The members of a container, whichever kind it is of, by index.
#pragma once

#include "Value.h"

#include <span>
#include <string>

namespace moxel::detail {

/// A view of a container that somebody else keeps alive and unchanged.
class ContainerCursor {
  public:
    explicit ContainerCursor(const Value &container) noexcept
        : node_(container.node()),
          isDictionary_(container.kind() == Kind::dictionary),
          entries_(container.asDictionary().entries()),
          values_(container.asArray().values()) {}

    [[nodiscard]] const Node *node() const noexcept { return node_; }
    [[nodiscard]] bool isDictionary() const noexcept { return isDictionary_; }
    [[nodiscard]] size_t size() const noexcept { return isDictionary_ ? entries_.size() : values_.size(); }
    /// Only of a dictionary.
    [[nodiscard]] const String &key(size_t index) const noexcept { return entries_[index].key; }
    [[nodiscard]] const Value &value(size_t index) const noexcept {
        return isDictionary_ ? entries_[index].value : values_[index];
    }
    /// For messages.
    [[nodiscard]] std::string place(size_t index) const {
        return isDictionary_ ? "under the key \"" + key(index).string() + "\""
                             : "at index " + std::to_string(index);
    }

  private:
    const Node *node_;
    bool isDictionary_;
    std::span<const Dictionary::Entry> entries_;
    std::span<const Value> values_;
};

} // namespace moxel::detail
