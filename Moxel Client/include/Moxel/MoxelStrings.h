// Helpers over text, bytes and containers.
#pragma once

#include "MoxelBase.h"
#include "Values/Value.h"

#include <cstdint>

namespace moxel {

// All may be called from any thread; none logs.

/// A copy in which every dictionary and array, at every depth, is a new mutable one; leaves and keys are
/// shared. Null when the tree holds itself.
[[nodiscard]] MOXEL_EXPORT Value copyDeepMutable(const Value &object);

/// Two lower-case hexadecimal digits for each byte. Meant for at most 65,535 bytes: the count is taken modulo
/// 65,536, and only so many bytes are converted.
[[nodiscard]] MOXEL_EXPORT String hexString(const Data &data);

/// One byte for every two hexadecimal digits; a character that is no digit counts as 0, an odd last one is
/// dropped. Meant for at most 131,071 characters: the count of bytes is taken modulo 65,536.
[[nodiscard]] MOXEL_EXPORT Data binaryData(const String &string);

/// Text of a count byte and so many bytes of UTF-8. Null for null, for a count of 0 and for ill-formed text.
[[nodiscard]] MOXEL_EXPORT String stringWithPascalString(const uint8_t *pascalString);

/// Writes a count byte and at most 255 bytes of UTF-8 into a buffer of at least 256 bytes; no zero at the
/// end.
MOXEL_EXPORT void getPascalString(const String &string, uint8_t *buffer);
/// The same with at most `maxLength` bytes; a negative maximum means no limit. The count byte holds the low 8
/// bits of the count. A character may be cut at the limit.
MOXEL_EXPORT void getPascalString(const String &string, uint8_t *buffer, int32_t maxLength);

/// Text with attributes over its whole length.
struct AttributedString {
    String text;           ///< The whole text.
    Dictionary attributes; ///< What holds for all of it, by attribute names.
};

/// The text as a link to itself, underlined, in the system font, red when `highlighted` and blue otherwise.
[[nodiscard]] MOXEL_EXPORT AttributedString getHyperlink(const String &string, bool highlighted);

/// How the first text stands to the second one.
enum class ComparisonResult { ascending = -1, same = 0, descending = 1 };

/// Compares without regard to case, runs of digits by their number: "Item 9" comes before "item 10".
[[nodiscard]] MOXEL_EXPORT ComparisonResult caseInsensitiveNumericCompare(const String &string,
                                                                          const String &other);

/// The text with a hyphen in place of each of " * / : ? @ \ |.
[[nodiscard]] MOXEL_EXPORT String stringByReplacingIllegalCharacters(const String &string);

} // namespace moxel
