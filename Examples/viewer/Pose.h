// Where the model is and how it is turned.
#pragma once

#include <array>
#include <cstdint>

namespace viewer {

struct Vector {
    double x = 0;
    double y = 0;
    double z = 0;
};

inline Vector operator+(Vector a, Vector b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vector operator-(Vector a, Vector b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vector operator*(Vector a, double factor) { return {a.x * factor, a.y * factor, a.z * factor}; }
inline double dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vector cross(Vector a, Vector b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
Vector normalised(Vector vector);

/// x points to the right, y up, z towards the viewer; the model rests at the origin. Lives on one thread.
class Pose {
  public:
    /// One event of the controller is one step, as far as the cap is pushed and twisted.
    void step(const std::array<int16_t, 6> &axes);
    [[nodiscard]] Vector place(Vector point) const { return turn(point) + position_; }
    [[nodiscard]] Vector turn(Vector direction) const;

  private:
    Vector position_;
    double angle_ = 1; ///< Real part of a unit quaternion,
    Vector axis_;      ///< and its imaginary part.
};

} // namespace viewer
