// Finds out why no driver answers.
#pragma once

#include <string>

namespace moxel::tool {

/// Name of the base channel that a session of this login session looks for.
[[nodiscard]] std::string baseChannelName();

/// Looks at the buses and says on standard error what is missing or wrong, and what to do about it.
void explainMissingDriver();

} // namespace moxel::tool
