// Escapes control characters and ill-formed UTF-8.
#include "Platform/LogText.h"

#include "Platform/Utf8.h"

namespace moxel {

namespace {

void appendEscaped(std::string &result, std::string_view bytes) {
    constexpr char digits[] = "0123456789abcdef";
    for (const char byte : bytes) {
        switch (byte) {
        case '\n':
            result += "\\n";
            break;
        case '\r':
            result += "\\r";
            break;
        case '\t':
            result += "\\t";
            break;
        default: {
            const auto value = static_cast<unsigned char>(byte);
            result += "\\x";
            result += digits[value >> 4];
            result += digits[value & 0xF];
        }
        }
    }
}

bool isPrintable(const Utf8Character &character) {
    const auto codePoint = character.codePoint;
    return codePoint >= 0x20 && (codePoint < 0x7F || codePoint > 0x9F);
}

} // namespace

std::string printableText(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const auto character = firstUtf8Character(text);
        if (isPrintable(character)) {
            result += character.bytes;
        } else {
            appendEscaped(result, character.bytes);
        }
        text.remove_prefix(character.bytes.size());
    }
    return result;
}

} // namespace moxel
