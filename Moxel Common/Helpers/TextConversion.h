// Conversions between strings and the text forms of the HID interface.
#pragma once

#include "Values/String.h"

#include <string>
#include <string_view>

namespace moxel {

/// Surrogates that stand alone become '?'.
[[nodiscard]] std::u32string utf32FromUTF16(std::u16string_view units);

/// Text of zero-terminated UTF-32; what is not a character becomes U+FFFD.
[[nodiscard]] String stringFromUTF32(const char32_t *units);

/// Without spaces (the space separators of Unicode) and tabs at both ends.
[[nodiscard]] String stringByTrimmingWhitespace(const String &string);

/// The longest start of well-formed UTF-8 text that has at most so many UTF-16 units and bytes; a character
/// is never cut, except that one which begins within the units may be cut at the limit of bytes.
[[nodiscard]] std::string_view prefixOfUTF8(std::string_view text, size_t maximumUnits, size_t maximumBytes);

} // namespace moxel
