#include "Moxel Daemon/Exports/ButtonActions.h"

namespace moxel::daemon {

std::vector<ActionEvent> ButtonActions::buttonsChanged(uint32_t buttons) {
    const uint32_t wentDown = buttons & ~buttons_;
    const uint32_t released = pressing_ & ~buttons;
    buttons_ = buttons;
    pressing_ &= buttons;
    std::vector<ActionEvent> events;
    for (size_t button = 0; button < buttonCount; ++button)
        if ((released >> button & 1) != 0)
            events.push_back({static_cast<int16_t>(button + 1), false});
    for (size_t button = 0; button < buttonCount && button < actionCount_; ++button) {
        if ((wentDown >> button & 1) == 0)
            continue;
        pressing_ |= uint32_t{1} << button;
        events.push_back({static_cast<int16_t>(button + 1), true});
    }
    return events;
}

} // namespace moxel::daemon
