// Whole files in memory.
#pragma once

#include "Platform/Result.h"

#include <cstdint>
#include <string>
#include <vector>

namespace moxel {

/// Reads a regular file of at most 1 GiB; anything else (a folder, a pipe, a device) is an error.
[[nodiscard]] Result<std::vector<uint8_t>> readFileContents(const std::string &path);

} // namespace moxel
