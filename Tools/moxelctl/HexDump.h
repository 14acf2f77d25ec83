// Bytes for people: offsets, hexadecimal digits, and the characters that they may stand for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>

namespace moxel::tool {

inline constexpr size_t allBytes = std::numeric_limits<size_t>::max();

/// "4d5800": two digits a byte.
[[nodiscard]] std::string plainHex(std::span<const uint8_t> bytes);

/// "4D 58 00": two digits a byte.
[[nodiscard]] std::string spacedHex(std::span<const uint8_t> bytes);

/// Rows of 16 bytes, each begun with `indentation` and ended with a newline; of more than `limit` bytes only
/// the first ones, and a row that says how many follow.
[[nodiscard]] std::string hexDump(std::span<const uint8_t> bytes, const std::string &indentation,
                                  size_t limit = allBytes);

} // namespace moxel::tool
