// Reads numbers as property lists spell them, the same in every locale.
#pragma once

#include "Value.h"

#include <optional>
#include <string_view>

namespace moxel::detail {

/// The integer that the whole text spells: a sign or none, then decimal or 0x and hexadecimal digits. Null
/// when the text is something else or leaves -2^63 to 2^64-1.
[[nodiscard]] Value integerFromText(std::string_view text);

/// The number that the whole text spells: decimal with or without an exponent, or nan, inf, infinity in any
/// case. What is too large becomes infinite.
[[nodiscard]] std::optional<double> realFromText(std::string_view text);

/// The text without the white space at its ends.
[[nodiscard]] std::string_view trimmed(std::string_view text) noexcept;

} // namespace moxel::detail
