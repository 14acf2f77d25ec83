// Which actions the buttons of the device stand for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace moxel::daemon {

/// An action that was pressed or released.
struct ActionEvent {
    int16_t number = 0; ///< Of the action in its set; the first one is 1.
    bool isPressed = false;

    bool operator==(const ActionEvent &) const = default;
};

/// The first button stands for the first action of the active set, the second for the second, and so on. A
/// button that is down when the set changes releases the action that it pressed.
///
/// Lives on the daemon's thread.
class ButtonActions {
  public:
    static constexpr size_t buttonCount = 32;

    void setActionCount(size_t count) noexcept { actionCount_ = count; }

    /// What follows when exactly these buttons are down, one bit each: releases first.
    [[nodiscard]] std::vector<ActionEvent> buttonsChanged(uint32_t buttons);

  private:
    size_t actionCount_ = 0;
    uint32_t buttons_ = 0;
    uint32_t pressing_ = 0; ///< Buttons whose action was told to be pressed.
};

} // namespace moxel::daemon
