// Reads an open file into memory.
#pragma once

#include "Platform/Result.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace moxel {

/// The content of a regular file of at most that many bytes; `name` is for the error's text. The file is open
/// with O_NONBLOCK, so that opening it has not waited for another program.
[[nodiscard]] Result<std::vector<uint8_t>> readOpenFile(int file, const std::string &name, size_t limit);

} // namespace moxel
