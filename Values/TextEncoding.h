// The encodings in which property lists come as text.
#pragma once

#include "../Platform/Result.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace moxel::detail {

enum class TextEncoding : uint8_t {
    bytes, ///< UTF-8, or whatever the text itself declares: one byte stands for one ASCII character.
    utf16BigEndian,
    utf16LittleEndian,
    utf32BigEndian,
    utf32LittleEndian,
};

struct DetectedEncoding {
    TextEncoding encoding;
    size_t markSize; ///< Bytes of the byte-order mark, 0 when there is none.
};

/// By the byte-order mark, or else by the zero bytes around a first character that is ASCII.
[[nodiscard]] DetectedEncoding detectTextEncoding(std::span<const uint8_t> bytes) noexcept;

/// The text without its byte-order mark: a view of the bytes themselves, or of `storage`, to which UTF-16 and
/// UTF-32 are converted. Unconverted bytes are not checked. An error for surrogates that stand alone, for
/// what lies beyond U+10FFFF, and for text that ends inside a character.
[[nodiscard]] Result<std::string_view> decodedText(std::span<const uint8_t> bytes, std::string &storage);

} // namespace moxel::detail
