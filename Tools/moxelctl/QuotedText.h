// Text between quotation marks, as JSON spells it.
#pragma once

#include <string>
#include <string_view>

namespace moxel::tool {

/// Whatever the text holds, the result is a JSON string, well-formed UTF-8 and fit for a terminal: control
/// characters are escaped. Surrogates that stand alone (in their three-byte form) are kept as escapes, other
/// ill-formed bytes become U+FFFD.
[[nodiscard]] std::string quotedText(std::string_view text);

} // namespace moxel::tool
