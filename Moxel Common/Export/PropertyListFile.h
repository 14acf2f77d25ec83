// Whole files and the property lists in them, wherever they lie.
#pragma once

#include "Platform/Result.h"
#include "Values/Value.h"

#include <cstdint>
#include <vector>

namespace moxel {

/// Reads a regular file of at most 1 GiB. One in the export base folder is read without following links
/// there. Any thread.
[[nodiscard]] Result<std::vector<uint8_t>> readAnyFile(const String &path);

/// The property list in a file, immutable; null when it cannot be read. Any thread.
[[nodiscard]] Value propertyListInFile(const String &path);

} // namespace moxel
