// What is looked at: a knot, made of small flat faces.
#pragma once

#include "Pose.h"

#include <array>
#include <cstdint>
#include <vector>

namespace viewer {

struct Colour {
    uint8_t red;
    uint8_t green;
    uint8_t blue;
};

/// Four corners, counterclockwise seen from outside.
struct Face {
    std::array<Vector, 4> corners;
    Colour colour;
};

[[nodiscard]] std::vector<Face> makeKnot();

} // namespace viewer
