// UTF-8 and UTF-16 into each other, strictly.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace moxel::daemon {

/// Absent when a surrogate stands alone.
[[nodiscard]] std::optional<std::string> utf8FromUTF16(std::u16string_view units);
/// Absent when the bytes are not UTF-8: overlong, cut short, surrogates or beyond U+10FFFF.
[[nodiscard]] std::optional<std::u16string> utf16FromUTF8(std::string_view text);

} // namespace moxel::daemon
