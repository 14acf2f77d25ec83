// Bytes as base64 text.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace moxel::detail {

/// The bytes; white space may stand anywhere. Nothing for other characters, missing padding, or text after
/// the padding.
[[nodiscard]] std::optional<std::vector<uint8_t>> bytesFromBase64(std::string_view text);

/// Appends the text of the bytes with padding, without line breaks.
void appendBase64(std::string &text, std::span<const uint8_t> bytes);

} // namespace moxel::detail
