// Text of unknown origin made fit for a terminal or a line-based log.
#pragma once

#include "Export.h"
#include <string>
#include <string_view>

namespace moxel {

/// `text` with every control character (C0, delete and C1) and every byte that is not UTF-8 written as an
/// escape: \n, \r, \t or \xNN per byte. Everything else stays as it is.
[[nodiscard]] MOXEL_EXPORT std::string printableText(std::string_view text);

} // namespace moxel
