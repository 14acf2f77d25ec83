#include "Helpers/TextConversion.h"

#include "Values/UnicodeText.h"

namespace moxel {

namespace {

constexpr bool isHighSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xD800; }

constexpr bool isLowSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xDC00; }

constexpr bool isWhitespace(char32_t character) {
    return character == U'\t' || character == U' ' || character == 0xA0 || character == 0x1680 ||
           (character >= 0x2000 && character <= 0x200A) || character == 0x202F || character == 0x205F ||
           character == 0x3000;
}

void appendUTF8(std::string &text, char32_t character) {
    const bool isCharacter = character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
    const char32_t code = isCharacter ? character : U'\uFFFD';
    const auto tail = [code](int shift) { return static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
    if (code < 0x80)
        text += static_cast<char>(code);
    else if (code < 0x800)
        text += {static_cast<char>(0xC0 | (code >> 6)), tail(0)};
    else if (code < 0x10000)
        text += {static_cast<char>(0xE0 | (code >> 12)), tail(6), tail(0)};
    else
        text += {static_cast<char>(0xF0 | (code >> 18)), tail(12), tail(6), tail(0)};
}

} // namespace

std::u32string utf32FromUTF16(std::u16string_view units) {
    std::u32string text;
    for (size_t i = 0; i < units.size(); ++i) {
        const char16_t unit = units[i];
        if (isHighSurrogate(unit) && i + 1 < units.size() && isLowSurrogate(units[i + 1]))
            text += static_cast<char32_t>(0x10000 + ((unit & 0x3FF) << 10 | (units[++i] & 0x3FF)));
        else
            text += isHighSurrogate(unit) || isLowSurrogate(unit) ? U'?' : static_cast<char32_t>(unit);
    }
    return text;
}

String stringFromUTF32(const char32_t *units) {
    std::string text;
    for (; *units; ++units)
        appendUTF8(text, *units);
    return text;
}

String stringByTrimmingWhitespace(const String &string) {
    const std::string_view text = string.view();
    size_t begin = text.size();
    size_t end = 0;
    for (size_t at = 0; at < text.size();) {
        const detail::CodePoint character = detail::decodeUTF8(text.substr(at), detail::Surrogates::accepted);
        const size_t next = at + character.bytes;
        if (!isWhitespace(character.value)) {
            begin = std::min(begin, at);
            end = next;
        }
        at = next;
    }
    return begin < end ? String(text.substr(begin, end - begin)) : String("");
}

std::string_view prefixOfUTF8(std::string_view text, size_t maximumUnits, size_t maximumBytes) {
    size_t at = 0;
    for (size_t units = 0; at < text.size() && at < maximumBytes;) {
        const detail::CodePoint character = detail::decodeUTF8(text.substr(at), detail::Surrogates::accepted);
        units += character.value > 0xFFFF ? 2 : 1;
        if (units > maximumUnits)
            break;
        at += character.bytes;
    }
    return text.substr(0, std::min(at, maximumBytes));
}

} // namespace moxel
