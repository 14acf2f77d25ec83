// How the desktop names an application: read from the texts that the sandbox, the service manager and the
// file layout leave behind.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace moxel {

/// The application that a Flatpak sandbox runs, from the content of its /.flatpak-info.
[[nodiscard]] std::optional<std::string> applicationOfFlatpak(std::string_view information);

/// The application that a unit of the user's service manager was started for. Desktops name such units
/// app[-LAUNCHER]-APPLICATION[-RANDOM].scope or app[-LAUNCHER]-APPLICATION[@RANDOM].service, each part
/// escaped.
[[nodiscard]] std::optional<std::string> applicationOfUnit(std::string_view unit);

/// The bundle of an executable: BUNDLE for BUNDLE.EXTENSION/Contents/MacOS/NAME (or Contents/Linux/NAME),
/// else the executable's folder.
[[nodiscard]] std::string bundlePathOf(std::string_view executablePath);

} // namespace moxel
