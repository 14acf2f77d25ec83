// Whole files in memory.
#pragma once

#include "Result.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace moxel {

/// Reads a regular file of at most that many bytes; anything else (a folder, a pipe, a device) is an error,
/// and is not waited for. The error's code is an errno value where the system refused. Any thread.
[[nodiscard]] Result<std::vector<uint8_t>> readFileContents(const std::string &path,
                                                            size_t limit = size_t{1} << 30);

} // namespace moxel
