// Which input devices the daemon uses, and how.
#pragma once

#include "Moxel Daemon/Devices/AxisMapping.h"

#include <string>
#include <vector>

namespace moxel::daemon {

struct DeviceOptions {
    /// Files of devices, absolute; whatever axes and buttons they have are used. They may come later.
    std::vector<std::string> paths;
    /// Use every six-axis controller, and sticks and gamepads while there is none.
    bool choosesItself = false;
    AxisSettings axes;

    /// Where the files of the kernel's input devices are, and what the kernel tells of those devices.
    std::string inputFolder = "/dev/input";
    std::string systemFolder = "/sys/class/input";

    [[nodiscard]] bool areWanted() const { return choosesItself || !paths.empty(); }
};

} // namespace moxel::daemon
