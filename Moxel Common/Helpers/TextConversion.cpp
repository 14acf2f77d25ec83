#include "Helpers/TextConversion.h"

#include "Values/UnicodeText.h"

namespace moxel {

namespace {

constexpr bool isWhitespace(char32_t character) {
    return character == U'\t' || character == U' ' || character == 0xA0 || character == 0x1680 ||
           (character >= 0x2000 && character <= 0x200A) || character == 0x202F || character == 0x205F ||
           character == 0x3000;
}

} // namespace

std::u32string utf32FromUTF16(std::u16string_view units) {
    std::u32string text;
    for (size_t i = 0; i < units.size(); ++i) {
        const char16_t unit = units[i];
        if (detail::isHighSurrogate(unit) && i + 1 < units.size() && detail::isLowSurrogate(units[i + 1]))
            text += detail::joinedSurrogates(unit, units[++i]);
        else
            text += detail::isSurrogate(unit) ? U'?' : char32_t{unit};
    }
    return text;
}

String stringFromUTF32(const char32_t *units) {
    std::string text;
    for (; *units; ++units) {
        const bool isCharacter = *units <= 0x10FFFF && !detail::isSurrogate(*units);
        detail::appendUTF8(text, isCharacter ? *units : U'\uFFFD');
    }
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
