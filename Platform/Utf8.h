// Walks UTF-8 text of unknown origin character by character.
#pragma once

#include "Export.h"
#include <cstdint>
#include <string_view>

namespace moxel {

struct Utf8Character {
    int32_t codePoint = -1; ///< -1 for a byte that begins no well-formed character.
    std::string_view bytes; ///< The character's bytes; that one byte where it is ill-formed.

    [[nodiscard]] bool isWellFormed() const { return codePoint >= 0; }
};

/// The character at the front of `text`, which is not empty.
[[nodiscard]] MOXEL_EXPORT Utf8Character firstUtf8Character(std::string_view text);

[[nodiscard]] MOXEL_EXPORT bool isUtf8(std::string_view text);

} // namespace moxel
