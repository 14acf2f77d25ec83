// The main bundle: how the running application is named and packaged.
#pragma once

#include "Export.h"
#include <optional>
#include <string>

namespace moxel {

struct MainBundle {
    /// "org.example.Viewer". Absent when the platform knows none; then Contents/Info.plist of the bundle, or
    /// of the application that `path` lies in, may tell it. On Linux, in this order: the sandbox's
    /// application, absent when there is such a property list, the desktop application that the user's
    /// service manager started, the executable's name.
    std::optional<std::string> identifier;
    std::string path; ///< The bundle's folder; the executable's folder without a bundle.
    std::optional<std::string> executableName; ///< File name of the executable.
    std::optional<std::string> executablePath; ///< Full path of the executable.
};

/// Reads the process's bundle anew on every call. Any thread.
[[nodiscard]] MOXEL_EXPORT MainBundle mainBundle();

} // namespace moxel
