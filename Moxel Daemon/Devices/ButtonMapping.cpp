#include "Moxel Daemon/Devices/ButtonMapping.h"

#include <algorithm>
#include <utility>

namespace moxel::daemon {

namespace {

/// The codes between and behind these are keys.
bool isButton(size_t code) {
    return (code >= BTN_MISC && code < KEY_OK) || (code >= BTN_DPAD_UP && code <= BTN_DPAD_RIGHT) ||
           (code >= BTN_TRIGGER_HAPPY && code <= BTN_TRIGGER_HAPPY40);
}

} // namespace

ButtonMapping::ButtonMapping(const InputCapabilities &capabilities, const std::bitset<KEY_CNT> &pressed) {
    for (size_t code = 0; code < capabilities.keys.size() && codes_.size() < buttonLimit; ++code) {
        if (!isButton(code) || !capabilities.keys[code])
            continue;
        buttons_ |= pressed[code] ? uint32_t{1} << codes_.size() : 0;
        codes_.push_back(static_cast<uint16_t>(code));
    }
    reported_ = buttons_;
}

void ButtonMapping::take(const input_event &event) {
    const auto found = std::lower_bound(codes_.begin(), codes_.end(), event.code);
    if (event.type != EV_KEY || found == codes_.end() || *found != event.code)
        return;
    const uint32_t bit = uint32_t{1} << (found - codes_.begin());
    reported_ = event.value != 0 ? reported_ | bit : reported_ & ~bit;
}

bool ButtonMapping::endReport() { return std::exchange(buttons_, reported_) != reported_; }

} // namespace moxel::daemon
