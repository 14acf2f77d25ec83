#include "Moxel Daemon/Archive/Unicode.h"

#include <cstdint>

namespace moxel::daemon {

namespace {

constexpr bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void appendUTF8(std::string &text, char32_t point) {
    const auto append = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (point < 0x80) {
        append(point);
    } else if (point < 0x800) {
        append(0xC0 | point >> 6);
        append(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        append(0xE0 | point >> 12);
        append(0x80 | (point >> 6 & 0x3F));
        append(0x80 | (point & 0x3F));
    } else {
        append(0xF0 | point >> 18);
        append(0x80 | (point >> 12 & 0x3F));
        append(0x80 | (point >> 6 & 0x3F));
        append(0x80 | (point & 0x3F));
    }
}

/// Takes one code point off the front of `text`.
std::optional<char32_t> takeCodePoint(std::string_view &text) {
    const auto first = static_cast<uint8_t>(text.front());
    const size_t length = first < 0x80         ? 1
                          : first >> 5 == 6    ? 2
                          : first >> 4 == 0xE  ? 3
                          : first >> 3 == 0x1E ? 4
                                               : 0;
    if (length == 0 || length > text.size())
        return std::nullopt;
    char32_t point = length == 1 ? first : first & (0x7FU >> length);
    for (size_t index = 1; index < length; ++index) {
        const auto byte = static_cast<uint8_t>(text[index]);
        if (byte >> 6 != 2)
            return std::nullopt;
        point = point << 6 | (byte & 0x3FU);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < smallest[length] || point > 0x10FFFF || isHighSurrogate(point) || isLowSurrogate(point))
        return std::nullopt;
    text.remove_prefix(length);
    return point;
}

} // namespace

std::optional<std::string> utf8FromUTF16(std::u16string_view units) {
    std::string text;
    text.reserve(units.size());
    for (size_t index = 0; index < units.size(); ++index) {
        char32_t point = units[index];
        if (isLowSurrogate(point))
            return std::nullopt;
        if (isHighSurrogate(point)) {
            if (index + 1 == units.size() || !isLowSurrogate(units[index + 1]))
                return std::nullopt;
            point = 0x10000 + ((point - 0xD800) << 10) + (units[++index] - 0xDC00U);
        }
        appendUTF8(text, point);
    }
    return text;
}

std::optional<std::u16string> utf16FromUTF8(std::string_view text) {
    std::u16string units;
    units.reserve(text.size());
    while (!text.empty()) {
        const std::optional<char32_t> point = takeCodePoint(text);
        if (!point)
            return std::nullopt;
        if (*point < 0x10000) {
            units.push_back(static_cast<char16_t>(*point));
        } else {
            units.push_back(static_cast<char16_t>(0xD800 + ((*point - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((*point - 0x10000) & 0x3FF)));
        }
    }
    return units;
}

} // namespace moxel::daemon
