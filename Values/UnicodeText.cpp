// Scanning and converting UTF-8 and UTF-16.
#include "UnicodeText.h"

#include <algorithm>
#include <cstring>

namespace moxel::detail {

namespace {

constexpr char32_t replacement = 0xFFFD;

/// Length of the run of ASCII at the start.
size_t asciiPrefix(std::string_view text) noexcept {
    size_t i = 0;
    for (; i + 8 <= text.size(); i += 8) {
        uint64_t eight;
        std::memcpy(&eight, text.data() + i, 8);
        if (eight & 0x8080808080808080u)
            break;
    }
    while (i < text.size() && static_cast<uint8_t>(text[i]) < 0x80)
        ++i;
    return i;
}

/// What the lead byte of a sequence says about the bytes that follow.
struct Lead {
    uint8_t length;           ///< 0 for a byte that cannot lead.
    uint8_t secondMin = 0x80; ///< Excludes overlong forms.
    uint8_t secondMax = 0xBF; ///< Excludes surrogates and what lies beyond U+10FFFF.
};

Lead leadOf(uint8_t byte, Surrogates surrogates) noexcept {
    if (byte < 0x80)
        return {1};
    if (byte < 0xC2)
        return {0};
    if (byte < 0xE0)
        return {2};
    if (byte == 0xE0)
        return {3, 0xA0};
    if (byte == 0xED && surrogates == Surrogates::rejected)
        return {3, 0x80, 0x9F};
    if (byte < 0xF0)
        return {3};
    if (byte == 0xF0)
        return {4, 0x90};
    if (byte < 0xF4)
        return {4};
    if (byte == 0xF4)
        return {4, 0x80, 0x8F};
    return {0};
}

/// Units from position i on, a pair of surrogates taken as one.
struct UTF16Step {
    char32_t value;
    size_t units;
};

UTF16Step stepUTF16(std::span<const char16_t> units, size_t i) noexcept {
    const char32_t first = units[i];
    if (isHighSurrogate(first) && i + 1 < units.size() && isLowSurrogate(units[i + 1]))
        return {joinedSurrogates(first, units[i + 1]), 2};
    return {first, 1};
}

constexpr size_t encodedSize(char32_t value) noexcept {
    return value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
}

/// Returns the place behind the character.
char *writeUTF8(char32_t value, char *at) noexcept {
    const size_t size = encodedSize(value);
    if (size == 1) {
        *at = static_cast<char>(value);
        return at + 1;
    }
    constexpr uint8_t leadMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (size_t i = size - 1; i > 0; --i, value >>= 6)
        at[i] = static_cast<char>(0x80 | (value & 0x3F));
    *at = static_cast<char>(leadMarks[size] | value);
    return at + size;
}

} // namespace

CodePoint decodeUTF8(std::string_view text, Surrogates surrogates) noexcept {
    const auto byteAt = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const Lead lead = leadOf(byteAt(0), surrogates);
    if (lead.length == 0)
        return {replacement, 1, false};
    if (lead.length == 1)
        return {byteAt(0), 1, true};
    char32_t value = byteAt(0) & (0x7Fu >> lead.length);
    for (uint8_t i = 1; i < lead.length; ++i) {
        const uint8_t min = i == 1 ? lead.secondMin : 0x80;
        const uint8_t max = i == 1 ? lead.secondMax : 0xBF;
        if (i >= text.size() || byteAt(i) < min || byteAt(i) > max)
            return {replacement, i, false};
        value = value << 6 | (byteAt(i) & 0x3Fu);
    }
    return {value, lead.length, true};
}

TextShape scanUTF8(std::string_view text) noexcept {
    TextShape shape;
    while (!text.empty()) {
        const size_t ascii = asciiPrefix(text);
        shape.utf16Length += ascii;
        text.remove_prefix(ascii);
        if (text.empty())
            break;
        const CodePoint point = decodeUTF8(text, Surrogates::rejected);
        shape.isValid = shape.isValid && point.isWellFormed;
        shape.utf16Length += point.value > 0xFFFF ? 2 : 1;
        text.remove_prefix(point.bytes);
    }
    return shape;
}

std::string repairedUTF8(std::string_view text) {
    std::string repaired;
    repaired.reserve(text.size());
    while (!text.empty()) {
        const CodePoint point = decodeUTF8(text, Surrogates::rejected);
        if (point.isWellFormed)
            repaired += text.substr(0, point.bytes);
        else
            repaired += "\xEF\xBF\xBD";
        text.remove_prefix(point.bytes);
    }
    return repaired;
}

UTF8Size sizeInUTF8(std::span<const char16_t> units) noexcept {
    UTF8Size size;
    for (size_t i = 0; i < units.size();) {
        const UTF16Step step = stepUTF16(units, i);
        size.bytes += encodedSize(step.value);
        size.hasLoneSurrogate = size.hasLoneSurrogate || isSurrogate(step.value);
        i += step.units;
    }
    return size;
}

void encodeUTF8(std::span<const char16_t> units, char *bytes) noexcept {
    for (size_t i = 0; i < units.size();) {
        const UTF16Step step = stepUTF16(units, i);
        bytes = writeUTF8(step.value, bytes);
        i += step.units;
    }
}

void appendUTF8(std::string &text, char32_t character) {
    char bytes[4];
    text.append(bytes, writeUTF8(character, bytes));
}

std::u16string decodedUTF16(std::string_view text) {
    std::u16string units;
    units.reserve(text.size());
    while (!text.empty()) {
        const CodePoint point = decodeUTF8(text, Surrogates::accepted);
        if (point.value > 0xFFFF) {
            units += static_cast<char16_t>(0xD800 + ((point.value - 0x10000) >> 10));
            units += static_cast<char16_t>(0xDC00 + (point.value & 0x3FF));
        } else {
            units += static_cast<char16_t>(point.value);
        }
        text.remove_prefix(point.bytes);
    }
    return units;
}

bool precedesInUTF16(std::string_view a, std::string_view b) {
    const auto [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    if (inA == a.end() || inB == b.end())
        return inB != b.end();
    const auto byteA = static_cast<uint8_t>(*inA);
    const auto byteB = static_cast<uint8_t>(*inB);
    // Bytes sort as units do, except that pairs of surrogates (lead bytes from F0) stand before U+E000.
    if (byteA < 0xED || byteB < 0xED)
        return byteA < byteB;
    return decodedUTF16(a) < decodedUTF16(b);
}

} // namespace moxel::detail
