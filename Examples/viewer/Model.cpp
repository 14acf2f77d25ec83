#include "Model.h"

#include <cmath>
#include <numbers>

namespace viewer {

namespace {

constexpr int rings = 120;
constexpr int sides = 12;
constexpr double thickness = 0.34;
constexpr double fullTurn = 2 * std::numbers::pi;

/// The middle line of a trefoil knot; `at` runs from 0 to 1.
Vector middle(double at) {
    const double t = at * fullTurn;
    return Vector{std::sin(t) + 2 * std::sin(2 * t), std::cos(t) - 2 * std::cos(2 * t), -std::sin(3 * t)} *
           0.42;
}

Vector corner(int ring, int side) {
    const double at = double(ring) / rings;
    const Vector along = normalised(middle(at + 1e-4) - middle(at - 1e-4));
    const Vector across = normalised(cross(along, {0, 0, 1}));
    const Vector upwards = cross(across, along);
    const double angle = side * fullTurn / sides;
    return middle(at) + (across * std::cos(angle) + upwards * std::sin(angle)) * thickness;
}

/// Through the rainbow once around the knot.
Colour colourAt(double at) {
    const auto channel = [at](double shift) {
        return static_cast<uint8_t>(150 + 100 * std::cos(fullTurn * (at - shift)));
    };
    return {channel(0), channel(1.0 / 3), channel(2.0 / 3)};
}

} // namespace

std::vector<Face> makeKnot() {
    std::vector<Face> faces;
    for (int ring = 0; ring < rings; ++ring)
        for (int side = 0; side < sides; ++side)
            faces.push_back({{corner(ring, side), corner(ring, side + 1), corner(ring + 1, side + 1),
                              corner(ring + 1, side)},
                             colourAt(double(ring) / rings)});
    return faces;
}

} // namespace viewer
