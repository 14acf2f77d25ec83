// Lower case through utf8proc's simple mappings.
#include "Platform/UnicodeCase.h"

#include "Platform/Utf8.h"

#include <algorithm>
#include <array>
#include <iterator>

#include <utf8proc.h>

namespace moxel {

namespace {

bool isAscii(char byte) { return static_cast<unsigned char>(byte) < 0x80; }

char asciiLowercase(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

void appendLowercase(std::string &result, const Utf8Character &character) {
    if (!character.isWellFormed()) {
        result += character.bytes;
        return;
    }
    std::array<utf8proc_uint8_t, 4> encoded{};
    const auto length = utf8proc_encode_char(utf8proc_tolower(character.codePoint), encoded.data());
    result.append(reinterpret_cast<const char *>(encoded.data()), static_cast<size_t>(length));
}

} // namespace

std::string lowercase(std::string_view utf8) {
    std::string result;
    result.reserve(utf8.size());
    while (!utf8.empty()) {
        const auto asciiEnd = std::find_if_not(utf8.begin(), utf8.end(), isAscii);
        std::transform(utf8.begin(), asciiEnd, std::back_inserter(result), asciiLowercase);
        utf8.remove_prefix(static_cast<size_t>(asciiEnd - utf8.begin()));
        if (!utf8.empty()) {
            const auto character = firstUtf8Character(utf8);
            appendLowercase(result, character);
            utf8.remove_prefix(character.bytes.size());
        }
    }
    return result;
}

} // namespace moxel
