// What an input device can report, and what kind of device that makes it.
#pragma once

#include <bitset>
#include <linux/input.h>
#include <optional>
#include <string>
#include <string_view>

namespace moxel::daemon {

/// One bit for each code that the kernel knows.
struct InputCapabilities {
    std::bitset<KEY_CNT> keys;
    std::bitset<REL_CNT> relative;
    std::bitset<ABS_CNT> absolute;
    std::bitset<INPUT_PROP_CNT> properties;

    bool operator==(const InputCapabilities &) const = default;
};

enum class DeviceKind {
    other,
    joystick,          ///< A stick or a gamepad.
    sixAxisController, ///< Three translations and three rotations.
};

[[nodiscard]] DeviceKind kindOf(const InputCapabilities &capabilities);
/// True for pads with the buttons of a gamepad.
[[nodiscard]] bool isGamepad(const InputCapabilities &capabilities);

/// Reads capabilities from the kernel's folder of a device (/sys/class/input/eventN/device), which needs no
/// rights on the device; absent when there is no such folder or it holds something else.
[[nodiscard]] std::optional<InputCapabilities> readCapabilities(const std::string &folder);

} // namespace moxel::daemon
