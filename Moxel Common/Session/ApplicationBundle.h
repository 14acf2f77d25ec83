// The bundle identifier that an application registers under.
#pragma once

#include "Platform/Bundle.h"
#include "Values/Value.h"

#include <string>

namespace moxel {

/// The main bundle's identifier; without one, that of the application which the bundle is part of (a helper
/// or a plug-in inside X.app). Null when there is neither.
[[nodiscard]] Value applicationBundleIdentifier(const MainBundle &bundle);

} // namespace moxel
