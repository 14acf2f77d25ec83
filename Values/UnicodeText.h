// Scanning and converting UTF-8 and UTF-16.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace moxel::detail {

/// The halves of a UTF-16 pair, and either of them.
constexpr bool isHighSurrogate(char32_t unit) noexcept { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isLowSurrogate(char32_t unit) noexcept { return unit >= 0xDC00 && unit <= 0xDFFF; }
constexpr bool isSurrogate(char32_t unit) noexcept { return unit >= 0xD800 && unit <= 0xDFFF; }

/// The character that a pair of surrogates stands for.
constexpr char32_t joinedSurrogates(char32_t high, char32_t low) noexcept {
    return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

/// One step through text.
struct CodePoint {
    char32_t value;
    uint8_t bytes;     ///< Length of the sequence; of an ill-formed one, what a reader should skip.
    bool isWellFormed; ///< False for what UTF-8 forbids; `value` is then U+FFFD.
};

/// Whether surrogates that stand alone are accepted in their three-byte form.
enum class Surrogates : bool { rejected, accepted };

/// The sequence at the start of text that is not empty.
[[nodiscard]] CodePoint decodeUTF8(std::string_view text, Surrogates surrogates) noexcept;

/// What one pass over UTF-8 text finds.
struct TextShape {
    size_t utf16Length = 0;
    bool isValid = true; ///< Nothing ill-formed; surrogates that stand alone count as ill-formed.
};
[[nodiscard]] TextShape scanUTF8(std::string_view text) noexcept;

/// The text with U+FFFD in place of every ill-formed sequence.
[[nodiscard]] std::string repairedUTF8(std::string_view text);

/// UTF-8 of UTF-16 units; surrogates that stand alone become their three-byte form.
struct UTF8Size {
    size_t bytes = 0;
    bool hasLoneSurrogate = false;
};
[[nodiscard]] UTF8Size sizeInUTF8(std::span<const char16_t> units) noexcept;
/// Writes exactly sizeInUTF8(units).bytes bytes.
void encodeUTF8(std::span<const char16_t> units, char *bytes) noexcept;

/// Appends a character of at most U+10FFFF; a surrogate in its three-byte form.
void appendUTF8(std::string &text, char32_t character);

/// Units of UTF-8 that may hold surrogates in their three-byte form.
[[nodiscard]] std::u16string decodedUTF16(std::string_view text);

/// Order by UTF-16 code units, in which platform collections sort their keys.
[[nodiscard]] bool precedesInUTF16(std::string_view a, std::string_view b);

} // namespace moxel::detail
