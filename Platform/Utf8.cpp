// UTF-8 decoding through utf8proc.
#include "Platform/Utf8.h"

#include <utf8proc.h>

namespace moxel {

Utf8Character firstUtf8Character(std::string_view text) {
    utf8proc_int32_t codePoint = -1;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t *>(text.data()),
                                         static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
    if (length <= 0)
        return {-1, text.substr(0, 1)};
    return {codePoint, text.substr(0, static_cast<size_t>(length))};
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const auto character = firstUtf8Character(text);
        if (!character.isWellFormed())
            return false;
        text.remove_prefix(character.bytes.size());
    }
    return true;
}

} // namespace moxel
