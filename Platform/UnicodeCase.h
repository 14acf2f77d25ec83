// Upper and lower case for text in every script.
#pragma once

#include "Export.h"
#include <string>
#include <string_view>

namespace moxel {

/// The lower-case form of UTF-8 text, character by character (simple mappings, no locale). Bytes that are not
/// UTF-8 stay as they are.
[[nodiscard]] MOXEL_EXPORT std::string lowercase(std::string_view utf8);

} // namespace moxel
