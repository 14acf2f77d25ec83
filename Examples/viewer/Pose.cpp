#include "Pose.h"

#include <algorithm>
#include <cmath>

namespace viewer {

namespace {

constexpr double fullDeflection = 350;
constexpr double stepLength = 0.08;
constexpr double stepAngle = 0.08; // Radians.

Vector fraction(const std::array<int16_t, 6> &axes, size_t first) {
    return Vector{double(axes[first]), double(axes[first + 1]), double(axes[first + 2])} *
           (1 / fullDeflection);
}

} // namespace

Vector normalised(Vector vector) {
    const double length = std::sqrt(dot(vector, vector));
    return length > 0 ? vector * (1 / length) : vector;
}

void Pose::step(const std::array<int16_t, 6> &axes) {
    position_ = position_ + fraction(axes, 0) * stepLength;
    // It stays in view.
    position_.x = std::clamp(position_.x, -1.0, 1.0);
    position_.y = std::clamp(position_.y, -1.0, 1.0);
    position_.z = std::clamp(position_.z, -6.0, 1.0);

    const Vector rotation = fraction(axes, 3) * stepAngle;
    const double half = std::sqrt(dot(rotation, rotation)) / 2;
    const Vector imaginary = normalised(rotation) * std::sin(half);
    const double real = std::cos(half);
    const Vector turned = axis_ * real + imaginary * angle_ + cross(imaginary, axis_);
    angle_ = real * angle_ - dot(imaginary, axis_);
    const double length = std::sqrt(angle_ * angle_ + dot(turned, turned)); // 1 but for rounding.
    angle_ /= length;
    axis_ = turned * (1 / length);
}

Vector Pose::turn(Vector direction) const {
    const Vector twice = cross(axis_, direction) * 2;
    return direction + twice * angle_ + cross(axis_, twice);
}

} // namespace viewer
