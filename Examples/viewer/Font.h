// Capital letters, digits and a few signs of five by seven dots.
#pragma once

#include <array>
#include <cstdint>

namespace viewer {

inline constexpr int glyphWidth = 5;
inline constexpr int glyphHeight = 7;

/// The columns of a character from left to right, the lowest bit at the top. Small letters look like
/// capitals, what is unknown like a blank.
[[nodiscard]] std::array<uint8_t, glyphWidth> glyph(char character);

} // namespace viewer
