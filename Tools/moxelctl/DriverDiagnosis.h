// Finds out why no driver answers.
#pragma once

#include "Platform/HIDSurvey.h"

#include <string>

namespace moxel::tool {

struct Finding {
    std::string problem;
    std::string remedy;
};

/// The remedy where a driver answers and then does not do its part.
inline constexpr const char *restartDriver =
    "Start the driver (moxeld) again; MOXEL_LOG=stderr shows each step.";

/// Name of the base channel that a session of this login session looks for.
[[nodiscard]] std::string baseChannelName();

/// What is wrong with a bus that is not usable.
[[nodiscard]] Finding findingOfBus(const SurveyedBus &bus);
/// What keeps this program from a driver on a bus that is usable.
[[nodiscard]] Finding findingOfDevices(const SurveyedBus &bus);

/// Looks at the buses and says on standard error what is missing or wrong, and what to do about it.
void explainMissingDriver();

} // namespace moxel::tool
