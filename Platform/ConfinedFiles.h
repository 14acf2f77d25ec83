// Files and folders below a trusted folder, reached without following a symbolic link.
#pragma once

#include "Export.h"
#include "Result.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace moxel {

/// A place below a folder that is trusted: links that lead to the folder are followed, what lies below it is
/// opened name by name, and a link among the names is an error.
struct ConfinedPath {
    std::string base;     ///< Absolute.
    std::string relative; ///< Names with slashes between them; neither "." nor ".." among them.
};

/// False for what is not the name of one file: nothing, "." and "..", and what holds a slash or a zero byte.
[[nodiscard]] MOXEL_EXPORT bool isFileName(std::string_view name);

// All may be called from any thread. The error's code is an errno value where the system refused.

/// Makes the base folder, the folder itself and those between them, each for its owner alone (mode 0700),
/// unless they exist.
[[nodiscard]] MOXEL_EXPORT Result<void> makeFolders(const ConfinedPath &folder);

/// Puts a new file (mode 0600) with these bytes in the place of what stands at `file`, be it a link. Whenever
/// the process or the machine stops, the old content or the new is there, whole; once this has succeeded the
/// new one stays. The temporary file that a stopped process leaves is removed by the next call in that
/// folder.
[[nodiscard]] MOXEL_EXPORT Result<void> replaceFile(const ConfinedPath &file, std::span<const uint8_t> bytes);

/// Makes an empty file with the mode that the process gives new files. Succeeds, and changes nothing, when
/// something stands there already.
[[nodiscard]] MOXEL_EXPORT Result<void> createEmptyFile(const ConfinedPath &file);

/// The content of a regular file of at most that many bytes.
[[nodiscard]] MOXEL_EXPORT Result<std::vector<uint8_t>> readFile(const ConfinedPath &file,
                                                                 size_t limit = size_t{1} << 30);

} // namespace moxel
