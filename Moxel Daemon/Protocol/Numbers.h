// Numbers and bytes from text that people write.
#pragma once

#include "Moxel Daemon/Archive/Value.h"

#include <charconv>
#include <concepts>
#include <optional>
#include <string_view>

namespace moxel::daemon {

/// Decimal, or hexadecimal behind "0x"; a minus sign in front for signed types. The whole text must be the
/// number, and it must fit.
template <std::integral Integer>
[[nodiscard]] std::optional<Integer> parseNumber(std::string_view text) {
    const bool isNegative = !text.empty() && text.front() == '-';
    std::string_view digits = text.substr(isNegative ? 1 : 0);
    const bool isHexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
    digits.remove_prefix(isHexadecimal ? 2 : 0);
    uint64_t magnitude = 0;
    const char *end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, magnitude, isHexadecimal ? 16 : 10);
    if (error != std::errc() || rest != end)
        return std::nullopt;
    if (!isNegative)
        return std::in_range<Integer>(magnitude) ? std::optional(static_cast<Integer>(magnitude))
                                                 : std::nullopt;
    if (magnitude > uint64_t{1} << 63)
        return std::nullopt;
    const auto number = static_cast<int64_t>(~magnitude + 1);
    return std::in_range<Integer>(number) ? std::optional(static_cast<Integer>(number)) : std::nullopt;
}

/// Pairs of hexadecimal digits.
[[nodiscard]] std::optional<Data> parseHexadecimal(std::string_view text);

} // namespace moxel::daemon
