// The standard folders of the user and of the machine.
#pragma once

#include "Export.h"
#include <optional>
#include <string>

namespace moxel {

/// The user's library folder (on Linux $XDG_CONFIG_HOME or its default); absent when the user has no home.
[[nodiscard]] MOXEL_EXPORT std::optional<std::string> userLibraryFolder();

/// The machine-wide application-support folder (on Linux the first of $XDG_DATA_DIRS that holds
/// Moxel/MxlWare, else the first).
[[nodiscard]] MOXEL_EXPORT std::string localApplicationSupportFolder();

} // namespace moxel
