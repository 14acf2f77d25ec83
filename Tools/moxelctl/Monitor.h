// Shows the events of a session as they come, and counts them.
#pragma once

#include "ClientSession.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace moxel::tool {

struct MonitorOptions {
    std::optional<double> seconds;     ///< How long; until interrupted by default.
    std::optional<uint64_t> count;     ///< Ends after so many events.
    std::string name = "moxelctl";     ///< Application name to register under.
    uint32_t events = 0xFFFFFFFF;      ///< Event mask to register with.
    uint32_t buttons = 0xFFFFFFFF;     ///< Button mask; the registration alone asks for eight buttons.
    bool json = false;                 ///< One JSON object a line.
    bool plain = false;                ///< Lines even on a terminal.
    std::vector<std::string> required; ///< Kinds of event without which the command fails.
    bool driverMayLeave = false;       ///< That the driver goes is a good end.
    /// What is to be done when the session has begun; anything but success ends it. By default the button
    /// mask is set.
    std::function<int(const ClientSession &)> prepare = {};
};

/// Runs until its end; an exit code.
[[nodiscard]] int monitor(const MonitorOptions &options);

} // namespace moxel::tool
