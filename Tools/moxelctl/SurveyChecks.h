// What the doctor tells from a look at the buses and at the login session, before it talks to the driver.
#pragma once

#include "Check.h"
#include "Platform/HIDSurvey.h"

#include <optional>
#include <vector>

namespace moxel::tool {

/// "bus": is the folder there, whose is it, and who may write to it? The first of the buses is its.
[[nodiscard]] Check checkBusFolder(const std::vector<SurveyedBus> &buses);
/// "driver": does the base channel of this login session answer?
[[nodiscard]] Check checkDriver(const std::vector<SurveyedBus> &buses);
/// "devices": may this user use the driver's devices among the kernel's?
[[nodiscard]] Check checkDevices(const std::vector<SurveyedBus> &buses);
/// "session": is this login session the one on the console? Absent when that cannot be told.
[[nodiscard]] Check checkSession(std::optional<bool> isOnConsole);

} // namespace moxel::tool
