// Events as lines of a trace, which the reference daemon plays.
#pragma once

#include "Event.h"

#include <chrono>
#include <optional>
#include <string>

namespace moxel::tool {

/// An event's line without its time. What a trace has no event for, and what would make a line longer than it
/// may be, is a comment that begins with "#". `preferences` are those that came with a preferences event, if
/// they are known.
[[nodiscard]] std::string traceText(const Event &event, const std::optional<MoxelDevicePrefs> &preferences);

/// The driver serves this device now.
[[nodiscard]] std::string identityText(uint32_t deviceID);

/// "1.250000": seconds from the start of the trace.
[[nodiscard]] std::string traceTime(std::chrono::duration<double> time);

} // namespace moxel::tool
