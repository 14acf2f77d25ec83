// What an application offers, as a person writes it down: action sets, images and settings.
#pragma once

#include "Platform/Result.h"
#include "Values/Value.h"
#include <Moxel/MoxelClient.h>

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace moxel::tool {

/// One action, as the driver numbers those of a set: depth first, from 1 on.
struct NumberedAction {
    std::string identifier;
    std::string label;
};

/// Owns the nodes, images and texts that the export functions read. Lives on one thread.
class ActionTree {
  public:
    /// Reads JSON or a property list:
    ///
    ///     {"sets": [{"id": "edit", "label": "Editing",
    ///                "children": [{"id": "copy", "label": "Copy", "description": "Copies", "image":
    ///                "copy.png"},
    ///                             {"id": "more", "label": "More", "children": [...]}]}],
    ///      "active": "edit",
    ///      "settings": {"speed": "fast"}}
    ///
    /// The members of "sets" are action sets, whatever has "children" within them is a category, everything
    /// else an action. "active" may be left out, and is the first set then. The error says which node is
    /// wrong.
    [[nodiscard]] static Result<ActionTree> read(std::span<const uint8_t> content);

    ActionTree(ActionTree &&) = default;
    ActionTree &operator=(ActionTree &&) = default;

    /// The first action set; never null.
    [[nodiscard]] const MoxelCommandSyncNode_s *sets() const { return &nodes_.front(); }
    [[nodiscard]] const std::string &activeSet() const { return active_; }
    [[nodiscard]] std::span<const MoxelImage_s> images() const { return images_; }
    [[nodiscard]] const std::vector<std::pair<std::string, std::string>> &settings() const {
        return settings_;
    }

    [[nodiscard]] size_t setCount() const;
    [[nodiscard]] size_t actionCount() const;
    /// The actions of the active set.
    [[nodiscard]] std::vector<NumberedAction> activeActions() const;

  private:
    ActionTree() = default;

    using Node = MoxelCommandSyncNode_s;

    /// Adds a list of siblings; the first one, or null.
    [[nodiscard]] Result<Node *> addList(const Value &list, const std::string &place, size_t depth);
    [[nodiscard]] Result<Node *> addNode(const Value &value, const std::string &place, size_t depth);
    [[nodiscard]] Result<void> takeSettings(const Value &settings);
    [[nodiscard]] Result<void> takeActive(const Value &active);
    /// A copy that stays where it is.
    const char *keep(const String &text);

    // Deques: what points into them survives moves and additions.
    std::deque<Node> nodes_;
    std::deque<std::string> texts_;
    std::vector<MoxelImage_s> images_;
    std::vector<std::pair<std::string, std::string>> settings_;
    std::string active_;
};

} // namespace moxel::tool
