// Values as text for people.
#pragma once

#include "HexDump.h"
#include "Values/Value.h"

#include <string>

namespace moxel::tool {

/// Nesting beyond it is written, but not indented any further.
inline constexpr size_t deepestIndentation = 64;

/// A row for each value, indented; ends with a newline. A container or record that stands in several places
/// is written once, marked "&N", and as "*N" from then on. Of bytes at most `dataLimit` are shown in each
/// place.
[[nodiscard]] std::string readableText(const Value &value, size_t dataLimit = allBytes);

} // namespace moxel::tool
