// File URLs.
#pragma once

#include "Values/String.h"

namespace moxel {

/// "file:///a%20folder/file" for an absolute path, null for null.
[[nodiscard]] String fileURLWithPath(const String &path);

} // namespace moxel
