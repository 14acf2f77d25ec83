#include "QuotedText.h"

#include "Platform/Utf8.h"
#include "Values/Format.h"

namespace moxel::tool {

namespace {

/// The surrogate that stands alone at the front of the text, in its three-byte form; 0 when there is none.
int loneSurrogate(std::string_view text) {
    if (text.size() < 3)
        return 0;
    const auto byte = [text](size_t index) { return static_cast<unsigned char>(text[index]); };
    const bool isSurrogate =
        byte(0) == 0xED && byte(1) >= 0xA0 && byte(1) <= 0xBF && byte(2) >= 0x80 && byte(2) <= 0xBF;
    return isSurrogate ? 0xD000 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F) : 0;
}

void append(std::string &result, const Utf8Character &character) {
    const int32_t point = character.codePoint;
    if (point < 0)
        result += "\uFFFD";
    else if (point == '"' || point == '\\')
        (result += '\\') += static_cast<char>(point);
    else if (point == '\n')
        result += "\\n";
    else if (point == '\t')
        result += "\\t";
    else if (point < 0x20 || (point >= 0x7F && point <= 0x9F))
        result += format("\\u%04x", point);
    else
        result += character.bytes;
}

} // namespace

std::string quotedText(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        if (const int surrogate = loneSurrogate(text)) {
            result += format("\\u%04x", surrogate);
            text.remove_prefix(3);
            continue;
        }
        const Utf8Character character = firstUtf8Character(text);
        append(result, character);
        text.remove_prefix(character.bytes.size());
    }
    return result += '"';
}

} // namespace moxel::tool
