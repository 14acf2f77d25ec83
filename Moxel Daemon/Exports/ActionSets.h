// What an application's commands file offers to the buttons.
#pragma once

#include "Moxel Daemon/Archive/Value.h"

#include <cstddef>
#include <string>
#include <vector>

namespace moxel::daemon {

/// Texts have at most 1,024 bytes; longer ones are cut.
struct ExportedAction {
    static constexpr size_t textLimit = 1024;

    std::string identifier;
    std::string label;

    bool operator==(const ExportedAction &) const = default;
};

/// The "Commands" of a file: action sets by their identifiers, and the active one's identifier. A set holds
/// actions and categories by their identifiers, categories hold the same. Lives on one thread.
class ActionSets {
  public:
    ActionSets() = default;
    explicit ActionSets(Dictionary commands) : commands_(std::move(commands)) {}

    [[nodiscard]] bool has(const std::string &setIdentifier) const;
    /// What the file says; "Default" when it says nothing.
    [[nodiscard]] std::string activeSet() const;
    [[nodiscard]] size_t setCount() const;
    /// The first actions of a set in the order of the file, those of a category where the category stands.
    [[nodiscard]] std::vector<ExportedAction> actionsOf(const std::string &setIdentifier, size_t limit) const;

  private:
    Dictionary commands_;
};

} // namespace moxel::daemon
