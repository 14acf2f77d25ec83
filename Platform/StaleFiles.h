// Removal of what was created before a given time.
#pragma once

#include "Export.h"

#include <algorithm>
#include <chrono>
#include <string>

namespace moxel {

using FileTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

/// A time since 1970; the nearest that can be told when the seconds are beyond all measure. The fraction is
/// less than a second.
[[nodiscard]] constexpr FileTime fileTime(std::chrono::seconds seconds,
                                          std::chrono::nanoseconds fraction = {}) {
    constexpr auto limit =
        std::chrono::duration_cast<std::chrono::seconds>(FileTime::duration::max()) - std::chrono::seconds(1);
    return FileTime(std::clamp(seconds, -limit, limit) + fraction);
}

/// Removes, at every depth below the folder, each file and folder that was created before `time`, a folder
/// with everything in it. The folder itself stays. Symbolic links are removed, never followed (but for one
/// that leads to the folder itself), and other file systems that are mounted inside are left alone. Where a
/// file system does not record when a file was created, the last change of the file or its attributes stands
/// for it, so that nothing newer is removed. What cannot be removed stays. Any thread; constant stack and
/// descriptors at any depth.
MOXEL_EXPORT void removeFilesCreatedBefore(const std::string &folder, FileTime time);

} // namespace moxel
